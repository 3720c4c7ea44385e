// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Recorder.h"

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <span>
#include <thread>
#include <vector>

#include "Tools/AudioLab/Graph.h"
#include "Tools/AudioLab/LabError.h"

namespace monitor::lab {
namespace {

constexpr std::size_t kSmallestQuantum = 32;

struct Port {};  // the library hands out storage of this type; only its address matters

}  // namespace

struct Recorder::Implementation {
  Implementation(const std::string& remote, const RecorderOptions& wanted) : graph(remote), options(wanted) {
    const GraphView view = graph.view();
    const GraphObject* sink = view.nodeNamed(options.sink);
    if (sink == nullptr) throw LabError("there is no sink \"" + options.sink + "\" to record");
    for (const auto* port : view.portsOf(sink->id)) {
      if (port->property("port.monitor") == "true") monitorPorts.push_back(*port);
    }
    if (monitorPorts.empty()) throw LabError("the sink \"" + options.sink + "\" has no monitor ports");
    std::sort(monitorPorts.begin(), monitorPorts.end(),
              [](const GraphObject& left, const GraphObject& right) {
                return left.number("port.id") < right.number("port.id");
              });
    setRoomAside();
    makeFilter();
    link(sink->id);
  }

  ~Implementation() {
    const Graph::Lock lock(graph);
    for (auto* proxy : links) pw_proxy_destroy(proxy);
    if (filter != nullptr) pw_filter_destroy(filter);
  }

  // Written once here, so that the data thread never takes a page fault.
  void setRoomAside() {
    capacity = static_cast<std::size_t>(options.seconds * 48'000.0) + 8192;
    samples.assign(monitorPorts.size(), std::vector<float>(capacity, 0.0F));
    cycles.assign(capacity / kSmallestQuantum, RecordedCycle{});
  }

  void makeFilter() {
    static const pw_filter_events events = [] {
      pw_filter_events result{};
      result.version = PW_VERSION_FILTER_EVENTS;
      result.process = [](void* data, spa_io_position* position) {
        static_cast<Implementation*>(data)->process(*position);
      };
      return result;
    }();
    const Graph::Lock lock(graph);
    // Without a media class the session manager leaves the node alone.
    filter = pw_filter_new(graph.core(), "lab-recorder",
                           pw_properties_new(PW_KEY_NODE_NAME, "lab-recorder", PW_KEY_MEDIA_TYPE, "Audio",
                                             PW_KEY_MEDIA_CATEGORY, "Filter", nullptr));
    pw_filter_add_listener(filter, &listener, &events, this);
    for (const auto& port : monitorPorts) {
      ports.push_back(
          pw_filter_add_port(filter, PW_DIRECTION_INPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(Port),
                             pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME,
                                               port.property("audio.channel").c_str(), nullptr),
                             nullptr, 0));
    }
    if (pw_filter_connect(filter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) < 0) {
      throw LabError("cannot connect the recorder");
    }
  }

  void link(std::uint32_t sink) {
    std::uint32_t node = SPA_ID_INVALID;
    const bool known = graph.waitUntil([&](const GraphView& now) {
      node = pw_filter_get_node_id(filter);
      return node != SPA_ID_INVALID && now.portsOf(node).size() == ports.size();
    });
    if (!known) throw LabError("the audio server does not take the recorder");
    const GraphView view = graph.view();
    for (const auto& from : monitorPorts) {
      for (const auto* to : view.portsOf(node)) {
        if (to->property("port.name") == from.property("audio.channel")) link(sink, from.id, node, to->id);
      }
    }
    if (links.size() != ports.size()) throw LabError("cannot link the recorder to \"" + options.sink + "\"");
  }

