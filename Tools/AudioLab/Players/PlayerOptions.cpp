// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Players/PlayerOptions.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "Tools/AudioLab/CounterSignal.h"

namespace monitor::lab {

PlayerOptions parsePlayerOptions(int argc, char** argv, const std::string& description) {
  PlayerOptions options;
  CLI::App app{description +
               "\nCommands on stdin: open, close, pause, resume, quit; the end of stdin quits."};
  app.add_option("--name", options.name, "application and node name");
  app.add_option("--channels", options.channels, "channels of a stream")->check(CLI::Range(1, 8));
  app.add_option("--rate", options.rate, "frames per second")->check(CLI::Range(8000, 192000));
  app.add_option("--latency", options.latency, "wanted latency in frames")->check(CLI::Range(16, 65536));
  app.add_option("--streams", options.streams, "streams opened at the start")->check(CLI::Range(0, 256));
  app.add_option("--target", options.target, "node name of the wanted output");
  app.add_flag("--dont-reconnect", options.dontReconnect, "streams that end with their target");
  app.add_flag("--dont-move", options.dontMove, "streams that may not be moved");
  app.add_flag("--reconnect", options.reconnect, "plays on when the audio server is back (PipeWire only)");
  app.add_option("--pcm-streams", options.pcmStreams,
                 "streams opened after so many offer encoded sound only (PipeWire only)");
  app.add_option("--channel", options.channel, "the only channel with a signal")->check(CLI::Range(0, 7));
  app.add_option("--property", options.properties, "key=value of client and streams, may be repeated");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error));
  }
  return options;
}

Property splitProperty(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos) return {text, {}};
  return {text.substr(0, equals), text.substr(equals + 1)};
}

void fillCounter(float* samples, std::uint64_t frames, const PlayerOptions& options, std::uint64_t& next) {
  for (std::uint64_t i = 0; i < frames; ++i) {
    const float value = counterValue(next++);
    for (unsigned channel = 0; channel < options.channels; ++channel) {
      const bool sounds = options.channel < 0 || static_cast<unsigned>(options.channel) == channel;
      *samples++ = sounds ? value : 0.0F;
    }
  }
}

bool CommandReader::read(int descriptor) {
  std::array<char, 512> buffer{};
  const auto count = ::read(descriptor, buffer.data(), buffer.size());
  if (count < 0) return errno == EINTR || errno == EAGAIN;
  text_.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

bool CommandReader::next(std::string& line) {
  const auto newline = text_.find('\n');
  if (newline == std::string::npos) return false;
  line = text_.substr(0, newline);
  text_.erase(0, newline + 1);
  return true;
}

void report(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace monitor::lab
