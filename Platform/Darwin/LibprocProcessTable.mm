// SPDX-License-Identifier: MIT
#include "Platform/Darwin/LibprocProcessTable.h"

#include <libproc.h>
#include <mach/mach.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <array>
#include <set>

#include "MonitorMac/HostFormulas.h"
#include "MonitorMac/ProcessListing.h"

namespace monitor::platform {
namespace {

// The port as the kernel keeps it: network byte order in the low 16 bits.
std::uint16_t hostPort(int networkPort) {
  const auto low = static_cast<std::uint16_t>(networkPort);
  return static_cast<std::uint16_t>((low << 8U) | (low >> 8U));
}

int byteSize(std::size_t size) { return static_cast<int>(size); }

class LibprocProcessTable final : public ProcessTable {
 public:
  std::vector<std::int32_t> allPids() override {
    // Without a buffer the call returns a count, not a size.
    std::vector<std::int32_t> pids(pidCapacity(proc_listallpids(nullptr, 0)));
    const int count = proc_listallpids(pids.data(), byteSize(pids.size() * sizeof(std::int32_t)));
    pids.resize(count < 1 ? 0 : std::min(static_cast<std::size_t>(count), pids.size()));
    return pids;
  }

  std::optional<ProcessRecord> record(std::int32_t pid) override {
    proc_bsdinfo info{};
    if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, byteSize(sizeof info)) != byteSize(sizeof info)) {
      return std::nullopt;
    }
    return ProcessRecord{info.pbi_start_tvsec, info.pbi_start_tvusec, info.pbi_ppid, info.pbi_uid};
  }

  std::string executablePath(std::int32_t pid) override {
    // A larger buffer than this makes the call fail.
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> buffer{};
    if (proc_pidpath(pid, buffer.data(), static_cast<std::uint32_t>(buffer.size())) < 1) return {};
    return {buffer.data(), std::find(buffer.begin(), buffer.end(), '\0')};
  }

  std::optional<ProcessUsage> usage(std::int32_t pid) override {
    rusage_info_v2 usage{};
    if (proc_pid_rusage(pid, RUSAGE_INFO_V2, reinterpret_cast<rusage_info_t*>(&usage)) != 0) return std::nullopt;
    return ProcessUsage{usage.ri_user_time + usage.ri_system_time, usage.ri_phys_footprint,
                        usage.ri_diskio_bytesread, usage.ri_diskio_byteswritten};
  }

  [[nodiscard]] double cpuTimeUnitNanoseconds() const override {
    static const double unit = [] {
      mach_timebase_info_data_t timebase{};
      mach_timebase_info(&timebase);
      return machTimeUnitNanoseconds(timebase.numer, timebase.denom);
    }();
    return unit;
  }

  std::vector<std::int64_t> listeningPorts(std::int32_t pid) override {
    const std::size_t capacity = descriptorCapacity(proc_pidinfo(pid, PROC_PIDLISTFDS, 0, nullptr, 0));
    if (capacity == 0) return {};
    std::vector<proc_fdinfo> descriptors(capacity);
    const int size = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, descriptors.data(),
                                  byteSize(descriptors.size() * sizeof(proc_fdinfo)));
    if (size < 1) return {};
    descriptors.resize(std::min(static_cast<std::size_t>(size) / sizeof(proc_fdinfo), descriptors.size()));
    std::set<std::int64_t> ports;
    for (const proc_fdinfo& descriptor : descriptors) {
      if (const auto port = listeningPort(pid, descriptor)) ports.insert(*port);
    }
    return {ports.begin(), ports.end()};
  }

  std::optional<std::string> workingDirectory(std::int32_t pid) override {
    proc_vnodepathinfo info{};
    if (proc_pidinfo(pid, PROC_PIDVNODEPATHINFO, 0, &info, byteSize(sizeof info)) != byteSize(sizeof info)) {
      return std::nullopt;
    }
    const auto& path = info.pvi_cdir.vip_path;
    std::string folder(path, std::find(std::begin(path), std::end(path), '\0'));
    if (folder.empty()) return std::nullopt;
    return folder;
  }

 private:
  static std::optional<std::int64_t> listeningPort(std::int32_t pid, const proc_fdinfo& descriptor) {
    if (descriptor.proc_fdtype != PROX_FDTYPE_SOCKET) return std::nullopt;
    socket_fdinfo info{};
    if (proc_pidfdinfo(pid, descriptor.proc_fd, PROC_PIDFDSOCKETINFO, &info, byteSize(sizeof info)) !=
        byteSize(sizeof info)) {
      return std::nullopt;
    }
    if (info.psi.soi_kind != SOCKINFO_TCP || info.psi.soi_proto.pri_tcp.tcpsi_state != TSI_S_LISTEN) {
      return std::nullopt;
    }
    const std::uint16_t port = hostPort(info.psi.soi_proto.pri_tcp.tcpsi_ini.insi_lport);
    if (port == 0) return std::nullopt;
    return port;
  }
};

}  // namespace

std::shared_ptr<ProcessTable> makeProcessTable() { return std::make_shared<LibprocProcessTable>(); }

}  // namespace monitor::platform
