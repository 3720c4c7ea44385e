// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/BoundedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace monitor::platform {
namespace {

// O_NONBLOCK and O_NOCTTY: the name may belong to a pipe or a terminal.
constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

bool isRegular(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

// At most `limit` bytes from a descriptor; nothing on an error.
std::optional<std::string> readUpTo(int fd, std::size_t limit) {
  std::string content;
  std::array<char, 4096> chunk{};
  while (content.size() < limit) {
    const std::size_t wanted = std::min(chunk.size(), limit - content.size());
    const ssize_t count = ::read(fd, chunk.data(), wanted);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    content.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return content;
}

std::optional<std::string> readWhole(const FileDescriptor& file, std::size_t limit) {
  if (!file.valid() || !isRegular(file.get())) return std::nullopt;
  auto content = readUpTo(file.get(), limit + 1);
  if (content && content->size() > limit) return std::nullopt;
  return content;
}

}  // namespace

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) ::close(fd_);
}

FileDescriptor openFolder(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::optional<std::string> readFile(const std::string& path, std::size_t limit) {
  return readWhole(FileDescriptor(::open(path.c_str(), kReading)), limit);
}

std::optional<std::string> readFileIn(const FileDescriptor& folder, const char* name, std::size_t limit) {
  if (!folder.valid()) return std::nullopt;
  return readWhole(FileDescriptor(::openat(folder.get(), name, kReading | O_NOFOLLOW)), limit);
}

std::optional<std::string> readBeginning(const std::string& path, std::size_t limit) {
  const FileDescriptor file(::open(path.c_str(), kReading));
  if (!file.valid() || !isRegular(file.get())) return std::nullopt;
  return readUpTo(file.get(), limit);
}

std::optional<std::string> readLink(const std::string& path) {
  std::array<char, 4096> target{};
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length <= 0) return std::nullopt;
  return std::string(target.data(), static_cast<std::size_t>(length));
}

}  // namespace monitor::platform
