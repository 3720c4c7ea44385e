// SPDX-License-Identifier: MIT
#include "Platform/Linux/Host/HostFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <system_error>

#include "Platform/Linux/Base/Folder.h"

namespace monitor::platform {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

std::optional<std::string> HostFiles::text(const std::filesystem::path& path) const {
  const Descriptor file(::open((root_ / path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) return std::nullopt;
  std::string content;
  std::array<char, 16'384> chunk;
  while (true) {
    const ssize_t count = ::read(file.get(), chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return content;
    if (content.size() + static_cast<std::size_t>(count) > kLimit) return std::nullopt;
    content.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

std::optional<std::string> HostFiles::line(const std::filesystem::path& path) const {
  const auto content = text(path);
  if (!content) return std::nullopt;
  return std::string(trimmed(std::string_view(*content).substr(0, content->find('\n'))));
}

std::optional<double> HostFiles::number(const std::filesystem::path& path) const {
  const auto text = line(path);
  if (!text) return std::nullopt;
  double value = 0.0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error != std::errc() || end != text->data() + text->size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

std::vector<std::string> HostFiles::names(const std::filesystem::path& folder) const {
  std::vector<std::string> list;
  const Folder open(::opendir((root_ / folder).c_str()));
  if (open == nullptr) return list;
  while (const dirent* entry = ::readdir(open.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") list.emplace_back(name);
  }
  std::sort(list.begin(), list.end());
  return list;
}

bool HostFiles::exists(const std::filesystem::path& path) const {
  std::error_code error;
  return std::filesystem::exists(root_ / path, error);
}

std::optional<std::uint64_t> unsignedNumber(std::string_view text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> list;
  while (true) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return list;
    text.remove_prefix(begin);
    const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
    list.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

}  // namespace monitor::platform
