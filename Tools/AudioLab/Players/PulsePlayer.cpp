// SPDX-License-Identifier: MIT
// A PulseAudio client that plays the counter signal on any number of streams. It reports "ready PID", then
// "state INDEX STATE" for every change of a stream (the states are named as the native player's) and "error
// INDEX TEXT".
#include <pulse/pulseaudio.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tools/AudioLab/Players/PlayerOptions.h"

namespace monitor::lab {
namespace {

void forget(pa_operation* operation) {
  if (operation != nullptr) pa_operation_unref(operation);
}

pa_proplist* makeProperties(const PlayerOptions& options) {
  pa_proplist* properties = pa_proplist_new();
  pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, options.name.c_str());
  pa_proplist_sets(properties, PA_PROP_MEDIA_ROLE, "music");
  for (const auto& text : options.properties) {
    const auto [key, value] = splitProperty(text);
    pa_proplist_sets(properties, key.c_str(), value.c_str());
  }
  return properties;
}

class Stream {
 public:
  Stream(pa_context* context, const PlayerOptions& options, std::size_t index)
      : options_(options), index_(index) {
    pa_sample_spec format{};
    format.format = PA_SAMPLE_FLOAT32NE;
    format.rate = options.rate;
    format.channels = static_cast<std::uint8_t>(options.channels);
    pa_proplist* properties = makeProperties(options);
    stream_ = pa_stream_new_with_proplist(context, options.name.c_str(), &format, nullptr, properties);
    pa_proplist_free(properties);
    if (stream_ == nullptr) {
      report("error " + std::to_string(index) + " " + pa_strerror(pa_context_errno(context)));
      return;
    }
    pa_stream_set_state_callback(
        stream_, [](pa_stream*, void* data) { static_cast<Stream*>(data)->stateChanged(); }, this);
    pa_stream_set_write_callback(
        stream_, [](pa_stream*, std::size_t bytes, void* data) { static_cast<Stream*>(data)->write(bytes); },
        this);
    connect();
  }
  ~Stream() {
    if (stream_ == nullptr) return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_write_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  void setCorked(bool corked) {
    if (stream_ == nullptr) return;
    corked_ = corked;
    forget(pa_stream_cork(
        stream_, corked ? 1 : 0,
        [](pa_stream*, int, void* data) {
          auto* self = static_cast<Stream*>(data);
          self->reportState(self->corked_ ? "paused" : "streaming");
        },
        this));
  }

 private:
  void connect() {
    const auto latency = static_cast<std::uint32_t>(options_.latency * options_.channels * sizeof(float));
    pa_buffer_attr attributes{};
    attributes.maxlength = attributes.prebuf = attributes.fragsize = static_cast<std::uint32_t>(-1);
    // A tenth of a second in store: a player that is woken late on a loaded machine would add gaps of its own
    // to a measurement. Early requests keep the period at `latency` all the same.
    attributes.tlength = std::max(4 * latency, latency / options_.latency * options_.rate / 10);
    attributes.minreq = latency;
    int flags = PA_STREAM_EARLY_REQUESTS;
    if (options_.dontMove) flags |= PA_STREAM_DONT_MOVE;
    pa_stream_connect_playback(stream_, options_.target.empty() ? nullptr : options_.target.c_str(),
                               &attributes, static_cast<pa_stream_flags_t>(flags), nullptr, nullptr);
  }

  void write(std::size_t bytes) {
    const std::size_t stride = options_.channels * sizeof(float);
    std::vector<float> samples(bytes / stride * options_.channels);
    fillCounter(samples.data(), bytes / stride, options_, next_);
    pa_stream_write(stream_, samples.data(), samples.size() * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE);
  }

  void reportState(const std::string& state) const {
    report("state " + std::to_string(index_) + " " + state);
  }

  void stateChanged() const {
    switch (pa_stream_get_state(stream_)) {
      case PA_STREAM_READY:
        return reportState("streaming");
      case PA_STREAM_TERMINATED:
        return reportState("unconnected");
      case PA_STREAM_FAILED:
        return report("error " + std::to_string(index_) + " " +
                      pa_strerror(pa_context_errno(pa_stream_get_context(stream_))));
      default:
        return;
    }
  }

  const PlayerOptions& options_;
  const std::size_t index_;
  pa_stream* stream_ = nullptr;
  std::uint64_t next_ = 0;
  bool corked_ = false;
};

class Player {
 public:
  explicit Player(PlayerOptions options) : options_(std::move(options)), loop_(pa_mainloop_new()) {
    pa_mainloop_api* api = pa_mainloop_get_api(loop_);
    pa_proplist* properties = makeProperties(options_);
    context_ = pa_context_new_with_proplist(api, options_.name.c_str(), properties);
    pa_proplist_free(properties);
    pa_signal_init(api);
    for (const int number : {SIGINT, SIGTERM}) {
      pa_signal_new(
          number, [](pa_mainloop_api* from, pa_signal_event*, int, void*) { from->quit(from, 0); }, nullptr);
    }
    api->io_new(
        api, STDIN_FILENO, PA_IO_EVENT_INPUT,
        [](pa_mainloop_api*, pa_io_event*, int, pa_io_event_flags_t, void* data) {
          static_cast<Player*>(data)->readCommands();
        },
        this);
    pa_context_set_state_callback(
        context_, [](pa_context*, void* data) { static_cast<Player*>(data)->stateChanged(); }, this);
  }
  ~Player() {
    streams_.clear();
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    pa_signal_done();
    pa_mainloop_free(loop_);
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  int run() {
    int result = 1;
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
      stateChanged();
      return result;
    }
    pa_mainloop_run(loop_, &result);
    return result;
  }

 private:
  void quit(int status) { pa_mainloop_quit(loop_, status); }

  void stateChanged() {
    switch (pa_context_get_state(context_)) {
      case PA_CONTEXT_READY:
        for (unsigned i = 0; i < options_.streams; ++i) open();
        return report("ready " + std::to_string(::getpid()));
      case PA_CONTEXT_FAILED:
        std::fprintf(stderr, "vesk-lab-pulse-player: %s\n", pa_strerror(pa_context_errno(context_)));
        return quit(1);
      case PA_CONTEXT_TERMINATED:
        return quit(0);
      default:
        return;
    }
  }

  void open() { streams_.push_back(std::make_unique<Stream>(context_, options_, opened_++)); }

  void readCommands() {
    if (!commands_.read(STDIN_FILENO)) return quit(0);
    for (std::string line; commands_.next(line);) obey(line);
  }

  void obey(const std::string& command) {
    if (command == "open") {
      open();
    } else if (command == "close") {
      if (!streams_.empty()) streams_.pop_back();
    } else if (command == "pause" || command == "resume") {
      for (const auto& stream : streams_) stream->setCorked(command == "pause");
    } else if (command == "quit") {
      quit(0);
    } else {
      report("error - unknown command \"" + command + "\"");
    }
    report("obeyed " + command);
  }

  PlayerOptions options_;
  pa_mainloop* loop_;
  pa_context* context_ = nullptr;
  CommandReader commands_;
  std::vector<std::unique_ptr<Stream>> streams_;
  std::size_t opened_ = 0;
};

}  // namespace
}  // namespace monitor::lab

int main(int argc, char** argv) {
  auto options =
      monitor::lab::parsePlayerOptions(argc, argv, "Plays the laboratory's counter signal by PulseAudio.");
  return monitor::lab::Player(std::move(options)).run();
}
