// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Tools/AudioLab/Environment.h"

namespace monitor::lab {

// One output device without hardware. HardwareSink is one whose samples are integers.
struct SinkOptions {
  std::string name = "lab-sink-a";
  std::string description = "Lab Sink A";
  std::vector<std::string> positions = {"FL", "FR"};  // {"MONO"}; {"FL","FR","FC","LFE","RL","RR"}
  unsigned rate = 48000;                              // of its own; the graph's may differ
  int priority = 1000;                                // the session manager's default is the highest
};

// A program that the private bus starts when somebody calls its name.
struct Activation {
  std::string name = {};     // well-known bus name
  std::string command = {};  // Exec= line
};

struct StackOptions {
  unsigned quantum = 256;  // frames of a cycle
  unsigned rate = 48000;   // of the graph
  // The first is the default output.
  std::vector<SinkOptions> sinks = {SinkOptions{.priority = 1010},
                                    SinkOptions{.name = "lab-sink-b", .description = "Lab Sink B"}};
  bool pulse = true;  // the PulseAudio front
  bool bus = false;   // a private session bus
  std::vector<Activation> activations = {};
  std::vector<std::filesystem::path> serviceFolders = {};  // more folders with *.service files for the bus
  Environment extra = {};                                  // more variables for everything on the stack
};

}  // namespace monitor::lab
