// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/HardwareSink.h"

#include <fmt/ranges.h>
#include <pipewire/pipewire.h>
#include <spa/debug/types.h>
#include <spa/param/audio/format-utils.h>
#include <spa/param/audio/type-info.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>

#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/LabError.h"

namespace monitor::lab {
namespace {

std::uint32_t positionNumber(const std::string& name) {
  for (const spa_type_info* info = spa_type_audio_channel; info->name != nullptr; ++info) {
    if (name == spa_debug_type_short_name(info->name)) return info->type;
  }
  throw LabError("there is no channel position \"" + name + "\"");
}

}  // namespace

struct HardwareSink::Implementation {
  Implementation(const std::string& remote, const HardwareSinkOptions& wanted)
      : graph(remote), options(wanted) {
    samples.assign(static_cast<std::size_t>(options.seconds * options.rate) * options.positions.size(), 0);
    connect();
    const std::size_t ports = 2 * options.positions.size();  // playback and monitor
    const bool ready = graph.waitUntil([&](const GraphView& now) {
      const GraphObject* node = now.nodeNamed(options.name);
      if (node == nullptr || now.portsOf(node->id).size() < ports) return false;
      return now.defaultSink() == options.name || !outranksAll(now);
    });
    if (!ready) throw LabError("the sink " + options.name + " does not come up");
  }

  ~Implementation() {
    const Graph::Lock lock(graph);
    if (stream != nullptr) pw_stream_destroy(stream);
  }

  [[nodiscard]] bool outranksAll(const GraphView& now) const {
    for (const auto* sink : now.nodesOfClass("Audio/Sink")) {
      if (sink->property("node.name") == options.name) continue;
      if (std::atoi(sink->property("priority.session").c_str()) >= options.priority) return false;
    }
    return true;
  }

  void connect() {
    static const pw_stream_events events = [] {
      pw_stream_events result{};
      result.version = PW_VERSION_STREAM_EVENTS;
      result.process = [](void* data) { static_cast<Implementation*>(data)->process(); };
      return result;
    }();
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_S16;
    format.rate = options.rate;
    format.channels = static_cast<std::uint32_t>(options.positions.size());
    for (std::size_t i = 0; i < options.positions.size(); ++i)
      format.position[i] = positionNumber(options.positions[i]);
    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    const spa_pod* parameters[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format)};
    const auto priority = std::to_string(options.priority);
    const Graph::Lock lock(graph);
    auto* properties =
        pw_properties_new(PW_KEY_MEDIA_CLASS, "Audio/Sink", PW_KEY_NODE_NAME, options.name.c_str(),
                          PW_KEY_NODE_DESCRIPTION, options.name.c_str(), PW_KEY_NODE_VIRTUAL, "false",
                          PW_KEY_PRIORITY_SESSION, priority.c_str(), nullptr);
    stream = pw_stream_new(graph.core(), options.name.c_str(), properties);
    pw_stream_add_listener(stream, &listener, &events, this);
    constexpr int kFlags = PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS;
    if (pw_stream_connect(stream, PW_DIRECTION_INPUT, PW_ID_ANY, static_cast<pw_stream_flags>(kFlags),
                          parameters, 1) < 0) {
      throw LabError("cannot make the sink " + options.name);
    }
  }

  // On the data thread.
  void process() {
    pw_buffer* buffer = pw_stream_dequeue_buffer(stream);
    if (buffer == nullptr) return;
    const spa_data& data = buffer->buffer->datas[0];
    const std::size_t offset = std::min(data.chunk->offset, data.maxsize);
    const std::size_t bytes = std::min<std::size_t>(data.chunk->size, data.maxsize - offset);
    const std::size_t first = written.load(std::memory_order_relaxed);
    const std::size_t count = std::min(bytes / sizeof(std::int16_t), samples.size() - first);
    if (data.data != nullptr && count > 0) {
      std::memcpy(samples.data() + first, static_cast<const std::uint8_t*>(data.data) + offset,
                  count * sizeof(std::int16_t));
    }
    if (count < bytes / sizeof(std::int16_t)) full.store(true, std::memory_order_relaxed);
    written.store(first + count, std::memory_order_release);
    pw_stream_queue_buffer(stream, buffer);
  }

  Graph graph;
  HardwareSinkOptions options;
  pw_stream* stream = nullptr;
  spa_hook listener{};
  std::vector<std::int16_t> samples;  // interleaved; filled by the data thread up to `written`
  std::atomic<std::size_t> written{0};
  std::atomic<bool> full{false};
};

HardwareSink::HardwareSink(const std::string& remote, HardwareSinkOptions options)
    : implementation_(std::make_unique<Implementation>(remote, options)) {}

HardwareSink::~HardwareSink() = default;

std::size_t HardwareSink::frames() const {
  return implementation_->written.load(std::memory_order_acquire) / implementation_->options.positions.size();
}

void HardwareSink::waitFrames(std::size_t more, Milliseconds deadline) const {
  const std::size_t wanted = frames() + more;
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (frames() < wanted) {
    if (std::chrono::steady_clock::now() > end) {
      throw LabError("the sink " + implementation_->options.name + " is given nothing to play");
    }
    std::this_thread::sleep_for(Milliseconds(5));
  }
}

Recording HardwareSink::recording(std::size_t from) const {
  if (implementation_->full) throw LabError("the recording is longer than the room set aside for it");
  const std::size_t channels = implementation_->options.positions.size();
  const std::size_t end = frames();
  Recording result;
  result.rate = implementation_->options.rate;
  result.channels.resize(channels);
  for (std::size_t frame = from; frame < end; ++frame) {
    for (std::size_t channel = 0; channel < channels; ++channel) {
      const float sample = implementation_->samples[frame * channels + channel];
      result.channels[channel].push_back(sample / 32768.0F);
    }
  }
  return result;
}

}  // namespace monitor::lab
