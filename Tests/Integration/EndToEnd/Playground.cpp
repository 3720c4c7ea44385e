// SPDX-License-Identifier: MIT
#include "Tests/Integration/EndToEnd/Playground.h"

#include <utility>

#include "Tools/AudioLab/BuiltServices.h"
#include "Tools/Demo/BusWatch.h"

namespace monitor::lab {
Playground::Playground(std::vector<std::string> playerArguments)
    : stack({.bus = true, .activations = builtServices()}),
      player(stack, {.name = kProgram, .arguments = std::move(playerArguments), .installAs = kProgram}),
      recorder(stack.remote(), {.seconds = 300.0}) {}

CommandResult Playground::vesk(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), builtProgram("vesk"));
  return stack.run(std::move(arguments), Milliseconds(30'000));
}

void Playground::setGain(const std::string& value) const {
  const auto result = vesk({"gain", kProgram, value});
  EXPECT_EQ(result.status, 0) << result.output << fileTail(stack.log("vesk"), 5);
}

std::optional<Heard> Playground::hear(double level, std::size_t from, Milliseconds deadline) const {
  return waitForGain(recorder, 0, level, from, deadline);
}

pid_t Playground::service() const {
  return demo::ownerOf(stack.busAddress(), kServiceName).value_or(0);
}
pid_t Playground::agent() const {
  return demo::ownerOf(stack.busAddress(), kAgentName).value_or(0);
}

}  // namespace monitor::lab
