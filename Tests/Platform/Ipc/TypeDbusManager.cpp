// SPDX-License-Identifier: MIT
#include "Tests/Platform/Ipc/TypeDbusManager.h"

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

namespace monitor::tests {
namespace {

constexpr std::uint64_t kLookMicroseconds = 20'000;

void require(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::to_string(result));
}

}  // namespace

TypeDbusManager::TypeDbusManager(const std::string& busAddress, std::string name) : name_(std::move(name)) {
  sd_bus* made = nullptr;
  require(sd_bus_new(&made), "sd_bus_new");
  bus_.reset(made);
  require(sd_bus_set_address(made, busAddress.c_str()), "sd_bus_set_address");
  require(sd_bus_set_bus_client(made, 1), "sd_bus_set_bus_client");
  require(sd_bus_start(made), "sd_bus_start");
  const std::string match =
      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
      "member='NameOwnerChanged',arg0='" +
      name_ + "'";
  require(sd_bus_add_match(made, nullptr, match.c_str(), onOwner, this), "sd_bus_add_match");
  thread_ = std::thread([this] { run(); });
}

TypeDbusManager::~TypeDbusManager() {
  done_ = true;
  thread_.join();
}

void TypeDbusManager::run() {
  while (!done_) {
    const int result = sd_bus_process(bus_.get(), nullptr);
    if (result < 0) return;  // the bus has ended
    if (result == 0) sd_bus_wait(bus_.get(), kLookMicroseconds);
  }
}

int TypeDbusManager::onOwner(sd_bus_message* signal, void* data, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  const int result = sd_bus_message_read(signal, "sss", &name, &before, &after);
  if (result >= 0) static_cast<TypeDbusManager*>(data)->noteOwner(after);
  return 0;
}

void TypeDbusManager::noteOwner(const char* owner) {
  if (*owner == '\0') {
    if (process_ && ::syscall(SYS_pidfd_send_signal, process_.get(), SIGTERM, nullptr, 0) == 0) ++told_;
    process_.reset();
    return;
  }
  sd_bus_creds* credentials = nullptr;
  pid_t pid = 0;
  if (sd_bus_get_name_creds(bus_.get(), owner, SD_BUS_CREDS_PID, &credentials) < 0) return;
  if (sd_bus_creds_get_pid(credentials, &pid) >= 0) {
    process_ = lab::Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  }
  sd_bus_creds_unref(credentials);
}

}  // namespace monitor::tests
