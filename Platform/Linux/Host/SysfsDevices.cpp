// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/SysfsDevices.h"

#include <string_view>

namespace monitor::platform {
namespace {

constexpr const char* kSupplies = "sys/class/power_supply/";

bool isBattery(const HostFiles& files, const std::string& folder) {
  return files.line(folder + "/type") == "Battery" && files.line(folder + "/present").value_or("1") != "0";
}

bool isOfDevice(const HostFiles& files, const std::string& folder) {
  return files.line(folder + "/scope") == "Device";
}

std::vector<std::string> ownBatteries(const HostFiles& files) {
  std::vector<std::string> folders;
  for (const std::string& name : files.names(kSupplies)) {
    const std::string folder = kSupplies + name;
    if (isBattery(files, folder) && !isOfDevice(files, folder)) folders.push_back(folder);
  }
  return folders;
}

// Drives that never have a device behind them, told by the names that the kernel gives: there are many of
// them, and looking for each one's device takes longer than all the rest.
bool isVirtualDrive(std::string_view name) {
  return name.starts_with("loop") || name.starts_with("ram") || name.starts_with("zram") ||
         name.starts_with("dm-");
}

// What a battery holds and how fast that goes, in watt-hours and watts where it can be told, else in its own
// unit.
struct BatteryFigures {
  std::optional<double> now;
  std::optional<double> full;
  std::optional<double> design;
  std::optional<double> drain;  // per hour
};

BatteryFigures scaled(BatteryFigures figures, double factor) {
  for (auto* figure : {&figures.now, &figures.full, &figures.design, &figures.drain}) {
    if (*figure) **figure *= factor;
  }
  return figures;
}

// Drivers count either energy (microwatt-hours) or charge (microampere-hours); charge times the designed
// voltage makes the two comparable, so that a machine with one of each still has a sum.
BatteryFigures figuresOf(const HostFiles& files, const std::string& folder) {
  const auto number = [&](const char* name) { return files.number(folder + '/' + name); };
  if (number("energy_full")) {
    return {number("energy_now"), number("energy_full"), number("energy_full_design"), number("power_now")};
  }
  if (number("charge_full")) {
    const BatteryFigures charge{number("charge_now"), number("charge_full"), number("charge_full_design"),
                                number("current_now")};
    constexpr double kMicro = 1e-6;
    const auto voltage = number("voltage_min_design");
    return scaled(charge, voltage && *voltage > 0 ? *voltage * kMicro : 1.0);
  }
  // Only a percentage: good enough for the charge, no basis for wear.
  if (const auto capacity = number("capacity")) return {capacity, 100.0, std::nullopt, std::nullopt};
  return {};
}

void add(std::optional<double>& sum, std::optional<double> value) {
  if (value) sum = sum.value_or(0.0) + *value;
}

// The driver's own estimate, else what is left at the present drain; only of a battery that is discharging.
std::optional<double> minutesToEmpty(const HostFiles& files, const std::vector<std::string>& folders) {
  constexpr double kMinutesPerHour = 60.0;
  constexpr double kSecondsPerMinute = 60.0;
  if (folders.size() == 1 && files.line(folders[0] + "/status") == "Discharging") {
    const auto seconds = files.number(folders[0] + "/time_to_empty_now");
    if (seconds && *seconds > 0) return *seconds / kSecondsPerMinute;
  }
  std::optional<double> left;
  std::optional<double> drain;
  bool discharging = false;
  for (const std::string& folder : folders) {
    const BatteryFigures figures = figuresOf(files, folder);
    add(left, figures.now);
    if (files.line(folder + "/status") != "Discharging") continue;
    discharging = true;
    // Some drivers count a discharge as a negative current.
    if (figures.drain) add(drain, *figures.drain < 0 ? -*figures.drain : *figures.drain);
  }
  if (!discharging || !left || !drain || !(*drain > 0)) return std::nullopt;
  return *left / *drain * kMinutesPerHour;
}

std::optional<std::string> stateOf(const HostFiles& files, const std::vector<std::string>& folders) {
  std::optional<std::string> first;
  for (const std::string& folder : folders) {
    const auto status = files.line(folder + "/status");
    if (status == "Charging" || status == "Discharging") return status;
    if (!first) first = status;
  }
  return first;
}

}  // namespace

std::vector<StorageCounter> SysfsBlockStorage::counters() {
  // stat: reads, merged, sectors read, ms, writes, merged, sectors written, …
  constexpr std::size_t kRead = 2;
  constexpr std::size_t kWritten = 6;
  constexpr std::uint64_t kSector = 512;
  std::vector<StorageCounter> list;
  for (const std::string& name : files_.names("sys/block")) {
    if (isVirtualDrive(name)) continue;
    const std::string folder = "sys/block/" + name;
    if (!files_.exists(folder + "/device") || files_.line(folder + "/hidden") == "1") continue;
    const auto statistics = files_.line(folder + "/stat");
    if (!statistics) continue;
    const auto pieces = words(*statistics);
    if (pieces.size() <= kWritten) continue;
    const auto bytes = [&](std::size_t index) -> std::optional<std::uint64_t> {
      const auto sectors = unsignedNumber(pieces[index]);
      if (!sectors) return std::nullopt;
      return *sectors * kSector;
    };
    // A drive that replaces another under the same name counts anew.
    const std::string incarnation = files_.line(folder + "/diskseq").value_or("");
    list.push_back({incarnation.empty() ? name : name + '#' + incarnation, bytes(kRead), bytes(kWritten)});
  }
  return list;
}

std::vector<PowerSource> SysfsPowerSources::sources() {
  const auto folders = ownBatteries(files_);
  if (folders.empty()) return {};
  PowerSource source;
  source.internalBattery = true;
  for (const std::string& folder : folders) {
    const BatteryFigures figures = figuresOf(files_, folder);
    if (!figures.now || !figures.full) continue;
    add(source.currentCapacity, figures.now);
    add(source.maximumCapacity, figures.full);
  }
  source.minutesToEmpty = minutesToEmpty(files_, folders);
  source.state = stateOf(files_, folders);
  return {source};
}

std::optional<BatteryWear> SysfsPowerSources::wear() {
  BatteryWear wear;
  for (const std::string& folder : ownBatteries(files_)) {
    const BatteryFigures figures = figuresOf(files_, folder);
    if (!figures.full || !figures.design) continue;
    add(wear.fullCapacity, figures.full);
    add(wear.designCapacity, figures.design);
  }
  if (!wear.fullCapacity) return std::nullopt;
  return wear;
}

std::vector<Accessory> SysfsAccessories::connected() {
  std::vector<Accessory> list;
  for (const std::string& name : files_.names(kSupplies)) {
    const std::string folder = kSupplies + name;
    if (!isOfDevice(files_, folder)) continue;
    auto product = files_.line(folder + "/model_name");
    if (product && product->empty()) product.reset();
    list.push_back({name, std::move(product), files_.number(folder + "/capacity")});
  }
  return list;
}

}  // namespace monitor::platform
