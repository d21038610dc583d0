// Reachability over rtnetlink: one socket per question, two dumps, then the pure decision.

#include <velora/platform/Reachability.hpp>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>

#include "platform/Netlink.hpp"

namespace velora {
namespace detail {
namespace {

/// Walks the messages of a dump, handing each complete one of `type` to `visit`.
template <class Visit>
void eachMessage(std::string_view dump, int type, Visit visit) {
  std::size_t offset = 0;
  while (dump.size() - offset >= sizeof(nlmsghdr)) {
    nlmsghdr header;
    std::memcpy(&header, dump.data() + offset, sizeof header);
    if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > dump.size() - offset) return;
    if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) return;
    if (header.nlmsg_type == type) visit(dump.substr(offset + NLMSG_HDRLEN, header.nlmsg_len - NLMSG_HDRLEN));
    offset += NLMSG_ALIGN(header.nlmsg_len);
  }
}

/// Walks the attributes that follow a fixed header of `fixed` bytes.
template <class Visit>
void eachAttribute(std::string_view body, std::size_t fixed, Visit visit) {
  std::size_t offset = NLMSG_ALIGN(fixed);
  while (offset < body.size() && body.size() - offset >= sizeof(rtattr)) {
    rtattr attribute;
    std::memcpy(&attribute, body.data() + offset, sizeof attribute);
    if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > body.size() - offset) return;
    visit(attribute.rta_type, body.substr(offset + RTA_LENGTH(0), attribute.rta_len - RTA_LENGTH(0)));
    offset += RTA_ALIGN(attribute.rta_len);
  }
}

std::optional<int> readInt(std::string_view value) {
  if (value.size() < sizeof(int)) return std::nullopt;
  int number = 0;
  std::memcpy(&number, value.data(), sizeof number);
  return number;
}

}  // namespace

std::vector<NetlinkLink> parseNetlinkLinks(std::string_view dump) {
  std::vector<NetlinkLink> links;
  eachMessage(dump, RTM_NEWLINK, [&](std::string_view body) {
    if (body.size() < sizeof(ifinfomsg)) return;
    ifinfomsg info;
    std::memcpy(&info, body.data(), sizeof info);
    links.push_back({info.ifi_index, (info.ifi_flags & IFF_UP) && (info.ifi_flags & IFF_RUNNING),
                     (info.ifi_flags & IFF_LOOPBACK) != 0});
  });
  return links;
}

std::vector<NetlinkRoute> parseNetlinkRoutes(std::string_view dump) {
  std::vector<NetlinkRoute> routes;
  eachMessage(dump, RTM_NEWROUTE, [&](std::string_view body) {
    if (body.size() < sizeof(rtmsg)) return;
    rtmsg message;
    std::memcpy(&message, body.data(), sizeof message);
    if (message.rtm_type != RTN_UNICAST) return;
    NetlinkRoute route{{}, message.rtm_family, message.rtm_dst_len, false};
    std::optional<unsigned> table = message.rtm_table;
    eachAttribute(body, sizeof(rtmsg), [&](unsigned short type, std::string_view value) {
      if (type == RTA_TABLE) {
        if (auto number = readInt(value)) table = static_cast<unsigned>(*number);
      } else if (type == RTA_OIF) {
        if (auto index = readInt(value)) route.outputs.push_back(*index);
      } else if (type == RTA_DST && message.rtm_family == AF_INET6 && value.size() >= 2) {
        const auto first = static_cast<unsigned char>(value[0]), second = static_cast<unsigned char>(value[1]);
        route.linkLocalDestination = first == 0xfe && (second & 0xc0) == 0x80;
      } else if (type == RTA_MULTIPATH) {
        std::size_t offset = 0;
        while (value.size() - offset >= sizeof(rtnexthop)) {
          rtnexthop hop;
          std::memcpy(&hop, value.data() + offset, sizeof hop);
          if (hop.rtnh_len < sizeof(rtnexthop) || hop.rtnh_len > value.size() - offset) break;
          route.outputs.push_back(hop.rtnh_ifindex);
          offset += RTNH_ALIGN(hop.rtnh_len);
        }
      }
    });
    if (table == RT_TABLE_MAIN) routes.push_back(std::move(route));
  });
  return routes;
}

bool usableConnection(const std::vector<NetlinkLink>& links, const std::vector<NetlinkRoute>& routes) {
  const auto outward = [&](int index) {
    return std::any_of(links.begin(), links.end(),
                       [&](const NetlinkLink& link) { return link.index == index && link.up && !link.loopback; });
  };
  return std::any_of(routes.begin(), routes.end(), [&](const NetlinkRoute& route) {
    return !route.linkLocalDestination && std::any_of(route.outputs.begin(), route.outputs.end(), outward);
  });
}

}  // namespace detail

namespace {

class Socket {
 public:
  Socket() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    // The kernel answers at once; the limit only keeps a caller from hanging on a broken one.
    const timeval limit{2, 0};
    if (fd_ >= 0) ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  bool valid() const { return fd_ >= 0; }

  /// Sends a dump request of `type` and returns every answer up to NLMSG_DONE; nothing on failure.
  std::optional<std::string> dump(unsigned short type, unsigned sequence) const {
    struct {
      nlmsghdr header;
      rtgenmsg body;
    } request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof(rtgenmsg));
    request.header.nlmsg_type = type;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = sequence;
    request.body.rtgen_family = AF_UNSPEC;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(fd_, &request, request.header.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0) {
      return std::nullopt;
    }
    std::string answer;
    std::array<char, 32768> buffer;
    for (;;) {
      const ssize_t received = ::recv(fd_, buffer.data(), buffer.size(), 0);
      if (received <= 0) return std::nullopt;
      const std::string_view chunk(buffer.data(), static_cast<std::size_t>(received));
      answer.append(chunk);
      // The dump ends with NLMSG_DONE (or an error) as the last message of a datagram.
      std::size_t offset = 0;
      bool finished = false;
      while (chunk.size() - offset >= sizeof(nlmsghdr)) {
        nlmsghdr header;
        std::memcpy(&header, chunk.data() + offset, sizeof header);
        if (header.nlmsg_len < sizeof(nlmsghdr)) return std::nullopt;
        if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) finished = true;
        offset += NLMSG_ALIGN(header.nlmsg_len);
      }
      if (finished) return answer;
    }
  }

 private:
  int fd_;
};

class NetlinkReachability final : public Reachability {
 public:
  bool hasUsableConnection() const override {
    Socket socket;
    if (!socket.valid()) return false;
    auto links = socket.dump(RTM_GETLINK, 1);
    if (!links) return false;
    auto routes = socket.dump(RTM_GETROUTE, 2);
    if (!routes) return false;
    return detail::usableConnection(detail::parseNetlinkLinks(*links), detail::parseNetlinkRoutes(*routes));
  }
};

}  // namespace

std::shared_ptr<Reachability> makeNetlinkReachability() { return std::make_shared<NetlinkReachability>(); }

}  // namespace velora
