// SPDX-License-Identifier: MIT
#include "Tools/vesk/Commands/InputFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace monitor::vesk {

std::string readInputFile(const std::string& path) {
  constexpr std::size_t kLargest = 64U << 20U;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw CommandError(ExitCode::Failed, path + ": " + std::strerror(errno));
  std::string bytes;
  std::string piece(65536, '\0');
  while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0) {
    bytes.append(piece, 0, static_cast<std::size_t>(file.gcount()));
    if (bytes.size() > kLargest) throw badInput(path, "the file is larger than 64 MiB");
  }
  if (file.bad()) throw badInput(path, "the file cannot be read");
  return bytes;
}

CommandError badInput(const std::string& path, const std::string& what) {
  return {ExitCode::Failed, path + ": " + what};
}

}  // namespace monitor::vesk
