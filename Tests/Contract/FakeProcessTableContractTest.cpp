// SPDX-License-Identifier: MIT
#include "Tests/Contract/ProcessTableContract.h"
#include "Tests/Fakes/FakeProcessTable.h"

namespace monitor::contract {
namespace {

class FakeProcesses {
 public:
  ProcessTable& table() { return table_; }
  std::int32_t start() {
    const std::int32_t pid = next_++;
    auto& process = table_.add({pid, 1'000'000ULL + static_cast<std::uint64_t>(pid)}, "/usr/bin/program",
                               owner(), static_cast<std::uint32_t>(parent()));
    process.usage = ProcessUsage{10, 4096, 1, 2};
    process.ports = {80, 443};
    process.directory = "/home/someone";
    return pid;
  }
  void end(std::int32_t pid) { table_.end(pid); }
  static std::uint32_t owner() { return 501; }
  static std::int32_t parent() { return 7; }

 private:
  fakes::FakeProcessTable table_;
  std::int32_t next_ = 100;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ProcessTableContract, FakeProcesses);

}  // namespace
}  // namespace monitor::contract
