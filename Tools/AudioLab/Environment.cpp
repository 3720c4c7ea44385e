// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/Environment.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string_view>

namespace monitor::lab {
namespace {

constexpr std::array<std::string_view, 10> kDesktopPrefixes = {
    "DBUS_",     "DISPLAY", "WAYLAND_DISPLAY", "XDG_",          "PULSE_",
    "PIPEWIRE_", "ALSA_",   "FLATPAK_",        "NOTIFY_SOCKET", "LISTEN_"};

bool isDesktopVariable(std::string_view name) {
  for (const auto prefix : kDesktopPrefixes) {
    if (name.starts_with(prefix)) return true;
  }
  return false;
}

Environment currentEnvironment() {
  Environment result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) continue;
    result.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return result;
}

}  // namespace

Environment neutralEnvironment() {
  Environment result = currentEnvironment();
  std::erase_if(result, [](const auto& entry) { return isDesktopVariable(entry.first); });
  return result;
}

ScopedEnvironment::ScopedEnvironment(const Environment& environment) {
  const Environment before = currentEnvironment();
  for (const auto& [name, value] : before) {
    if (isDesktopVariable(name) && !environment.contains(name)) change(name, nullptr);
  }
  for (const auto& [name, value] : environment) {
    const auto found = before.find(name);
    if (found == before.end() || found->second != value) change(name, &value);
  }
}

ScopedEnvironment::~ScopedEnvironment() {
  for (const auto& [name, value] : former_) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }
}

void ScopedEnvironment::change(const std::string& name, const std::string* value) {
  const char* before = std::getenv(name.c_str());
  former_.emplace_back(name, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
  if (value != nullptr) {
    ::setenv(name.c_str(), value->c_str(), 1);
  } else {
    ::unsetenv(name.c_str());
  }
}

}  // namespace monitor::lab
