// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor {

// A recording that cannot be read. what() begins with the file's name and the line: "week.jsonl:12: ".
class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The version of the format that this program writes, and the only one it reads.
inline constexpr std::int64_t kRecordingVersion = 1;

// Throws json::DecodeError where `line`, the object of one line, is of a version that this program does not
// know. A line that names none is of version 1.
void requireKnownVersion(const json::Reader& line);

// Reads a recording (one JSON object a line, see docs/recording.md) as a stream: never more than one line is
// held.
class RecordingReader {
 public:
  // Longest line that is accepted, in bytes: a sample of some forty thousand processes.
  static constexpr std::size_t kLongestLine = 16U << 20U;

  // `in` must outlive the reader; `name` stands for it in errors.
  RecordingReader(std::istream& in, std::string name) : in_(in), name_(std::move(name)) {}

  // The next line that is not empty, turned into a record by `decode`; nothing at the end. Throws
  // RecordingError when the stream cannot be read, a line is too long, or `decode` throws json::DecodeError.
  template <class Decode>
  [[nodiscard]] std::optional<std::invoke_result_t<Decode, std::string_view>> next(Decode decode) {
    if (!readLine()) return std::nullopt;
    try {
      return decode(std::string_view(line_));
    } catch (const json::DecodeError& error) {
      fail(error.what());
    }
  }

  // Number of the line that was read last, from 1.
  [[nodiscard]] std::size_t lineNumber() const { return lineNumber_; }
  // Bytes that have been read so far.
  [[nodiscard]] std::uint64_t position() const { return position_; }

 private:
  [[nodiscard]] bool readLine();
  [[noreturn]] void fail(const std::string& message) const;

  std::istream& in_;
  std::string name_;
  std::string line_;
  std::size_t lineNumber_ = 0;
  std::uint64_t position_ = 0;
};

}  // namespace monitor
