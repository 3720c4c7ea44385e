// SPDX-License-Identifier: MIT
#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#import <IOKit/ps/IOPowerSources.h>

#include "Platform/Darwin/MachHostStatistics.h"
#include "Platform/Darwin/RegistryObjects.h"
#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

std::optional<double> number(id _Nullable object) {
  if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;
  return ((NSNumber*)object).doubleValue;
}

std::optional<std::uint64_t> unsignedNumber(id _Nullable object) {
  if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;
  return ((NSNumber*)object).unsignedLongLongValue;
}

class IOKitBlockStorage final : public BlockStorage {
 public:
  std::vector<StorageCounter> counters() override {
    std::vector<StorageCounter> list;
    forEachService("IOBlockStorageDriver", [&list](io_service_t service) {
      const id property = registryProperty(service, @"Statistics");
      if (![property isKindOfClass:[NSDictionary class]]) return;
      NSDictionary<NSString*, id>* statistics = (NSDictionary*)property;
      list.push_back({registryEntryID(service), unsignedNumber(statistics[@"Bytes (Read)"]),
                      unsignedNumber(statistics[@"Bytes (Write)"])});
    });
    return list;
  }
};

class IOKitPowerSources final : public PowerSources {
 public:
  std::vector<PowerSource> sources() override {
    std::vector<PowerSource> list;
    const CFTypeRef info = IOPSCopyPowerSourcesInfo();
    if (info == nullptr) return list;
    NSArray* sources = (__bridge_transfer NSArray*)IOPSCopyPowerSourcesList((CFTypeRef _Nonnull)info);
    for (id source in sources) {
      NSDictionary<NSString*, id>* description = (__bridge NSDictionary*)IOPSGetPowerSourceDescription(
          (CFTypeRef _Nonnull)info, (__bridge CFTypeRef _Nonnull)source);
      list.push_back({.internalBattery = static_cast<bool>([description[@"Type"] isEqual:@"InternalBattery"]),
                      .currentCapacity = number(description[@"Current Capacity"]),
                      .maximumCapacity = number(description[@"Max Capacity"]),
                      .minutesToEmpty = number(description[@"Time to Empty"]),
                      .state = plainTextOrNothing(description[@"Power Source State"])});
    }
    CFRelease((CFTypeRef _Nonnull)info);
    return list;
  }

  std::optional<BatteryWear> wear() override {
    // The call consumes the matching dictionary.
    const RegistryObject battery(
        IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching("AppleSmartBattery")));
    if (battery.get() == 0) return std::nullopt;
    return BatteryWear{number(registryProperty(battery.get(), @"AppleRawMaxCapacity")),
                       number(registryProperty(battery.get(), @"DesignCapacity"))};
  }
};

class IOKitAccessories final : public Accessories {
 public:
  std::vector<Accessory> connected() override {
    std::vector<Accessory> list;
    forEachService("IOHIDDevice", [&list](io_service_t service) {
      list.push_back({registryEntryID(service), plainTextOrNothing(registryProperty(service, @"Product")),
                      number(registryProperty(service, @"BatteryPercent"))});
    });
    return list;
  }
};

}  // namespace

std::unique_ptr<BlockStorage> makeBlockStorage() { return std::make_unique<IOKitBlockStorage>(); }
std::unique_ptr<PowerSources> makePowerSources() { return std::make_unique<IOKitPowerSources>(); }
std::unique_ptr<Accessories> makeAccessories() { return std::make_unique<IOKitAccessories>(); }

}  // namespace monitor::platform