  void link(std::uint32_t fromNode, std::uint32_t fromPort, std::uint32_t toNode, std::uint32_t toPort) {
    const Graph::Lock lock(graph);
    auto* properties = pw_properties_new(nullptr, nullptr);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_NODE, "%u", fromNode);
    pw_properties_setf(properties, PW_KEY_LINK_OUTPUT_PORT, "%u", fromPort);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_NODE, "%u", toNode);
    pw_properties_setf(properties, PW_KEY_LINK_INPUT_PORT, "%u", toPort);
    if (options.passive) pw_properties_set(properties, PW_KEY_LINK_PASSIVE, "true");
    auto* proxy = static_cast<pw_proxy*>(pw_core_create_object(
        graph.core(), "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties->dict, 0));
    pw_properties_free(properties);
    if (proxy != nullptr) links.push_back(proxy);
  }

  // On the data thread.
  void process(const spa_io_position& position) {
    const auto count = static_cast<std::uint32_t>(position.clock.duration);
    const std::size_t first = written.load(std::memory_order_relaxed);
    const std::size_t cycle = cyclesWritten.load(std::memory_order_relaxed);
    if (first + count > capacity || cycle == cycles.size()) {
      full.store(true, std::memory_order_relaxed);
      return;
    }
    for (std::size_t channel = 0; channel < ports.size(); ++channel) {
      const auto* input = static_cast<const float*>(pw_filter_get_dsp_buffer(ports[channel], count));
      if (input != nullptr) std::memcpy(samples[channel].data() + first, input, count * sizeof(float));
    }
    cycles[cycle] = {first, count, position.clock.position, position.clock.nsec};
    rate.store(position.clock.rate.denom, std::memory_order_relaxed);
    cyclesWritten.store(cycle + 1, std::memory_order_release);
    written.store(first + count, std::memory_order_release);
  }

  Graph graph;
  RecorderOptions options;
  std::vector<GraphObject> monitorPorts;
  pw_filter* filter = nullptr;
  spa_hook listener{};
  std::vector<void*> ports;
  std::vector<pw_proxy*> links;
  std::size_t capacity = 0;
  std::vector<std::vector<float>> samples;  // filled by the data thread up to `written`, only grows
  std::vector<RecordedCycle> cycles;
  std::atomic<std::size_t> written{0}, cyclesWritten{0};
  std::atomic<unsigned> rate{48'000};
  std::atomic<bool> full{false};
};

Recorder::Recorder(const std::string& remote, RecorderOptions options)
    : implementation_(std::make_unique<Implementation>(remote, options)) {
  if (!options.passive) waitFrames(1);
}

Recorder::~Recorder() = default;

std::size_t Recorder::frames() const {
  return implementation_->written.load(std::memory_order_acquire);
}

void Recorder::waitFrames(std::size_t more, Milliseconds deadline) const {
  const std::size_t wanted = frames() + more;
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (frames() < wanted) {
    if (std::chrono::steady_clock::now() > end) {
      throw LabError("\"" + implementation_->options.sink +
                     "\" does not run: " + std::to_string(wanted - frames()) + " frames are missing");
    }
    const double seconds = static_cast<double>(wanted - frames()) / 48'000.0;
    std::this_thread::sleep_for(std::chrono::duration<double>(std::clamp(seconds, 0.002, 0.1)));
  }
}

void Recorder::waitSeconds(double seconds) const {
  const double rate = implementation_->rate.load(std::memory_order_relaxed);
  waitFrames(static_cast<std::size_t>(seconds * rate),
             Milliseconds(static_cast<long>(seconds * 1000.0) + 10'000));
}

Recording Recorder::recording(std::size_t from) const {
  if (implementation_->full) throw LabError("the recording is longer than the room set aside for it");
  Recording result;
  const std::size_t end = frames();
  const std::size_t cycleCount = implementation_->cyclesWritten.load(std::memory_order_acquire);
  from = std::min(from, end);
  result.rate = implementation_->rate.load(std::memory_order_relaxed);
  for (const auto& channel : implementation_->samples) {
    const auto begin = channel.begin();
    result.channels.emplace_back(begin + static_cast<std::ptrdiff_t>(from),
                                 begin + static_cast<std::ptrdiff_t>(end));
  }
  for (const auto& cycle : std::span(implementation_->cycles).first(cycleCount)) {
    if (cycle.firstFrame < from || cycle.firstFrame >= end) continue;
    result.cycles.push_back(cycle);
    result.cycles.back().firstFrame -= from;
  }
  return result;
}

std::uint64_t monotonicNanoseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace monitor::lab
