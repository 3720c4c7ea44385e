// SPDX-License-Identifier: MIT
#include "Platform/Linux/Power/PackageEnergy.h"

#include <algorithm>
#include <string_view>

namespace monitor::platform {
namespace {

constexpr const char* kClass = "sys/class/powercap/";
constexpr double kMicro = 1e-6;
// More than any package may draw; a counter that was set anew looks like a thousand times as much.
constexpr double kMostWattsOfAPackage = 2'000.0;

// "intel-rapl:0", whoever made the processor; "intel-rapl:0:1" is a part of it.
bool isTopLevelZone(std::string_view name) {
  constexpr std::string_view kPrefix = "intel-rapl:";
  return name.starts_with(kPrefix) && unsignedNumber(name.substr(kPrefix.size())).has_value();
}

std::optional<std::uint64_t> counter(const HostFiles& files, const std::string& path) {
  const auto text = files.line(path);
  return text ? unsignedNumber(*text) : std::nullopt;
}

// What a counter grew by, in joules.
std::optional<double> growth(const PackageEnergy& before, const PackageEnergy& after) {
  if (after.microjoules >= before.microjoules) {
    return static_cast<double>(after.microjoules - before.microjoules) * kMicro;
  }
  if (before.microjoules > after.range) return std::nullopt;
  return (static_cast<double>(after.range - before.microjoules) + static_cast<double>(after.microjoules)) *
         kMicro;
}

}  // namespace

std::vector<PackageEnergy> readPackageEnergy(const HostFiles& files) {
  std::vector<PackageEnergy> packages;
  for (const std::string& name : files.names(kClass)) {
    const std::string folder = kClass + name;
    if (!isTopLevelZone(name) || !files.line(folder + "/name").value_or("").starts_with("package-")) continue;
    const auto energy = counter(files, folder + "/energy_uj");
    if (energy)
      packages.push_back({name, *energy, counter(files, folder + "/max_energy_range_uj").value_or(0)});
  }
  return packages;
}

std::optional<double> packageWatts(const std::vector<PackageEnergy>& before,
                                   const std::vector<PackageEnergy>& after, double seconds) {
  const auto sameZone = [](const PackageEnergy& one, const PackageEnergy& other) {
    return one.zone == other.zone;
  };
  if (!(seconds > 0) || before.empty() ||
      !std::equal(before.begin(), before.end(), after.begin(), after.end(), sameZone)) {
    return std::nullopt;
  }
  double watts = 0.0;
  for (std::size_t index = 0; index < before.size(); ++index) {
    const auto joules = growth(before[index], after[index]);
    if (!joules || *joules / seconds > kMostWattsOfAPackage) return std::nullopt;
    watts += *joules / seconds;
  }
  return watts;
}

}  // namespace monitor::platform
