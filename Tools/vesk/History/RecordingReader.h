// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>

namespace monitor::vesk {

// The lines of a recording with their numbers. Empty lines are passed over.
class RecordingReader {
 public:
  // `name` is how errors call the input. `in` outlives the reader.
  RecordingReader(std::istream& in, std::string name, std::size_t longestLine = 64U << 20U);

  // The next line without its ending; nothing at the end. Throws CommandError for a line beyond 64 MiB and
  // when reading fails.
  [[nodiscard]] std::optional<std::string> next();
  // Bytes read so far.
  [[nodiscard]] std::uint64_t position() const { return position_; }
  // "name:17", the line that next() returned last.
  [[nodiscard]] std::string place() const;

 private:
  bool readLine(std::string& line);

  std::istream& in_;
  std::string name_;
  std::size_t longestLine_;
  std::uint64_t position_ = 0;
  std::uint64_t line_ = 0;
};

}  // namespace monitor::vesk
