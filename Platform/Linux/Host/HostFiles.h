// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monitor::platform {

// The kernel's files below one folder, "/" on a live machine, a made-up tree in tests. Every read is bounded;
// a file that is missing, unreadable or longer than the bound is absent.
class HostFiles {
 public:
  static constexpr std::size_t kLimit = 1 << 20;

  explicit HostFiles(std::filesystem::path root = "/") : root_(std::move(root)) {}

  // `path` is relative to the root: "proc/stat".
  [[nodiscard]] std::optional<std::string> text(const std::filesystem::path& path) const;
  // The first line, without the white space around it.
  [[nodiscard]] std::optional<std::string> line(const std::filesystem::path& path) const;
  // A line that is one decimal number and nothing else.
  [[nodiscard]] std::optional<double> number(const std::filesystem::path& path) const;
  // Names in a folder, sorted; none when it cannot be listed.
  [[nodiscard]] std::vector<std::string> names(const std::filesystem::path& folder) const;
  [[nodiscard]] bool exists(const std::filesystem::path& path) const;

 private:
  std::filesystem::path root_;
};

// The decimal digits of `text` as a number; nothing unless all of it is digits and fits.
[[nodiscard]] std::optional<std::uint64_t> unsignedNumber(std::string_view text);
// The pieces between blanks and tabs.
[[nodiscard]] std::vector<std::string_view> words(std::string_view text);

}  // namespace monitor::platform
