// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Platform/Linux/Audio/GraphModel.h"
#include "Platform/Linux/Audio/StreamCapture.h"

struct pw_core;

namespace monitor::platform {

// The links of one route: made when they are wanted, made again when the server dropped them, removed when
// they are no longer wanted or the set goes. They never outlive the connection. Loop thread only.
class LinkSet {
 public:
  using LinkPair = StreamCapture::LinkPair;

  // `changed` is called, from inside events, whenever the state of a link changed.
  LinkSet(pw_core* core, std::function<void()> changed);
  ~LinkSet();
  LinkSet(const LinkSet&) = delete;
  LinkSet& operator=(const LinkSet&) = delete;

  // Makes the set equal to `wanted`. A passive link does not keep its nodes running. Links that are to be
  // passive, or no longer so, are made anew: what goes through them is interrupted.
  void setWanted(const GraphModel& graph, const std::vector<LinkPair>& wanted, bool passive);
  [[nodiscard]] LinkState state(GlobalID outputPort, GlobalID inputPort) const;

 private:
  class Link;

  pw_core* core_;
  std::function<void()> changed_;
  std::map<LinkPair, std::unique_ptr<Link>> links_;
};

}  // namespace monitor::platform
