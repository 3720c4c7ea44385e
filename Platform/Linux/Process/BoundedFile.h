// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace monitor::platform {

// A file descriptor that is closed with its holder; below zero it is none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor& operator=(FileDescriptor&&) = delete;
  ~FileDescriptor();

  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] bool valid() const { return fd_ >= 0; }
  // Leaves the descriptor to somebody else.
  void release() { fd_ = -1; }

 private:
  int fd_;
};

// A folder to open files relative to; not valid when there is none.
[[nodiscard]] FileDescriptor openFolder(const std::string& path);

// Reading never waits, whatever lies under the name, and never takes in more than `limit` bytes.

// The whole of a regular file. Nothing for one that is longer, missing, unreadable or no regular file.
[[nodiscard]] std::optional<std::string> readFile(const std::string& path, std::size_t limit);
// The same relative to a folder, and never through a symbolic link as the last component.
[[nodiscard]] std::optional<std::string> readFileIn(const FileDescriptor& folder, const char* name,
                                                    std::size_t limit);
// As readFile(), but a longer file is cut off instead of refused.
[[nodiscard]] std::optional<std::string> readBeginning(const std::string& path, std::size_t limit);

// What a symbolic link says, at most 4,096 bytes; nothing when there is none or it may not be read.
[[nodiscard]] std::optional<std::string> readLink(const std::string& path);

}  // namespace monitor::platform
