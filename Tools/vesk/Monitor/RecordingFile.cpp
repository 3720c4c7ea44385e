// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/RecordingFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>
#include <utility>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {
namespace {

// Whether the last line of a plain file has no end. What would be appended to it could not be read.
bool endsInsideALine(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error) || std::filesystem::file_size(path, error) == 0) {
    return false;
  }
  std::ifstream file(path, std::ios::binary);
  char last = '\n';
  return file.seekg(-1, std::ios::end) && file.get(last) && last != '\n';
}

}  // namespace

RecordingFile::RecordingFile(std::filesystem::path path) : path_(std::move(path)) {
  if (endsInsideALine(path_)) {
    throw CommandError(
        ExitCode::Failed,
        fmt::format("{}: its last line has no end, so nothing can be recorded after it. Expected "
                    "a recording or a file that does not exist.",
                    path_.string()));
  }
  descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor_ < 0) fail(errno);
}

RecordingFile::~RecordingFile() {
  ::close(descriptor_);
}

void RecordingFile::append(std::string_view line) {
  const std::string text = std::string(line) + '\n';
  struct stat before {};
  const bool isFile = ::fstat(descriptor_, &before) == 0 && S_ISREG(before.st_mode);
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = ::write(descriptor_, text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      const int error = written < 0 ? errno : ENOSPC;
      if (isFile && done > 0 && ::ftruncate(descriptor_, before.st_size) != 0) fail(errno);
      fail(error);
    }
    done += static_cast<std::size_t>(written);
  }
}

void RecordingFile::fail(int error) const {
  throw CommandError(ExitCode::Failed,
                     fmt::format("{}: {}", path_.string(), std::generic_category().message(error)));
}

}  // namespace monitor::vesk
