// SPDX-License-Identifier: MIT
#include "Tools/powermetrics/Powermetrics.h"

#include <system_error>

#include "Tools/powermetrics/Options.h"
#include "Tools/powermetrics/PropertyListOutput.h"

namespace monitor::powermetrics {
namespace {

platform::PowerWanted wantedBy(const Options& options) {
  return {.tasks = options.tasks,
          .network = options.tasks && options.processNetstats,
          .cpuPower = options.cpuPower,
          .gpuPower = options.gpuPower,
          .sensors = options.smc};
}

ExitCode print(std::string_view text, const Surroundings& surroundings) {
  const int error = surroundings.output(text);
  if (error == 0) return ExitCode::Ok;
  surroundings.complain("Standard output cannot be written: " + std::generic_category().message(error) + ".");
  return ExitCode::Failed;
}

ExitCode measure(const Options& options, const Surroundings& surroundings) {
  constexpr double kMillisecondsPerSecond = 1'000.0;
  const double seconds = static_cast<double>(options.sampleMilliseconds) / kMillisecondsPerSecond;
  platform::PowerMeter meter(surroundings.sources, wantedBy(options));
  for (std::uint64_t sample = 0; sample < options.sampleCount; ++sample) {
    const platform::PowerReading reading = meter.next(seconds);
    std::string text(sample == 0 ? 0 : 1, '\0');  // parts the documents
    text += propertyList(reading, options, surroundings.wallClock.now());
    if (const ExitCode code = print(text, surroundings); code != ExitCode::Ok) return code;
  }
  return ExitCode::Ok;
}

}  // namespace

ExitCode run(const std::vector<std::string>& arguments, const Surroundings& surroundings) {
  Options options;
  try {
    options = parseOptions(arguments);
  } catch (const UsageError& error) {
    surroundings.complain(std::string(error.what()) + "\nRun `vesk-powermetrics --help` for the arguments.");
    return ExitCode::Usage;
  }
  return options.help ? print(helpText(), surroundings) : measure(options, surroundings);
}

}  // namespace monitor::powermetrics
