// SPDX-License-Identifier: MIT
#include "Tools/vesk/TextWidth.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>

namespace monitor::vesk {
namespace {

constexpr UChar32 kReplacement = 0xFFFD;

// Calls visit(code point or a negative number, first byte's position, position after it) for the whole text.
template <class Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto length = static_cast<std::int64_t>(text.size());
  std::int64_t position = 0;
  while (position < length) {
    const std::int64_t start = position;
    UChar32 codePoint = 0;
    U8_NEXT(bytes, position, length, codePoint);
    visit(codePoint, static_cast<std::size_t>(start), static_cast<std::size_t>(position));
  }
}

bool isUnsafe(UChar32 codePoint) {
  if (codePoint < 0 || u_charType(codePoint) == U_CONTROL_CHAR) return true;
  if (codePoint == 0x2028 || codePoint == 0x2029) return true;  // line and paragraph separators
  // Embeddings, overrides and isolates turn the rest of the line around.
  return (codePoint >= 0x202A && codePoint <= 0x202E) || (codePoint >= 0x2066 && codePoint <= 0x2069);
}

std::size_t cellsOf(UChar32 codePoint) {
  switch (u_charType(codePoint)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_FORMAT_CHAR:
      return 0;
    default:
      break;
  }
  switch (u_getIntPropertyValue(codePoint, UCHAR_EAST_ASIAN_WIDTH)) {
    case U_EA_WIDE:
    case U_EA_FULLWIDTH:
      return 2;
    default:
      return 1;
  }
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  forEachCodePoint(text, [&](UChar32 codePoint, std::size_t start, std::size_t end) {
    if (isUnsafe(codePoint)) {
      result += "\xEF\xBF\xBD";
    } else {
      result += text.substr(start, end - start);
    }
  });
  return result;
}

std::size_t textWidth(std::string_view text) {
  std::size_t cells = 0;
  forEachCodePoint(text, [&](UChar32 codePoint, std::size_t, std::size_t) {
    cells += cellsOf(codePoint < 0 ? kReplacement : codePoint);
  });
  return cells;
}

std::string shortened(std::string_view text, std::size_t cells) {
  if (textWidth(text) <= cells) return std::string(text);
  if (cells == 0) return {};
  std::size_t kept = 0;  // bytes
  std::size_t used = 0;  // cells
  bool full = false;
  forEachCodePoint(text, [&](UChar32 codePoint, std::size_t, std::size_t end) {
    const std::size_t width = cellsOf(codePoint < 0 ? kReplacement : codePoint);
    // One cell is kept for the ellipsis; marks that follow the last kept character stay with it.
    if (full || used + width > cells - 1) {
      full = true;
      return;
    }
    used += width;
    kept = end;
  });
  return std::string(text.substr(0, kept)) + "…";
}

}  // namespace monitor::vesk
