// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "Tests/Integration/Ipc/ServiceOnBus.h"
#include "Tests/Platform/Ipc/PrivateBus.h"

namespace monitor::tests {
namespace {

namespace fs = std::filesystem;

// Nanoseconds on a processor, of all threads.
std::uint64_t processorTime(pid_t pid) {
  std::uint64_t sum = 0;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::uint64_t time = 0;
    std::ifstream(task.path() / "schedstat") >> time;
    sum += time;
  }
  return sum;
}

std::size_t residentKilobytes(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    std::size_t kilobytes = 0;
    if (word == "VmRSS:" && status >> kilobytes) return kilobytes;
  }
  return 0;
}

TEST(IdleService, TakesNoProcessorTimeAndLittleMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "instrumented code needs several times the memory";
#endif
  const PrivateBus bus({.activations = {{kServiceName, VESK_SERVICE_PROGRAM}}});
  { RawClient(bus).call(kServiceInterface, "Applications"); }
  const auto pid = bus.ownerOf(kServiceName);
  ASSERT_NE(pid, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const auto before = processorTime(pid);
  std::this_thread::sleep_for(std::chrono::seconds(2));
  // Without an audio server it looks for one now and then.
  EXPECT_LE(processorTime(pid) - before, 4'000'000U) << "more than 0.2 % of a processor";
  EXPECT_GT(residentKilobytes(pid), 0U);
  EXPECT_LE(residentKilobytes(pid), 15U * 1024U);
}

}  // namespace
}  // namespace monitor::tests
