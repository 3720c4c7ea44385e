// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopKeys.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace monitor::vesk {
namespace {

constexpr char kEscape = '\x1b';
constexpr std::size_t kLongestSequence = 16;

std::optional<TopKey> plainKey(char character) {
  switch (character) {
    case 'q':
    case 'Q':
    case '\x03':  // Ctrl-C, where the terminal does not make a signal of it
      return TopKey::Quit;
    case 'c':
      return TopKey::SortByCpu;
    case 'm':
      return TopKey::SortByMemory;
    case 'd':
      return TopKey::SortByDisk;
    case 'p':
      return TopKey::Projects;
    case ' ':
      return TopKey::Pause;
    case 'h':
    case '?':
      return TopKey::Help;
    case '\x0c':  // Ctrl-L
      return TopKey::Redraw;
    case 'k':
      return TopKey::Up;
    case 'j':
      return TopKey::Down;
    case 'g':
      return TopKey::Home;
    case 'G':
      return TopKey::End;
    default:
      return std::nullopt;
  }
}

// What follows the escape character, without what is the same for all keyboards.
std::optional<TopKey> sequenceKey(std::string_view sequence) {
  constexpr std::array<std::pair<std::string_view, TopKey>, 14> kKeys{{
      {"[A", TopKey::Up},
      {"OA", TopKey::Up},
      {"[B", TopKey::Down},
      {"OB", TopKey::Down},
      {"[5~", TopKey::PageUp},
      {"[6~", TopKey::PageDown},
      {"[H", TopKey::Home},
      {"OH", TopKey::Home},
      {"[1~", TopKey::Home},
      {"[7~", TopKey::Home},
      {"[F", TopKey::End},
      {"OF", TopKey::End},
      {"[4~", TopKey::End},
      {"[8~", TopKey::End},
  }};
  const auto found =
      std::find_if(kKeys.begin(), kKeys.end(), [&](const auto& key) { return key.first == sequence; });
  return found == kKeys.end() ? std::nullopt : std::optional(found->second);
}

bool endsSequence(const std::string& sequence) {
  if (sequence.size() < 3) return false;
  if (sequence[1] == 'O') return true;
  const auto last = static_cast<unsigned char>(sequence.back());
  return last < 0x20 || (last >= 0x40 && last <= 0x7E) || sequence.size() >= kLongestSequence;
}

}  // namespace

std::vector<TopKey> KeyDecoder::feed(std::string_view bytes) {
  std::vector<TopKey> keys;
  const auto push = [&keys](std::optional<TopKey> key) {
    if (key) keys.push_back(*key);
  };
  for (const char character : bytes) {
    if (character == kEscape) {
      sequence_ = character;
    } else if (sequence_.empty()) {
      push(plainKey(character));
    } else if (sequence_.size() == 1 && character != '[' && character != 'O') {
      // The escape key by itself, and then this one.
      sequence_.clear();
      push(plainKey(character));
    } else {
      sequence_ += character;
      if (!endsSequence(sequence_)) continue;
      push(sequenceKey(std::string_view(sequence_).substr(1)));
      sequence_.clear();
    }
  }
  return keys;
}

void applyKey(TopState& state, TopKey key, std::size_t pageRows) {
  const std::size_t rows = topRows(state).size();
  const std::size_t last = rows > pageRows ? rows - pageRows : 0;
  const auto sortBy = [&state](TopSort sort) {
    state.sort = sort;
    state.firstRow = 0;
  };
  state.firstRow = std::min(state.firstRow, last);
  switch (key) {
    case TopKey::SortByCpu:
      return sortBy(TopSort::Cpu);
    case TopKey::SortByMemory:
      return sortBy(TopSort::Memory);
    case TopKey::SortByDisk:
      return sortBy(TopSort::Disk);
    case TopKey::Projects:
      state.projects = !state.projects;
      state.firstRow = 0;
      return;
    case TopKey::Pause:
      state.paused = !state.paused;
      return;
    case TopKey::Help:
      state.help = !state.help;
      return;
    case TopKey::Up:
      state.firstRow -= std::min<std::size_t>(state.firstRow, 1);
      return;
    case TopKey::Down:
      state.firstRow = std::min(state.firstRow + 1, last);
      return;
    case TopKey::PageUp:
      state.firstRow -= std::min(state.firstRow, pageRows);
      return;
    case TopKey::PageDown:
      state.firstRow = std::min(state.firstRow + pageRows, last);
      return;
    case TopKey::Home:
      state.firstRow = 0;
      return;
    case TopKey::End:
      state.firstRow = last;
      return;
    case TopKey::Quit:
    case TopKey::Redraw:
      return;
  }
}

}  // namespace monitor::vesk
