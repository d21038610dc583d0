// The netlink decision behind hasConnectivity, fed with constructed kernel answers, and the real
// adapter on this machine.

#include <gtest/gtest.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstring>
#include <string>
#include <vector>

#include <velora/core/Orvane.hpp>

#include "Fakes.hpp"
#include "platform/Netlink.hpp"

namespace velora {
namespace {

/// Appends one netlink message of `type` with a fixed header and attributes, padded as the
/// kernel pads them.
template <class Fixed>
void appendMessage(std::string& dump, unsigned short type, const Fixed& fixed,
                   const std::vector<std::pair<unsigned short, std::string>>& attributes = {}) {
  std::string body(NLMSG_ALIGN(sizeof fixed), '\0');
  std::memcpy(body.data(), &fixed, sizeof fixed);
  for (const auto& [kind, value] : attributes) {
    rtattr attribute{static_cast<unsigned short>(RTA_LENGTH(value.size())), kind};
    std::string encoded(RTA_SPACE(value.size()), '\0');
    std::memcpy(encoded.data(), &attribute, sizeof attribute);
    std::memcpy(encoded.data() + RTA_LENGTH(0), value.data(), value.size());
    body += encoded;
  }
  nlmsghdr header{};
  header.nlmsg_len = static_cast<unsigned>(NLMSG_HDRLEN + body.size());
  header.nlmsg_type = type;
  header.nlmsg_flags = NLM_F_MULTI;
  std::string message(NLMSG_HDRLEN, '\0');
  std::memcpy(message.data(), &header, sizeof header);
  dump += message + body;
}

void appendDone(std::string& dump) {
  nlmsghdr header{};
  header.nlmsg_len = NLMSG_LENGTH(sizeof(int));
  header.nlmsg_type = NLMSG_DONE;
  std::string message(NLMSG_SPACE(sizeof(int)), '\0');
  std::memcpy(message.data(), &header, sizeof header);
  dump += message;
}

std::string intValue(int number) { return std::string(reinterpret_cast<const char*>(&number), sizeof number); }

struct Link {
  int index;
  unsigned flags;
};

std::string linkDump(const std::vector<Link>& links) {
  std::string dump;
  for (const auto& link : links) {
    ifinfomsg info{};
    info.ifi_index = link.index;
    info.ifi_flags = link.flags;
    appendMessage(dump, RTM_NEWLINK, info, {{IFLA_IFNAME, std::string("if\0", 3)}});
  }
  appendDone(dump);
  return dump;
}

struct Route {
  int family;
  int destinationLength;
  std::string destination;  // raw address bytes; empty for none
  int output;
  unsigned char table = RT_TABLE_MAIN;
  unsigned char type = RTN_UNICAST;
};

std::string routeDump(const std::vector<Route>& routes) {
  std::string dump;
  for (const auto& route : routes) {
    rtmsg message{};
    message.rtm_family = static_cast<unsigned char>(route.family);
    message.rtm_dst_len = static_cast<unsigned char>(route.destinationLength);
    message.rtm_table = route.table;
    message.rtm_type = route.type;
    std::vector<std::pair<unsigned short, std::string>> attributes{{RTA_TABLE, intValue(route.table)},
                                                                     {RTA_OIF, intValue(route.output)}};
    if (!route.destination.empty()) attributes.push_back({RTA_DST, route.destination});
    appendMessage(dump, RTM_NEWROUTE, message, attributes);
  }
  appendDone(dump);
  return dump;
}

constexpr unsigned kUp = IFF_UP | IFF_RUNNING;
const Link kLoopback{1, kUp | IFF_LOOPBACK};
const std::string kLan4("\xc0\xa8\x01\x00", 4);  // 192.168.1.0
const std::string kLinkLocal6("\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);

TEST(Reachability, NetlinkAnswersDecideConnectivity) {
  const struct {
    const char* name;
    std::vector<Link> links;
    std::vector<Route> routes;
    bool usable;
  } cases[] = {
      {"no links", {}, {}, false},
      {"only loopback up", {kLoopback}, {{AF_INET, 8, "\x7f\0\0\0", 1, RT_TABLE_LOCAL, RTN_LOCAL}}, false},
      {"loopback route in the main table", {kLoopback}, {{AF_INET, 0, "", 1}}, false},
      {"a link up with a default route", {kLoopback, {2, kUp}}, {{AF_INET, 0, "", 2}}, true},
      {"a link up with a subnet route", {kLoopback, {2, kUp}}, {{AF_INET, 24, kLan4, 2}}, true},
      {"a link down with a route", {kLoopback, {2, IFF_UP}}, {{AF_INET, 0, "", 2}}, false},
      {"a link disabled with a route", {kLoopback, {2, IFF_RUNNING}}, {{AF_INET, 0, "", 2}}, false},
      {"a link up with no route", {kLoopback, {2, kUp}}, {}, false},
      {"a route through a link the kernel did not list", {kLoopback, {2, kUp}}, {{AF_INET, 0, "", 3}}, false},
      {"only IPv6 link-local", {kLoopback, {2, kUp}}, {{AF_INET6, 64, kLinkLocal6, 2}}, false},
      {"IPv6 default route", {kLoopback, {2, kUp}}, {{AF_INET6, 0, "", 2}}, true},
      {"default route in another table", {kLoopback, {2, kUp}}, {{AF_INET, 0, "", 2, 100}}, false},
      {"unreachable default route", {kLoopback, {2, kUp}}, {{AF_INET, 0, "", 2, RT_TABLE_MAIN, RTN_UNREACHABLE}}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto links = detail::parseNetlinkLinks(linkDump(c.links));
    ASSERT_EQ(links.size(), c.links.size());
    EXPECT_EQ(detail::usableConnection(links, detail::parseNetlinkRoutes(routeDump(c.routes))), c.usable);
  }
}

TEST(Reachability, MultipathRoutesCountEveryHop) {
  rtmsg message{};
  message.rtm_family = AF_INET;
  message.rtm_table = RT_TABLE_MAIN;
  message.rtm_type = RTN_UNICAST;
  std::string hops;
  for (int index : {3, 2}) {
    rtnexthop hop{};
    hop.rtnh_len = sizeof hop;
    hop.rtnh_ifindex = index;
    hops.append(reinterpret_cast<const char*>(&hop), sizeof hop);
  }
  std::string dump;
  appendMessage(dump, RTM_NEWROUTE, message, {{RTA_MULTIPATH, hops}});
  appendDone(dump);
  const auto routes = detail::parseNetlinkRoutes(dump);
  ASSERT_EQ(routes.size(), 1u);
  EXPECT_EQ(routes[0].outputs, (std::vector<int>{3, 2}));
  EXPECT_TRUE(detail::usableConnection(detail::parseNetlinkLinks(linkDump({kLoopback, {2, kUp}})), routes));
  EXPECT_FALSE(detail::usableConnection(detail::parseNetlinkLinks(linkDump({kLoopback, {2, IFF_UP}})), routes));
}

TEST(Reachability, TruncatedAnswersKeepOnlyWholeMessages) {
  const std::string links = linkDump({kLoopback, {2, kUp}});
  // Cut inside the second message: the first still counts, the broken one is dropped.
  const std::size_t firstLength = NLMSG_ALIGN(reinterpret_cast<const nlmsghdr*>(links.data())->nlmsg_len);
  for (std::size_t cut : {std::size_t{0}, std::size_t{7}, firstLength, firstLength + 20}) {
    SCOPED_TRACE(cut);
    const auto parsed = detail::parseNetlinkLinks(std::string_view(links).substr(0, cut));
    EXPECT_EQ(parsed.size(), cut >= firstLength ? 1u : 0u);
  }
  // A length that claims more than was received ends the parse instead of reading past it.
  std::string lying = links;
  auto* header = reinterpret_cast<nlmsghdr*>(lying.data());
  header->nlmsg_len = static_cast<unsigned>(lying.size() + 100);
  EXPECT_TRUE(detail::parseNetlinkLinks(lying).empty());
}

class FixedReachability : public Reachability {
 public:
  explicit FixedReachability(bool answer, bool fails = false) : answer_(answer), fails_(fails) {}
  bool hasUsableConnection() const override {
    ++asked;
    if (fails_) throw std::runtime_error("no kernel");
    return answer_;
  }
  mutable int asked = 0;

 private:
  bool answer_, fails_;
};

TEST(Reachability, FacadeAsksAfreshAndTreatsAFailingOrMissingMonitorAsOffline) {
  const struct {
    const char* name;
    std::shared_ptr<FixedReachability> reachability;
    bool expected;
  } cases[] = {
      {"none", nullptr, false},
      {"online", std::make_shared<FixedReachability>(true), true},
      {"offline", std::make_shared<FixedReachability>(false), false},
      {"throws", std::make_shared<FixedReachability>(true, true), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::FakePlatform fakes;
    fakes.reachability = c.reachability;
    auto facade = testing::makeTestFacade(fakes, EnvironmentModel("http://platform.test", 30), false);
    EXPECT_EQ(facade->hasConnectivity(), c.expected);
    EXPECT_EQ(facade->hasConnectivity(), c.expected);
    if (c.reachability) {
      EXPECT_EQ(c.reachability->asked, 2);
    }
  }
}

TEST(Reachability, RealNetlinkAdapterAnswersConsistently) {
  auto reachability = makeNetlinkReachability();
  bool first = false, second = true;
  ASSERT_NO_THROW(first = reachability->hasUsableConnection());
  ASSERT_NO_THROW(second = reachability->hasUsableConnection());
  EXPECT_EQ(first, second);
}

}  // namespace
}  // namespace velora
