#pragma once
// Whether the machine can reach anything beyond itself. Asked afresh on every question, so a
// changed network is seen at once; nothing is cached or monitored in the background.

#include <memory>

namespace velora {

/// Answers whether the machine has a usable network connection; Orvane::hasConnectivity asks it.
class Reachability {
 public:
  virtual ~Reachability() = default;
  /// True when a usable connection exists now. An adapter that cannot look (no permission, no
  /// kernel interface) answers false rather than throwing.
  virtual bool hasUsableConnection() const = 0;
};

/// Linux: asks the kernel over rtnetlink for its links and routes (see docs/languages.md).
std::shared_ptr<Reachability> makeNetlinkReachability();

}  // namespace velora
