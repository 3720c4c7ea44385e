// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/RecordingReader.h"

#include <fmt/format.h>

#include <streambuf>
#include <utility>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk {

RecordingReader::RecordingReader(std::istream& in, std::string name, std::size_t longestLine)
    : in_(in), name_(std::move(name)), longestLine_(longestLine) {}

std::optional<std::string> RecordingReader::next() {
  std::string line;
  try {
    while (readLine(line)) {
      if (line.find_first_not_of(" \t") != std::string::npos) return line;
    }
  } catch (const std::ios_base::failure& failure) {  // a disk that fails
    throw CommandError(ExitCode::Failed,
                       fmt::format("{}: cannot be read any further: {}.", place(), failure.what()));
  }
  return std::nullopt;
}

std::string RecordingReader::place() const {
  return fmt::format("{}:{}", name_, line_);
}

// Like getline, except that it stops before a line without an end has filled the memory.
bool RecordingReader::readLine(std::string& line) {
  line.clear();
  if (!in_) return false;
  ++line_;
  std::streambuf& buffer = *in_.rdbuf();
  for (;;) {
    const int character = buffer.sbumpc();
    if (character == std::char_traits<char>::eof()) {
      in_.setstate(std::ios::eofbit);
      return !line.empty();
    }
    ++position_;
    if (character == '\n') break;
    if (line.size() == longestLine_) {
      throw CommandError(ExitCode::Failed,
                         fmt::format("{}: the line is longer than {} bytes.", place(), longestLine_));
    }
    line += static_cast<char>(character);
  }
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

}  // namespace monitor::vesk
