// SPDX-License-Identifier: MIT
// Every number of the platform that the adapters or the portable code rely on, asserted in one place: against our own
// declarations when type-checking elsewhere, against the system's headers when building on a Mac.
#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#import <IOKit/hid/IOHIDKeys.h>
#import <IOKit/ps/IOPSKeys.h>
#import <IOKit/storage/IOBlockStorageDriver.h>
#import <ServiceManagement/ServiceManagement.h>

#include <libproc.h>
#include <mach/mach.h>
#include <net/if.h>
#include <net/route.h>
#include <sys/sysctl.h>

#include <cstddef>
#include <string_view>

#include "MonitorCore/MonitorError.h"
#include "MonitorCore/Ports/AudioHardware.h"

namespace monitor::platform {

// Process information.
static_assert(sizeof(proc_bsdinfo) == 136);
static_assert(offsetof(proc_bsdinfo, pbi_ppid) == 16 && offsetof(proc_bsdinfo, pbi_uid) == 20);
static_assert(offsetof(proc_bsdinfo, pbi_start_tvsec) == 120 && offsetof(proc_bsdinfo, pbi_start_tvusec) == 128);
static_assert(sizeof(socket_fdinfo) == 792 && offsetof(socket_fdinfo, psi.soi_kind) == 256);
static_assert(offsetof(socket_fdinfo, psi.soi_proto.pri_tcp.tcpsi_ini.insi_lport) == 268);
static_assert(offsetof(socket_fdinfo, psi.soi_proto.pri_tcp.tcpsi_state) == 344);
static_assert(sizeof(proc_vnodepathinfo) == 2352 && offsetof(proc_vnodepathinfo, pvi_cdir.vip_path) == 152);
static_assert(sizeof(proc_vnodepathinfo{}.pvi_cdir.vip_path) == 1024);
static_assert(sizeof(proc_fdinfo) == 8);
static_assert(PROX_FDTYPE_SOCKET == 2 && SOCKINFO_TCP == 2 && TSI_S_LISTEN == 1);
static_assert(PROC_PIDLISTFDS == 1 && PROC_PIDTBSDINFO == 3 && PROC_PIDVNODEPATHINFO == 9);
static_assert(PROC_PIDPATHINFO == 11 && PROC_PIDFDSOCKETINFO == 3 && PROC_PIDPATHINFO_MAXSIZE == 4096);
static_assert(sizeof(rusage_info_v2) == 160 && RUSAGE_INFO_V2 == 2);
static_assert(offsetof(rusage_info_v2, ri_user_time) == 16 && offsetof(rusage_info_v2, ri_system_time) == 24);
static_assert(offsetof(rusage_info_v2, ri_phys_footprint) == 72);
static_assert(offsetof(rusage_info_v2, ri_diskio_bytesread) == 144);
static_assert(offsetof(rusage_info_v2, ri_diskio_byteswritten) == 152);

// Routing messages; the portable walk reads these offsets.
static_assert(sizeof(if_msghdr2) == 160 && offsetof(if_msghdr2, ifm_type) == 3);
static_assert(offsetof(if_msghdr2, ifm_flags) == 8 && offsetof(if_msghdr2, ifm_index) == 12);
static_assert(offsetof(if_msghdr2, ifm_data) == 32);
static_assert(offsetof(if_msghdr2, ifm_data.ifi_ibytes) == 96 && offsetof(if_msghdr2, ifm_data.ifi_obytes) == 104);
static_assert(RTM_IFINFO2 == 18 && NET_RT_IFLIST2 == 6 && PF_ROUTE == 17 && CTL_NET == 4);
static_assert(IFF_UP == 1 && IFNAMSIZ == 16);
static_assert(sizeof(if_msghdr) == 112);  // the smallest message

// Host statistics.
static_assert(HOST_CPU_LOAD_INFO == 3 && HOST_CPU_LOAD_INFO_COUNT == 4);
static_assert(sizeof(host_cpu_load_info{}.cpu_ticks[0]) == 4);  // so that they wrap
static_assert(CPU_STATE_USER == 0 && CPU_STATE_SYSTEM == 1 && CPU_STATE_IDLE == 2 && CPU_STATE_NICE == 3);
static_assert(HOST_VM_INFO64 == 4 && sizeof(vm_statistics64) == 152 && HOST_VM_INFO64_COUNT == 38);
static_assert(offsetof(vm_statistics64, wire_count) == 12 && offsetof(vm_statistics64, purgeable_count) == 88);
static_assert(offsetof(vm_statistics64, compressor_page_count) == 128);
static_assert(offsetof(vm_statistics64, internal_page_count) == 140);

// Audio: the portable selectors are the platform's own.
static_assert(kAudioObjectSystemObject == audio::kSystemObject);
static_assert(kAudioObjectPropertyScopeGlobal == audio::kScopeGlobal);
static_assert(kAudioObjectPropertyScopeOutput == audio::kScopeOutput);
static_assert(kAudioObjectPropertyElementMain == audio::kElementMain);
static_assert(kAudioHardwarePropertyProcessObjectList == audio::kProcessObjectList.selector);
static_assert(kAudioHardwarePropertyDefaultOutputDevice == audio::kDefaultOutputDevice.selector);
static_assert(kAudioProcessPropertyPID == audio::kProcessPID.selector);
static_assert(kAudioProcessPropertyIsRunningOutput == audio::kProcessIsRunningOutput.selector);
static_assert(kAudioProcessPropertyBundleID == audio::kProcessBundleID.selector);
static_assert(kAudioDevicePropertyDeviceUID == audio::kDeviceUID.selector);
static_assert(kAudioDevicePropertyStreamFormat == audio::kStreamFormat.selector);
static_assert(kAudioTapPropertyFormat == audio::kTapFormat.selector);
static_assert(kAudioFormatLinearPCM == audio::kFormatLinearPCM);
static_assert(kAudioFormatFlagIsFloat == audio::kFormatFlagIsFloat);
static_assert(sizeof(AudioStreamBasicDescription) == 40);
static_assert(offsetof(AudioStreamBasicDescription, mSampleRate) == offsetof(AudioStreamFormat, sampleRate));
static_assert(offsetof(AudioStreamBasicDescription, mFormatID) == offsetof(AudioStreamFormat, formatID));
static_assert(offsetof(AudioStreamBasicDescription, mFormatFlags) == offsetof(AudioStreamFormat, formatFlags));
static_assert(offsetof(AudioStreamBasicDescription, mChannelsPerFrame) ==
              offsetof(AudioStreamFormat, channelsPerFrame));
static_assert(offsetof(AudioStreamBasicDescription, mBitsPerChannel) == offsetof(AudioStreamFormat, bitsPerChannel));
static_assert(CATapUnmuted == static_cast<NSInteger>(TapMuteBehavior::Unmuted));
static_assert(CATapMuted == static_cast<NSInteger>(TapMuteBehavior::Muted));
static_assert(CATapMutedWhenTapped == static_cast<NSInteger>(TapMuteBehavior::MutedWhenTapped));

// Keys of an aggregate device's description; the portable dictionary spells them out.
static_assert(std::string_view(kAudioAggregateDeviceNameKey) == "name");
static_assert(std::string_view(kAudioAggregateDeviceUIDKey) == "uid");
static_assert(std::string_view(kAudioAggregateDeviceIsPrivateKey) == "private");
static_assert(std::string_view(kAudioAggregateDeviceIsStackedKey) == "stacked");
static_assert(std::string_view(kAudioAggregateDeviceMainSubDeviceKey) == "master");
static_assert(std::string_view(kAudioAggregateDeviceSubDeviceListKey) == "subdevices");
static_assert(std::string_view(kAudioAggregateDeviceTapListKey) == "taps");
static_assert(std::string_view(kAudioAggregateDeviceTapAutoStartKey) == "tapautostart");
static_assert(std::string_view(kAudioSubDeviceUIDKey) == "uid");
static_assert(std::string_view(kAudioSubDeviceInputChannelsKey) == "channels-in");
static_assert(std::string_view(kAudioSubDeviceOutputChannelsKey) == "channels-out");
static_assert(std::string_view(kAudioSubTapUIDKey) == "uid");
static_assert(std::string_view(kAudioSubTapDriftCompensationKey) == "drift");

// Names in the I/O registry and of power sources, which the adapters spell out.
static_assert(std::string_view(kIOBlockStorageDriverClass) == "IOBlockStorageDriver");
static_assert(std::string_view(kIOBlockStorageDriverStatisticsKey) == "Statistics");
static_assert(std::string_view(kIOBlockStorageDriverStatisticsBytesReadKey) == "Bytes (Read)");
static_assert(std::string_view(kIOBlockStorageDriverStatisticsBytesWrittenKey) == "Bytes (Write)");
static_assert(std::string_view(kIOHIDDeviceKey) == "IOHIDDevice" && std::string_view(kIOHIDProductKey) == "Product");
static_assert(std::string_view(kIOPSTypeKey) == "Type");
static_assert(std::string_view(kIOPSInternalBatteryType) == "InternalBattery");
static_assert(std::string_view(kIOPSCurrentCapacityKey) == "Current Capacity");
static_assert(std::string_view(kIOPSMaxCapacityKey) == "Max Capacity");
static_assert(std::string_view(kIOPSTimeToEmptyKey) == "Time to Empty");
static_assert(std::string_view(kIOPSPowerSourceStateKey) == "Power Source State");

// Connections, services, errors.
static_assert(NSXPCConnectionPrivileged == 4096);
static_assert(NSFileReadTooLargeError == MonitorError::kReadTooLarge);
static_assert(NSPropertyListReadCorruptError == MonitorError::kPropertyListReadCorrupt);
static_assert(NSXPCConnectionInvalid == MonitorError::kConnectionInvalid);
static_assert(NSXPCConnectionCodeSigningRequirementFailure == 4102);
static_assert(NSCoderInvalidValueError == MonitorError::kCoderInvalidValue);
static_assert(SMAppServiceStatusNotRegistered == 0 && SMAppServiceStatusEnabled == 1);
static_assert(SMAppServiceStatusRequiresApproval == 2 && SMAppServiceStatusNotFound == 3);

}  // namespace monitor::platform
