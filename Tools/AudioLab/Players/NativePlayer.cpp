// SPDX-License-Identifier: MIT
// A PipeWire client that plays the counter signal on any number of streams. It reports "ready PID", then
// "state INDEX STATE" for every change of a stream, "error INDEX TEXT", and "obeyed COMMAND".
#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tools/AudioLab/Players/PlayerOptions.h"

namespace monitor::lab {
namespace {

class Stream {
 public:
  Stream(pw_core* core, const PlayerOptions& options, std::size_t index) : options_(options), index_(index) {
    stream_ = pw_stream_new(core, options.name.c_str(), makeProperties());
    static const pw_stream_events events = [] {
      pw_stream_events result{};
      result.version = PW_VERSION_STREAM_EVENTS;
      result.process = [](void* data) { static_cast<Stream*>(data)->process(); };
      result.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
        static_cast<Stream*>(data)->stateChanged(state, error);
      };
      return result;
    }();
    pw_stream_add_listener(stream_, &listener_, &events, this);
    connect();
  }
  ~Stream() { pw_stream_destroy(stream_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  void setActive(bool active) { pw_stream_set_active(stream_, active); }
  [[nodiscard]] std::size_t index() const { return index_; }

 private:
  pw_properties* makeProperties() const {
    auto* properties = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback",
                                         PW_KEY_MEDIA_ROLE, "Music", PW_KEY_NODE_NAME, options_.name.c_str(),
                                         PW_KEY_APP_NAME, options_.name.c_str(), nullptr);
    pw_properties_setf(properties, PW_KEY_NODE_LATENCY, "%u/%u", options_.latency, options_.rate);
    if (!options_.target.empty()) pw_properties_set(properties, "target.object", options_.target.c_str());
    if (options_.dontMove) pw_properties_set(properties, "node.dont-move", "true");
    for (const auto& text : options_.properties) {
      const auto [key, value] = splitProperty(text);
      pw_properties_set(properties, key.c_str(), value.c_str());
    }
    return properties;
  }

  const spa_pod* pcmFormat(spa_pod_builder& builder) const {
    static constexpr std::array<std::uint32_t, 8> kPositions = {
        SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC, SPA_AUDIO_CHANNEL_LFE,
        SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR, SPA_AUDIO_CHANNEL_SL, SPA_AUDIO_CHANNEL_SR};
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.channels = options_.channels;
    format.rate = options_.rate;
    std::copy_n(kPositions.begin(), options_.channels, format.position);
    if (options_.channels == 1) format.position[0] = SPA_AUDIO_CHANNEL_MONO;
    return spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
  }

  // What a film player hands to a receiver that decodes by itself.
  const spa_pod* encodedFormat(spa_pod_builder& builder) const {
    spa_audio_info_iec958 format{};
    format.codec = SPA_AUDIO_IEC958_CODEC_AC3;
    format.rate = options_.rate;
    return spa_format_audio_iec958_build(&builder, SPA_PARAM_EnumFormat, &format);
  }

  void connect() {
    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    const spa_pod* parameters[] = {index_ < options_.pcmStreams ? pcmFormat(builder)
                                                                : encodedFormat(builder)};
    auto flags = PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS;
    if (options_.dontReconnect) flags = flags | PW_STREAM_FLAG_DONT_RECONNECT;
    pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, static_cast<pw_stream_flags>(flags),
                      parameters, 1);
  }

  void process() {
    pw_buffer* buffer = pw_stream_dequeue_buffer(stream_);
    if (buffer == nullptr) return;
    spa_data& data = buffer->buffer->datas[0];
    const auto stride = static_cast<std::uint32_t>(sizeof(float)) * options_.channels;
    std::uint64_t frames = data.maxsize / stride;
    if (buffer->requested > 0) frames = std::min(frames, buffer->requested);
    fillCounter(static_cast<float*>(data.data), frames, options_, next_);
    data.chunk->offset = 0;
    data.chunk->stride = static_cast<std::int32_t>(stride);
    data.chunk->size = static_cast<std::uint32_t>(frames) * stride;
    pw_stream_queue_buffer(stream_, buffer);
  }

  void stateChanged(pw_stream_state state, const char* error) const {
    report("state " + std::to_string(index_) + " " + pw_stream_state_as_string(state));
    if (error != nullptr) report("error " + std::to_string(index_) + " " + error);
  }

