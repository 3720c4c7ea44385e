// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/RouteFilter.h"

#include <fmt/format.h>
#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <cerrno>
#include <map>
#include <utility>

#include "Platform/Linux/Audio/AudioStatus.h"

namespace monitor::platform {

namespace {

struct PortData {};  // only its address is used

std::string outputName(std::size_t channel) {
  return fmt::format("output_{}", channel);
}
std::string slotName(std::size_t slot, std::size_t channel) {
  return fmt::format("input_{}_{}", slot, channel);
}

void* bufferOf(void* port, std::uint32_t frames) {
  return port == nullptr ? nullptr : pw_filter_get_dsp_buffer(port, frames);
}

}  // namespace

struct RouteFilter::Implementation {
  Implementation(const Setup& wanted, std::function<void(std::string)> onFailure)
      : setup(wanted), failed(std::move(onFailure)), mixer(setup.channels.size(), &bufferOf) {}
  ~Implementation() {
    if (filter == nullptr) return;
    spa_hook_remove(&listener);
    pw_filter_destroy(filter);
  }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void connect(pw_core* core) {
    filter = pw_filter_new(core, setup.name.c_str(),
                           pw_properties_new(PW_KEY_NODE_NAME, setup.name.c_str(), PW_KEY_NODE_DESCRIPTION,
                                             setup.description.c_str(), PW_KEY_MEDIA_TYPE, "Audio",
                                             PW_KEY_MEDIA_CATEGORY, "Filter", nullptr));
    if (filter == nullptr) throw failure("The audio server's library makes no filter.", errno);
    static const pw_filter_events events = makeEvents();
    pw_filter_add_listener(filter, &listener, &events, this);
    for (std::size_t channel = 0; channel < setup.channels.size(); ++channel) {
      void* port = addPort(PW_DIRECTION_OUTPUT, outputName(channel), setup.channels[channel]);
      if (port == nullptr) throw failure("The filter takes no output port.", errno);
      mixer.setOutput(channel, port);
    }
    if (!growSlots(setup.slots)) throw failure("The filter takes no input port.", errno);
    const int result = pw_filter_connect(filter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0);
    if (result < 0) throw failure("The filter cannot be connected.", -result);
  }

  static pw_filter_events makeEvents() {
    pw_filter_events events{};
    events.version = PW_VERSION_FILTER_EVENTS;
    events.process = [](void* data, spa_io_position* position) {
      if (position == nullptr) return;
      static_cast<Implementation*>(data)->mixer.cycle(static_cast<std::uint32_t>(position->clock.duration));
    };
    events.state_changed = [](void* data, pw_filter_state, pw_filter_state state, const char* error) {
      if (state != PW_FILTER_STATE_ERROR) return;
      static_cast<Implementation*>(data)->failed(error == nullptr ? "unknown error" : error);
    };
    return events;
  }

  static AudioCallError failure(const char* what, int code) {
    return {code > 0 ? -code : audiostatus::kNoMemory, what};
  }

  void* addPort(pw_direction direction, const std::string& name, const std::string& channel) {
    pw_properties* properties = pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio",
                                                  PW_KEY_PORT_NAME, name.c_str(), nullptr);
    if (!channel.empty()) pw_properties_set(properties, PW_KEY_AUDIO_CHANNEL, channel.c_str());
    return pw_filter_add_port(filter, direction, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(PortData),
                              properties, nullptr, 0);
  }

  bool growSlots(std::size_t count) {
    if (count > RouteMixer::kMostSlots) return false;
    while (mixer.slotCount() < count) {
      std::vector<RouteMixer::Port> ports;
      for (std::size_t channel = 0; channel < setup.channels.size(); ++channel) {
        ports.push_back(
            addPort(PW_DIRECTION_INPUT, slotName(mixer.slotCount(), channel), setup.channels[channel]));
        if (ports.back() == nullptr) return false;
      }
      mixer.addSlot(std::move(ports));
    }
    return true;
  }

  [[nodiscard]] std::optional<GlobalID> node() const {
    const std::uint32_t id = pw_filter_get_node_id(filter);
    return id == SPA_ID_INVALID ? std::nullopt : std::optional<GlobalID>{id};
  }

  // The ports live as long as the node, so each is looked for by its name only once.
  std::optional<GlobalID> port(const GraphModel& graph, const std::string& name) {
    const auto own = node();
    const auto* announcedNode = own ? graph.node(*own) : nullptr;
    if (announcedNode == nullptr) return std::nullopt;
    if (const auto known = ports.find(name); known != ports.end()) return known->second;
    for (const GlobalID id : announcedNode->ports) {
      const auto* candidate = graph.port(id);
      if (candidate != nullptr) ports.insert_or_assign(candidate->name, id);
    }
    const auto found = ports.find(name);
    return found == ports.end() ? std::nullopt : std::optional{found->second};
  }

  Setup setup;
  std::function<void(std::string)> failed;
  RouteMixer mixer;
  pw_filter* filter = nullptr;
  spa_hook listener{};
  std::map<std::string, GlobalID> ports;  // by name
};

RouteFilter::RouteFilter(pw_core* core, const Setup& setup, std::function<void(std::string)> failed)
    : implementation_(std::make_unique<Implementation>(setup, std::move(failed))) {
  implementation_->connect(core);
}

RouteFilter::~RouteFilter() = default;

RouteMixer& RouteFilter::mixer() {
  return implementation_->mixer;
}

bool RouteFilter::growSlots(std::size_t count) {
  return implementation_->growSlots(count);
}

std::optional<GlobalID> RouteFilter::node() const {
  return implementation_->node();
}

bool RouteFilter::announced(const GraphModel& graph) const {
  const auto own = node();
  const auto* announcedNode = own ? graph.node(*own) : nullptr;
  const std::size_t channels = implementation_->setup.channels.size();
  return announcedNode != nullptr &&
         announcedNode->ports.size() >= channels * (1 + implementation_->mixer.slotCount());
}

std::optional<GlobalID> RouteFilter::outputPort(const GraphModel& graph, std::size_t channel) const {
  return implementation_->port(graph, outputName(channel));
}

std::optional<GlobalID> RouteFilter::slotPort(const GraphModel& graph, std::size_t slot,
                                              std::size_t channel) const {
  return implementation_->port(graph, slotName(slot, channel));
}

}  // namespace monitor::platform
