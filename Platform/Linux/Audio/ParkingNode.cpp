// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/ParkingNode.h"

#include <pipewire/pipewire.h>
#include <pipewire/stream.h>
#include <spa/debug/types.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/audio/type-info.h>

#include <array>
#include <utility>

#include "Platform/Linux/Audio/AudioStatus.h"

namespace monitor::platform {

namespace {

std::uint32_t channelPosition(const std::string& name) {
  for (const spa_type_info* info = spa_type_audio_channel; info->name != nullptr; ++info) {
    if (name == spa_debug_type_short_name(info->name)) return info->type;
  }
  return SPA_AUDIO_CHANNEL_UNKNOWN;
}

spa_audio_info_raw formatOf(const std::vector<std::string>& channels) {
  spa_audio_info_raw format{};
  format.format = SPA_AUDIO_FORMAT_F32P;
  format.channels = static_cast<std::uint32_t>(channels.size());
  for (std::size_t channel = 0; channel < channels.size(); ++channel) {
    format.position[channel] = channelPosition(channels[channel]);
  }
  return format;
}

}  // namespace

struct ParkingNode::Implementation {
  Implementation(std::string nodeName, std::size_t channelCount, std::function<void(std::string)> onFailure)
      : name(std::move(nodeName)), channels(channelCount), failed(std::move(onFailure)) {}
  ~Implementation() {
    if (stream == nullptr) return;
    spa_hook_remove(&listener);
    pw_stream_destroy(stream);
  }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void connect(pw_core* core, spa_audio_info_raw format) {
    // The last two keep the session manager from storing the node's volume, under a name that never comes
    // back. 0.5 looks at the first; 0.4 takes that text for true and leaves alone only nodes whose volume a
    // device keeps.
    stream = pw_stream_new(
        core, name.c_str(),
        pw_properties_new(PW_KEY_NODE_NAME, name.c_str(), PW_KEY_MEDIA_CLASS, "Audio/Input/Internal",
                          PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_NODE_AUTOCONNECT, "false", PW_KEY_NODE_VIRTUAL,
                          "true", "state.restore-props", "false", "device.routes", "1", nullptr));
    if (stream == nullptr)
      throw AudioCallError(audiostatus::kNoMemory, "The audio server's library makes no stream.");
    static const pw_stream_events events = makeEvents();
    pw_stream_add_listener(stream, &listener, &events, this);
    std::array<std::uint8_t, 1024> room{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, room.data(), static_cast<std::uint32_t>(room.size()));
    std::array<const spa_pod*, 1> params{spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format)};
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS |
                                                    PW_STREAM_FLAG_INACTIVE);
    const int result = pw_stream_connect(stream, PW_DIRECTION_INPUT, PW_ID_ANY, flags, params.data(), 1);
    if (result < 0) throw AudioCallError(result, "The parking node cannot be connected.");
  }

  static pw_stream_events makeEvents() {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
      if (state != PW_STREAM_STATE_ERROR) return;
      static_cast<Implementation*>(data)->failed(error == nullptr ? "unknown error" : error);
    };
    // Should a session manager ever run the node, what it brings is thrown away.
    events.process = [](void* data) {
      pw_stream* own = static_cast<Implementation*>(data)->stream;
      if (pw_buffer* buffer = pw_stream_dequeue_buffer(own)) pw_stream_queue_buffer(own, buffer);
    };
    return events;
  }

  std::string name;
  std::size_t channels;
  std::function<void(std::string)> failed;
  pw_stream* stream = nullptr;
  spa_hook listener{};
};

ParkingNode::ParkingNode(pw_core* core, const std::string& name, const std::vector<std::string>& channels,
                         std::function<void(std::string)> failed)
    : implementation_(std::make_unique<Implementation>(name, channels.size(), std::move(failed))) {
  implementation_->connect(core, formatOf(channels));
}

ParkingNode::~ParkingNode() = default;

const std::string& ParkingNode::name() const {
  return implementation_->name;
}

bool ParkingNode::announced(const GraphModel& graph) const {
  const auto node = graph.nodeNamed(implementation_->name);
  return node && graph.portsOf(*node, PortDirection::Input).size() >= implementation_->channels;
}

}  // namespace monitor::platform
