// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/LinkSet.h"

#include <pipewire/pipewire.h>

#include <set>
#include <string>

namespace monitor::platform {

namespace {

// A link is refused when one of its ports has just gone, or is just being set up again; more often than this
// the refusal is meant.
constexpr int kMostAttempts = 5;

}  // namespace

class LinkSet::Link {
 public:
  Link(std::function<void()>& changed, int attempt, bool passive)
      : changed_(changed), attempt_(attempt), passive_(passive) {}
  ~Link() {
    if (proxy_ == nullptr) return;
    spa_hook_remove(&proxyListener_);
    spa_hook_remove(&linkListener_);
    pw_proxy_destroy(proxy_);
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void create(pw_core* core, GlobalID outputNode, GlobalID inputNode, const LinkPair& ports) {
    pw_properties* properties = pw_properties_new(nullptr, nullptr);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_NODE, "%u", outputNode);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", ports.first);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_NODE, "%u", inputNode);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", ports.second);
    if (passive_) pw_properties_set(properties, PW_KEY_LINK_PASSIVE, "true");
    proxy_ = static_cast<pw_proxy*>(pw_core_create_object(core, "link-factory", PW_TYPE_INTERFACE_Link,
                                                          PW_VERSION_LINK, &properties->dict, 0));
    pw_properties_free(properties);
    if (proxy_ == nullptr) {
      state_ = LinkState::Failed;
      return;
    }
    static const pw_proxy_events proxyEvents = makeProxyEvents();
    static const pw_link_events linkEvents = makeLinkEvents();
    pw_proxy_add_listener(proxy_, &proxyListener_, &proxyEvents, this);
    pw_proxy_add_object_listener(proxy_, &linkListener_, &linkEvents, this);
  }

  [[nodiscard]] LinkState state() const { return state_; }
  [[nodiscard]] bool dropped() const { return dropped_; }
  [[nodiscard]] int attempt() const { return attempt_; }
  [[nodiscard]] bool passive() const { return passive_; }

 private:
  static pw_proxy_events makeProxyEvents() {
    pw_proxy_events events{};
    events.version = PW_VERSION_PROXY_EVENTS;
    events.removed = [](void* data) { static_cast<Link*>(data)->drop(); };
    events.error = [](void* data, int, int, const char*) { static_cast<Link*>(data)->drop(); };
    return events;
  }
  static pw_link_events makeLinkEvents() {
    pw_link_events events{};
    events.version = PW_VERSION_LINK_EVENTS;
    events.info = [](void* data, const pw_link_info* info) { static_cast<Link*>(data)->describe(info); };
    return events;
  }

  void describe(const pw_link_info* info) {
    if ((info->change_mask & PW_LINK_CHANGE_MASK_STATE) == 0) return;
    if (info->state >= PW_LINK_STATE_PAUSED) attempt_ = 0;
    set(info->state >= PW_LINK_STATE_PAUSED  ? LinkState::Ready
        : info->state == PW_LINK_STATE_ERROR ? LinkState::Failed
                                             : LinkState::Pending);
  }
  void drop() {
    dropped_ = true;
    set(attempt_ < kMostAttempts ? LinkState::Pending : LinkState::Failed);
    changed_();
  }
  void set(LinkState state) {
    if (state_ == state) return;
    state_ = state;
    changed_();
  }

  std::function<void()>& changed_;
  int attempt_;
  bool passive_;
  pw_proxy* proxy_ = nullptr;
  spa_hook proxyListener_{};
  spa_hook linkListener_{};
  LinkState state_ = LinkState::Pending;
  bool dropped_ = false;
};

LinkSet::LinkSet(pw_core* core, std::function<void()> changed) : core_(core), changed_(std::move(changed)) {}

LinkSet::~LinkSet() = default;

void LinkSet::setWanted(const GraphModel& graph, const std::vector<LinkPair>& wanted, bool passive) {
  const std::set<LinkPair> kept{wanted.begin(), wanted.end()};
  std::erase_if(links_, [&](const auto& entry) {
    return !kept.contains(entry.first) || entry.second->passive() != passive;
  });
  for (const LinkPair& pair : kept) {
    int attempt = 0;
    if (const auto existing = links_.find(pair); existing != links_.end()) {
      if (!existing->second->dropped() || existing->second->state() == LinkState::Failed) continue;
      attempt = existing->second->attempt() + 1;
      links_.erase(existing);
    }
    const auto* output = graph.port(pair.first);
    const auto* input = graph.port(pair.second);
    if (output == nullptr || input == nullptr) continue;
    auto link = std::make_unique<Link>(changed_, attempt, passive);
    link->create(core_, output->node, input->node, pair);
    links_.emplace(pair, std::move(link));
  }
}

LinkState LinkSet::state(GlobalID outputPort, GlobalID inputPort) const {
  const auto link = links_.find({outputPort, inputPort});
  return link == links_.end() ? LinkState::Missing : link->second->state();
}

}  // namespace monitor::platform
