// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ProcFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

#include "Platform/Linux/Base/Folder.h"

namespace monitor::platform {
namespace {

// O_NONBLOCK: in a made-up folder the name may belong to a pipe.
constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// "123/stat", ended by a zero.
class ProcessPath {
 public:
  ProcessPath(std::int32_t pid, const char* name) {
    const auto [end, error] = std::to_chars(text_.data(), text_.data() + kLongestPid, pid);
    *end = '/';
    const std::size_t room = static_cast<std::size_t>(text_.data() + text_.size() - end) - 2;
    const std::size_t length = std::min(std::strlen(name), room);
    std::memcpy(end + 1, name, length);
    end[1 + length] = '\0';
  }
  [[nodiscard]] const char* text() const { return text_.data(); }

 private:
  static constexpr std::size_t kLongestPid = 11;
  std::array<char, 64> text_;
};

std::optional<std::int32_t> pidOf(const char* name) {
  std::int32_t pid = 0;
  const char* nameEnd = name + std::strlen(name);
  const auto [end, error] = std::from_chars(name, nameEnd, pid);
  if (error != std::errc() || end != nameEnd || pid <= 0) return std::nullopt;
  return pid;
}

// A file that fills the buffer may be longer.
std::optional<std::string_view> content(std::span<char> buffer, ssize_t count) {
  if (count < 0) return std::nullopt;
  if (static_cast<std::size_t>(count) == buffer.size()) {
    errno = EFBIG;
    return std::nullopt;
  }
  return std::string_view(buffer.data(), static_cast<std::size_t>(count));
}

}  // namespace

ProcFolder::ProcFolder(const std::string& root)
    : root_(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

std::vector<std::int32_t> ProcFolder::pids() const {
  std::vector<std::int32_t> list;
  FileDescriptor descriptor(::openat(root_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const Folder folder(descriptor.valid() ? ::fdopendir(descriptor.get()) : nullptr);
  if (folder == nullptr) return list;
  descriptor.release();
  while (const dirent* entry = ::readdir(folder.get())) {
    if (const auto pid = pidOf(entry->d_name)) list.push_back(*pid);
  }
  return list;
}

std::optional<std::uint32_t> ProcFolder::owner(std::int32_t pid) const {
  struct stat status {};
  if (::fstatat(root_.get(), ProcessPath(pid, "").text(), &status, 0) != 0) return std::nullopt;
  return status.st_uid;
}

FileDescriptor ProcFolder::open(std::int32_t pid, const char* name) const {
  return FileDescriptor(::openat(root_.get(), ProcessPath(pid, name).text(), kReading));
}

std::optional<std::string_view> ProcFolder::read(std::int32_t pid, const char* name,
                                                 std::span<char> buffer) const {
  return read(ProcessPath(pid, name).text(), buffer);
}

std::optional<std::string_view> ProcFolder::read(const char* name, std::span<char> buffer) const {
  const FileDescriptor file(::openat(root_.get(), name, kReading));
  if (!file.valid()) return std::nullopt;
  return content(buffer, ::read(file.get(), buffer.data(), buffer.size()));
}

std::optional<std::string_view> ProcFolder::beginning(const char* name, std::span<char> buffer) const {
  const FileDescriptor file(::openat(root_.get(), name, kReading));
  const ssize_t count = file.valid() ? ::read(file.get(), buffer.data(), buffer.size()) : -1;
  if (count < 0) return std::nullopt;
  return std::string_view(buffer.data(), static_cast<std::size_t>(count));
}

std::optional<std::string_view> ProcFolder::link(std::int32_t pid, const char* name,
                                                 std::span<char> buffer) const {
  return content(buffer,
                 ::readlinkat(root_.get(), ProcessPath(pid, name).text(), buffer.data(), buffer.size()));
}

std::optional<std::string_view> readAgain(const FileDescriptor& file, std::span<char> buffer) {
  return content(buffer, ::pread(file.get(), buffer.data(), buffer.size(), 0));
}

}  // namespace monitor::platform
