// SPDX-License-Identifier: MIT
#include "Platform/Darwin/MachHostStatistics.h"

#import <Foundation/Foundation.h>

#include <mach/mach.h>
#include <sys/sysctl.h>

#include "MonitorMac/HostFormulas.h"
#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

// The send right to the host; each one taken is given back.
class HostPort {
 public:
  HostPort() : port_(mach_host_self()) {}
  HostPort(const HostPort&) = delete;
  HostPort& operator=(const HostPort&) = delete;
  ~HostPort() { mach_port_deallocate(mach_task_self(), port_); }
  [[nodiscard]] host_t get() const { return port_; }

 private:
  host_t port_;
};

std::optional<std::uint64_t> capacity(NSURL* _Nonnull url, NSURLResourceKey _Nonnull key) {
  id value = nil;
  if (![url getResourceValue:&value forKey:key error:nil] || ![value isKindOfClass:[NSNumber class]]) {
    return std::nullopt;
  }
  return ((NSNumber*)value).unsignedLongLongValue;
}

class MachHostStatistics final : public HostStatistics {
 public:
  std::optional<CpuTicks> cpuTicks() override {
    const HostPort host;
    host_cpu_load_info_data_t load{};
    mach_msg_type_number_t count = HOST_CPU_LOAD_INFO_COUNT;
    if (host_statistics(host.get(), HOST_CPU_LOAD_INFO, reinterpret_cast<host_info_t>(&load), &count) !=
        KERN_SUCCESS) {
      return std::nullopt;
    }
    // The ticks are 32 bits wide and wrap; a wrap reads as a counter that went backwards.
    return CpuTicks{load.cpu_ticks[CPU_STATE_USER], load.cpu_ticks[CPU_STATE_SYSTEM], load.cpu_ticks[CPU_STATE_IDLE],
                    load.cpu_ticks[CPU_STATE_NICE]};
  }

  std::optional<std::uint64_t> physicalMemory() override { return NSProcessInfo.processInfo.physicalMemory; }

  std::optional<MemoryReport> memory() override {
    const HostPort host;
    vm_statistics64_data_t counters{};
    mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
    if (host_statistics64(host.get(), HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&counters), &count) !=
        KERN_SUCCESS) {
      return std::nullopt;
    }
    const std::uint64_t page = vm_kernel_page_size;
    const MachPageCounts pages{counters.internal_page_count, counters.wire_count, counters.compressor_page_count,
                               counters.purgeable_count};
    return MemoryReport{machUsedMemory(pages, page, NSProcessInfo.processInfo.physicalMemory),
                        counters.wire_count * page, counters.compressor_page_count * page};
  }

  std::optional<std::int32_t> memoryPressureLevel() override {
    std::int32_t level = 0;
    std::size_t size = sizeof level;
    if (sysctlbyname("kern.memorystatus_vm_pressure_level", &level, &size, nullptr, 0) != 0) return std::nullopt;
    return level;
  }

  std::optional<VolumeCapacity> homeVolume() override {
    NSURL* home = [NSURL fileURLWithPath:NSHomeDirectory()];
    NSError* error = nil;
    NSDictionary<NSURLResourceKey, id>* values =
        [home resourceValuesForKeys:@[ NSURLVolumeTotalCapacityKey, NSURLVolumeAvailableCapacityKey ] error:&error];
    if (values == nil) return std::nullopt;
    return VolumeCapacity{capacity(home, NSURLVolumeTotalCapacityKey),
                          capacity(home, NSURLVolumeAvailableCapacityKey)};
  }
};

class StandardTextOrder final : public TextOrder {
 public:
  [[nodiscard]] bool precedes(std::string_view left, std::string_view right) const override {
    return [objcText(left) localizedStandardCompare:objcText(right)] == NSOrderedAscending;
  }
};

}  // namespace

std::unique_ptr<HostStatistics> makeHostStatistics() { return std::make_unique<MachHostStatistics>(); }
std::unique_ptr<TextOrder> makeTextOrder() { return std::make_unique<StandardTextOrder>(); }

}  // namespace monitor::platform
