// SPDX-License-Identifier: MIT
#include "MonitorCore/Recording.h"

#include <array>

namespace monitor {

void requireKnownVersion(const json::Reader& line) {
  const auto version = line.find("version");
  if (!version || version->integer<std::int64_t>() == kRecordingVersion) return;
  version->fail("this program reads version " + std::to_string(kRecordingVersion) + " of the format only");
}

// Piece by piece, because std::getline() would take all of a file that has no line feed into memory.
bool RecordingReader::readLine() {
  constexpr std::string_view kBlank = " \t\r";
  std::array<char, 65536> piece;
  do {
    line_.clear();
    ++lineNumber_;
    bool more = true;
    while (more) {
      in_.getline(piece.data(), static_cast<std::streamsize>(piece.size()));
      const auto taken = static_cast<std::size_t>(in_.gcount());
      position_ += taken;
      // The piece is full and the line goes on: the stream calls that a failure.
      more = in_.fail() && taken + 1 == piece.size();
      if (more) in_.clear(in_.rdstate() & ~std::ios::failbit);
      line_.append(piece.data(),
                   in_.good() && !more ? taken - 1 : taken);  // the line feed is counted but not stored
      if (line_.size() > kLongestLine) {
        fail("the line is longer than " + std::to_string(kLongestLine >> 20U) + " MiB");
      }
    }
    if (in_.bad()) fail("the file cannot be read");
    if (line_.find_first_not_of(kBlank) != std::string::npos) return true;
  } while (in_);
  return false;
}

void RecordingReader::fail(const std::string& message) const {
  throw RecordingError(name_ + ':' + std::to_string(lineNumber_) + ": " + message);
}

}  // namespace monitor
