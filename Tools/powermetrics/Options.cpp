// SPDX-License-Identifier: MIT
#include "Tools/powermetrics/Options.h"

#include <CLI/CLI.hpp>

#include <array>
#include <charconv>
#include <string_view>
#include <system_error>

namespace monitor::powermetrics {
namespace {

struct Sampler {
  std::string_view name;
  bool Options::*wanted;
};

constexpr std::array<Sampler, 5> kSamplers{{{"tasks", &Options::tasks},
                                            {"cpu_power", &Options::cpuPower},
                                            {"gpu_power", &Options::gpuPower},
                                            {"thermal", &Options::thermal},
                                            {"smc", &Options::smc}}};

constexpr const char* kFooter =
    "Samplers:\n"
    "  tasks      processor time of every process; more with the two options above\n"
    "  cpu_power  power of the processor packages\n"
    "  gpu_power  busy share of the graphics card\n"
    "  thermal    accepted; this system keeps no thermal pressure\n"
    "  smc        temperatures of processor and graphics card, speeds of the fans\n"
    "\n"
    "What the machine or the kernel does not report is left out, never zero. Most of it is told to root "
    "only.\n"
    "\n"
    "Exit status:\n"
    "  0  all samples were printed\n"
    "  1  the output could not be written\n"
    "  2  wrong usage";

// The texts as they were given; their meaning is checked afterwards.
struct Given {
  std::string samplers;
  std::string count;
  std::string rate;
  std::string format = "plist";
};

void describe(CLI::App& app, Given& given, Options& options) {
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.add_option("--samplers", given.samplers, "What to measure, separated by commas; all of it by default")
      ->type_name("LIST");
  app.add_flag("--show-process-netstats", options.processNetstats,
               "Bytes that each process sent and received");
  app.add_flag("--show-process-energy", options.processEnergy, "Energy impact of each process");
  app.add_option("--sample-count", given.count, "Samples to print, 1 to 1000000; 1 by default")
      ->type_name("N");
  app.add_option("--sample-rate", given.rate, "Length of a sample, 10 to 90000 milliseconds; 1000 by default")
      ->type_name("MS");
  app.add_option("--format", given.format, "Only \"plist\": property lists in XML, parted by zero bytes")
      ->type_name("FORMAT");
  app.footer(kFooter);
}

void want(Options& options, std::string_view name) {
  for (const Sampler& sampler : kSamplers) {
    if (sampler.name != name) continue;
    if (options.*sampler.wanted) throw UsageError("--samplers: " + std::string(name) + " is named twice.");
    options.*sampler.wanted = true;
    return;
  }
  throw UsageError("--samplers: \"" + std::string(name) +
                   "\" is not one of tasks, cpu_power, gpu_power, thermal, smc.");
}

void readSamplers(Options& options, std::string_view list) {
  while (true) {
    const std::size_t comma = list.find(',');
    want(options, list.substr(0, comma));
    if (comma == std::string_view::npos) return;
    list.remove_prefix(comma + 1);
  }
}

std::uint64_t readNumber(const std::string& option, const std::string& text, std::uint64_t least,
                         std::uint64_t most) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
    throw UsageError(option + ": \"" + text + "\" is not a whole number from " + std::to_string(least) +
                     " to " + std::to_string(most) + ".");
  }
  return number;
}

}  // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
  Options options;
  Given given;
  CLI::App app("vesk-powermetrics");
  describe(app, given, options);
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    options.help = true;
    return options;
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  if (app.count("--samplers") > 0) {
    readSamplers(options, given.samplers);
  } else {
    for (const Sampler& sampler : kSamplers) options.*sampler.wanted = true;
  }
  if (app.count("--sample-count") > 0)
    options.sampleCount = readNumber("--sample-count", given.count, 1, kMostSamples);
  if (app.count("--sample-rate") > 0)
    options.sampleMilliseconds = readNumber("--sample-rate", given.rate, kShortestSample, kLongestSample);
  if (given.format != "plist") throw UsageError("--format: \"" + given.format + "\" is not plist.");
  return options;
}

std::string helpText() {
  Options options;
  Given given;
  CLI::App app("Measures power, temperatures, and what every process costs, and prints it as property lists.",
               "vesk-powermetrics");
  describe(app, given, options);
  return app.help();
}

}  // namespace monitor::powermetrics
