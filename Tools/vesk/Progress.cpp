// SPDX-License-Identifier: MIT
#include "Tools/vesk/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

constexpr double kRedrawInterval = 0.1;  // seconds
constexpr std::size_t kBarCells = 24;
constexpr const char* kWipe = "\r\x1b[K";

}  // namespace

Progress::Progress(const Console& console, const Clock& clock, std::string label, std::uint64_t total)
    : console_(console),
      clock_(clock),
      label_(printable(label)),
      total_(total),
      lastDraw_(-std::numeric_limits<double>::infinity()) {}

Progress::~Progress() {
  if (drawn_) console_.err << kWipe << std::flush;
}

void Progress::update(std::uint64_t done) {
  if (!console_.errTerminal.interactive) return;
  const double now = clock_.now();
  if (now - lastDraw_ < kRedrawInterval) return;
  lastDraw_ = now;
  drawn_ = true;
  draw(done);
}

void Progress::draw(std::uint64_t done) {
  std::string line = label_ + "  ";
  if (total_ == 0) {
    line += std::to_string(done);
  } else {
    const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const auto full = static_cast<std::size_t>(share * static_cast<double>(kBarCells));
    line += '[' + std::string(full, '#') + std::string(kBarCells - full, '.') + ']';
    line += fmt::format(" {:3}%", static_cast<int>(share * 100.0));
  }
  // The last cell stays free: writing into it makes some terminals wrap.
  const std::size_t room = console_.errTerminal.columns.value_or(80);
  console_.err << kWipe << shortened(line, room > 1 ? room - 1 : 1) << std::flush;
}

}  // namespace monitor::vesk
