// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace monitor::lab {

// The command line that both players share.
struct PlayerOptions {
  std::string name = "Lab Player";  // application.name, and node.name of the streams
  unsigned channels = 2;
  unsigned rate = 48000;
  unsigned latency = 256;  // frames that the player asks for
  unsigned streams = 1;    // opened at the start
  std::string target;      // node name of the wanted output; empty: the default one
  bool dontReconnect = false;
  bool dontMove = false;
  bool reconnect = false;             // outlives the audio server and plays on when that is back
  std::size_t pcmStreams = SIZE_MAX;  // those opened later offer nothing but encoded sound, and play none
  int channel = -1;  // the only channel that carries the signal, the others are silent; -1: all
  std::vector<std::string> properties;  // "key=value", of the client and its streams
};

// Prints usage and exits on --help and wrong arguments.
[[nodiscard]] PlayerOptions parsePlayerOptions(int argc, char** argv, const std::string& description);

// Splits "key=value"; the value may hold further "=".
struct Property {
  std::string key, value;
};
[[nodiscard]] Property splitProperty(const std::string& text);

// Writes the next `frames` interleaved frames of the counter signal; `next` is the number of the first.
void fillCounter(float* samples, std::uint64_t frames, const PlayerOptions& options, std::uint64_t& next);

// The command lines that arrive on stdin, cut out of what was read so far.
class CommandReader {
 public:
  // Reads what is there; false at the end of the stream.
  bool read(int descriptor);
  bool next(std::string& line);

 private:
  std::string text_;
};

// "state INDEX NAME" and the like, at once.
void report(const std::string& line);

}  // namespace monitor::lab
