#pragma once
// The decision behind the Linux reachability adapter, kept apart from the socket so that tests can
// feed it kernel answers. Input is the concatenated bytes of an RTM_GETLINK dump and an
// RTM_GETROUTE dump, each a sequence of netlink messages ending in NLMSG_DONE.

#include <string_view>
#include <vector>

namespace velora::detail {

struct NetlinkLink {
  int index = 0;
  bool up = false;  // administratively up and carrier present
  bool loopback = false;
};

struct NetlinkRoute {
  /// Interfaces the route leaves through (one, or the hops of a multipath route).
  std::vector<int> outputs;
  int family = 0;
  int destinationLength = 0;
  bool linkLocalDestination = false;  // fe80::/10: reaches only the local segment
};

/// Links of an RTM_NEWLINK dump; malformed or truncated messages end the parse.
std::vector<NetlinkLink> parseNetlinkLinks(std::string_view dump);
/// Unicast routes of the main table from an RTM_NEWROUTE dump; other tables and types are left out.
std::vector<NetlinkRoute> parseNetlinkRoutes(std::string_view dump);

/// A usable connection: some route (default or not) that is not IPv6 link-local leaves through a
/// link that is up and not loopback.
bool usableConnection(const std::vector<NetlinkLink>& links, const std::vector<NetlinkRoute>& routes);

}  // namespace velora::detail
