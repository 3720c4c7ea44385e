// SPDX-License-Identifier: MIT
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <system_error>

// What callers of the bus library need beside the platform's own handles.
namespace monitor::vesk {

struct CredentialsDelete {
  void operator()(sd_bus_creds* credentials) const { sd_bus_creds_unref(credentials); }
};
using BusCredentials = std::unique_ptr<sd_bus_creds, CredentialsDelete>;

class BusError {
 public:
  BusError() = default;
  ~BusError() { sd_bus_error_free(&error_); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;

  [[nodiscard]] sd_bus_error* out() { return &error_; }
  [[nodiscard]] bool is(const char* name) const { return sd_bus_error_has_name(&error_, name) != 0; }
  // The message of the error, its name where it has none.
  [[nodiscard]] std::string text() const {
    if (error_.message != nullptr) return error_.message;
    return error_.name == nullptr ? "unknown error" : error_.name;
  }

 private:
  sd_bus_error error_{};  // all zero: no error
};

// Throws std::system_error with `what` where a call of the bus library failed; its result otherwise.
inline int checked(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
  return result;
}

}  // namespace monitor::vesk
