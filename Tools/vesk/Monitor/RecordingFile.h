// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string_view>

namespace monitor::vesk {

// A recording that grows line by line. It is readable up to its last line at every moment, also after a write
// that failed: what was written of that line is taken back.
class RecordingFile {
 public:
  // Continues a recording that exists; creates one for the owner alone (0600). Throws CommandError with the
  // file's name where it cannot be written, is a folder, or ends inside a line.
  explicit RecordingFile(std::filesystem::path path);
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  // `line` without the line feed. Throws CommandError with the file's name.
  void append(std::string_view line);

 private:
  [[noreturn]] void fail(int error) const;

  std::filesystem::path path_;
  int descriptor_ = -1;
};

}  // namespace monitor::vesk
