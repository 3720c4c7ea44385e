// SPDX-License-Identifier: MIT
#include "Tools/vesk/ApplicationChoice.h"

#include <fmt/format.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <optional>

#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/TextWidth.h"

namespace monitor::vesk {
namespace {

using Candidates = std::vector<const AudioApplication*>;
using Rule = std::function<bool(const AudioApplication&)>;

// Texts that differ in case, width or composition only become equal.
std::string folded(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* normalizer = icu::Normalizer2::getNFKCCasefoldInstance(status);
  if (U_FAILURE(status)) return std::string(text);
  const auto source =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int>(text.size())));
  std::string result;
  normalizer->normalize(source, status).toUTF8String(result);
  return U_FAILURE(status) ? std::string(text) : result;
}

std::optional<std::int32_t> pidOf(std::string_view text) {
  std::int32_t pid = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, pid);
  if (error != std::errc{} || stop != end || pid <= 0) return std::nullopt;
  return pid;
}

std::vector<Rule> rulesFor(std::string_view text) {
  std::vector<Rule> rules;
  rules.emplace_back([text](const AudioApplication& app) { return app.id == text || app.bundleID == text; });
  if (const auto pid = pidOf(text)) {
    rules.emplace_back([pid](const AudioApplication& app) {
      return std::any_of(app.processes.begin(), app.processes.end(),
                         [pid](const ProcessKey& key) { return key.pid == *pid; });
    });
  }
  rules.emplace_back([wanted = folded(text)](const AudioApplication& app) {
    return folded(app.name) == wanted || folded(app.id) == wanted ||
           (app.bundleID && folded(*app.bundleID) == wanted);
  });
  if (!text.empty()) {
    rules.emplace_back([wanted = folded(text)](const AudioApplication& app) {
      return folded(app.name).compare(0, wanted.size(), wanted) == 0;
    });
  }
  return rules;
}

std::string listed(const Candidates& candidates) {
  std::string lines;
  for (const AudioApplication* app : candidates) {
    lines += fmt::format("\n  {}  ({}", printable(app->name), printable(app->id));
    if (!app->processes.empty()) lines += fmt::format(", pid {}", app->processes.front().pid);
    lines += ')';
  }
  return lines;
}

}  // namespace

const AudioApplication& chooseApplication(const std::vector<AudioApplication>& list, std::string_view text,
                                          std::string_view kind) {
  for (const Rule& rule : rulesFor(text)) {
    Candidates found;
    for (const AudioApplication& app : list) {
      if (rule(app)) found.push_back(&app);
    }
    if (found.size() == 1) return *found.front();
    if (found.size() > 1) {
      throw CommandError(ExitCode::NoMatch, fmt::format("\"{}\" is more than one {}. Give an id or a pid:{}",
                                                        printable(text), kind, listed(found)));
    }
  }
  if (list.empty()) throw CommandError(ExitCode::NoMatch, fmt::format("There is no {}.", kind));
  Candidates all;
  for (const AudioApplication& app : list) all.push_back(&app);
  throw CommandError(ExitCode::NoMatch,
                     fmt::format("\"{}\" is no {}. There is:{}", printable(text), kind, listed(all)));
}

}  // namespace monitor::vesk
