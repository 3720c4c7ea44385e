// SPDX-License-Identifier: MIT
#include "Tools/vesk/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>

namespace monitor::vesk {
namespace {

constexpr std::size_t kDefaultColumns = 80;
constexpr std::size_t kMostColumns = 10'000;

std::optional<std::string> variable(const char* name) {
  const char* value =
      std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing in this program sets variables
  if (value == nullptr) return std::nullopt;
  return value;
}

std::optional<std::size_t> wholeNumber(const std::string& text) {
  std::size_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end || number == 0 || number > kMostColumns) return std::nullopt;
  return number;
}

const char* escapeSequence(Colour colour) {
  switch (colour) {
    case Colour::Plain:
      return "";
    case Colour::Bold:
      return "\x1b[1m";
    case Colour::Dim:
      return "\x1b[2m";
    case Colour::Red:
      return "\x1b[31m";
    case Colour::Green:
      return "\x1b[32m";
    case Colour::Yellow:
      return "\x1b[33m";
  }
  return "";
}

}  // namespace

Terminal describeTerminal(const TerminalFacts& facts) {
  Terminal terminal;
  if (!facts.isTerminal) return terminal;
  const bool dumb = facts.term == "dumb";
  terminal.interactive = !dumb;
  terminal.colours = !dumb && (!facts.noColor || facts.noColor->empty());
  if (facts.windowColumns > 0) {
    terminal.columns = facts.windowColumns;
  } else {
    terminal.columns =
        facts.columns ? wholeNumber(*facts.columns).value_or(kDefaultColumns) : kDefaultColumns;
  }
  return terminal;
}

Terminal terminalOf(int descriptor) {
  TerminalFacts facts;
  facts.isTerminal = ::isatty(descriptor) == 1;
  if (facts.isTerminal) {
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0) facts.windowColumns = size.ws_col;
  }
  facts.noColor = variable("NO_COLOR");
  facts.term = variable("TERM");
  facts.columns = variable("COLUMNS");
  return describeTerminal(facts);
}

std::string coloured(const Terminal& terminal, Colour colour, std::string_view text) {
  if (!terminal.colours || colour == Colour::Plain) return std::string(text);
  return escapeSequence(colour) + std::string(text) + "\x1b[0m";
}

}  // namespace monitor::vesk
