// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {

// /proc, or a folder of the same form, for reading many small files again and again: relative to one
// descriptor and into the caller's memory. Calls are thread-safe.
class ProcFolder {
 public:
  explicit ProcFolder(const std::string& root);

  // The numbers among the names in the folder, ascending as a rule; none when it cannot be listed.
  [[nodiscard]] std::vector<std::int32_t> pids() const;
  // The effective user id of a process, without opening anything of it; nothing when there is no such
  // process.
  [[nodiscard]] std::optional<std::uint32_t> owner(std::int32_t pid) const;
  // A file of a process, to be read with readAgain(); not valid when it cannot be opened.
  [[nodiscard]] FileDescriptor open(std::int32_t pid, const char* name) const;
  // The whole of a file of a process. Nothing when it is missing, refused or does not fit into `buffer`;
  // errno tells which.
  [[nodiscard]] std::optional<std::string_view> read(std::int32_t pid, const char* name,
                                                     std::span<char> buffer) const;
  // The same of a file that is no process's.
  [[nodiscard]] std::optional<std::string_view> read(const char* name, std::span<char> buffer) const;
  // As much of it as fits.
  [[nodiscard]] std::optional<std::string_view> beginning(const char* name, std::span<char> buffer) const;
  // What a link of a process says; nothing when there is none or it may not be read.
  [[nodiscard]] std::optional<std::string_view> link(std::int32_t pid, const char* name,
                                                     std::span<char> buffer) const;

 private:
  FileDescriptor root_;
};

// The whole of an open file from its beginning; nothing when it cannot be read, or does not fit.
[[nodiscard]] std::optional<std::string_view> readAgain(const FileDescriptor& file, std::span<char> buffer);

}  // namespace monitor::platform
