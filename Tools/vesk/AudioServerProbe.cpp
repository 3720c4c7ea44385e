// SPDX-License-Identifier: MIT
#include "Tools/vesk/AudioServerProbe.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <system_error>

namespace monitor::vesk {
namespace {

std::optional<std::string> variable(const char* name) {
  const char* value =
      std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing in this program sets variables
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

// The client library's own order: an absolute remote is a path, anything else a name in the runtime folder.
std::optional<std::string> socketPath() {
  const std::string name = variable("PIPEWIRE_REMOTE").value_or("pipewire-0");
  if (name.front() == '/') return name;
  for (const char* folder : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"}) {
    if (const auto path = variable(folder)) return *path + '/' + name;
  }
  return std::nullopt;
}

// Empty when the connection was made.
std::string connectionProblem(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return "the socket's path is too long";
  std::memcpy(address.sun_path, path.data(), path.size());
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket < 0) return std::generic_category().message(errno);
  const int result = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int error = result < 0 ? errno : 0;
  ::close(socket);
  return error == 0 ? std::string() : std::generic_category().message(error);
}

}  // namespace

AudioServerState probeAudioServer() {
  AudioServerState state;
  const auto path = socketPath();
  if (!path) {
    state.problem = "neither PIPEWIRE_RUNTIME_DIR nor XDG_RUNTIME_DIR is set";
    return state;
  }
  state.address = *path;
  state.problem = connectionProblem(*path);
  state.reachable = state.problem.empty();
  return state;
}

}  // namespace monitor::vesk