  const PlayerOptions& options_;
  const std::size_t index_;
  pw_stream* stream_ = nullptr;
  spa_hook listener_{};
  std::uint64_t next_ = 0;  // data thread only
};

class Player {
 public:
  explicit Player(PlayerOptions options) : options_(std::move(options)), loop_(pw_main_loop_new(nullptr)) {
    // Signals are taken by the loop before the context exists, since its data thread inherits the blocked
    // mask.
    for (const int number : {SIGINT, SIGTERM}) {
      pw_loop_add_signal(
          loop(), number, [](void* data, int) { pw_main_loop_quit(static_cast<Player*>(data)->loop_); },
          this);
    }
    context_ = pw_context_new(loop(), pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
    retry_ = pw_loop_add_timer(
        loop(), [](void* data, std::uint64_t) { static_cast<Player*>(data)->connectAgain(); }, this);
    connect();
  }
  ~Player() {
    disconnect();
    pw_loop_destroy_source(loop(), retry_);
    pw_context_destroy(context_);
    pw_main_loop_destroy(loop_);
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  int run() {
    if (core_ == nullptr) {
      std::perror("vesk-lab-player: cannot connect to PipeWire");
      return 1;
    }
    for (unsigned i = 0; i < options_.streams; ++i) open();
    pw_loop_add_io(
        loop(), STDIN_FILENO, SPA_IO_IN | SPA_IO_HUP, false,
        [](void* data, int, std::uint32_t) { static_cast<Player*>(data)->readCommands(); }, this);
    report("ready " + std::to_string(::getpid()));
    pw_main_loop_run(loop_);
    return 0;
  }

 private:
  [[nodiscard]] pw_loop* loop() const { return pw_main_loop_get_loop(loop_); }

  pw_properties* clientProperties() const {
    auto* properties = pw_properties_new(PW_KEY_APP_NAME, options_.name.c_str(), nullptr);
    for (const auto& text : options_.properties) {
      const auto [key, value] = splitProperty(text);
      pw_properties_set(properties, key.c_str(), value.c_str());
    }
    return properties;
  }

  void connect() {
    static const pw_core_events events = [] {
      pw_core_events result{};
      result.version = PW_VERSION_CORE_EVENTS;
      result.error = [](void* data, std::uint32_t id, int, int code, const char*) {
        if (id == PW_ID_CORE && code == -EPIPE) static_cast<Player*>(data)->lost();
      };
      return result;
    }();
    core_ = pw_context_connect(context_, clientProperties(), 0);
    if (core_ != nullptr) pw_core_add_listener(core_, &listener_, &events, this);
  }

  void disconnect() {
    streams_.clear();
    if (core_ == nullptr) return;
    spa_hook_remove(&listener_);
    pw_core_disconnect(std::exchange(core_, nullptr));
  }

  void lost() {
    if (!options_.reconnect) {
      pw_main_loop_quit(loop_);
      return;
    }
    if (lost_.empty()) {
      for (const auto& stream : streams_) lost_.push_back(stream->index());
    }
    retrySoon();  // not from here: the connection may not end inside its own event
  }

  void retrySoon() {
    timespec delay{0, 50'000'000};
    pw_loop_update_timer(loop(), retry_, &delay, nullptr, false);
  }

  void connectAgain() {
    disconnect();
    connect();
    if (core_ == nullptr) {
      retrySoon();
      return;
    }
    for (const std::size_t index : std::exchange(lost_, {})) {
      streams_.push_back(std::make_unique<Stream>(core_, options_, index));
    }
  }

  void open() { streams_.push_back(std::make_unique<Stream>(core_, options_, opened_++)); }

  void readCommands() {
    if (!commands_.read(STDIN_FILENO)) {
      pw_main_loop_quit(loop_);
      return;
    }
    for (std::string line; commands_.next(line);) obey(line);
  }

  void obey(const std::string& command) {
    if (command == "open" && core_ == nullptr) {
      report("error - there is no audio server");
    } else if (command == "open") {
      open();
    } else if (command == "close") {
      if (!streams_.empty()) streams_.pop_back();
    } else if (command == "pause" || command == "resume") {
      for (const auto& stream : streams_) stream->setActive(command == "resume");
    } else if (command == "quit") {
      pw_main_loop_quit(loop_);
    } else {
      report("error - unknown command \"" + command + "\"");
    }
    report("obeyed " + command);
  }

  PlayerOptions options_;
  pw_main_loop* loop_;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  spa_hook listener_{};
  spa_source* retry_ = nullptr;
  std::vector<std::size_t> lost_;  // streams to open again once there is a server
  CommandReader commands_;
  std::vector<std::unique_ptr<Stream>> streams_;
  std::size_t opened_ = 0;
};

}  // namespace
}  // namespace monitor::lab

int main(int argc, char** argv) {
  auto options =
      monitor::lab::parsePlayerOptions(argc, argv, "Plays the laboratory's counter signal by PipeWire.");
  pw_init(nullptr, nullptr);
  const int status = monitor::lab::Player(std::move(options)).run();
  pw_deinit();
  return status;
}
