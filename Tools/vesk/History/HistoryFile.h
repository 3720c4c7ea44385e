// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "MonitorCore/MonitorHistoryStore.h"
#include "MonitorCore/MonitorStorageError.h"

namespace monitor::vesk {

enum class IfMissing { Create, Refuse };

// Opens the history for a command. Looks at the file's schema version first, without writing, and refuses one
// that a newer program has made, which the store itself would not. Throws CommandError; its text names the
// file.
[[nodiscard]] std::unique_ptr<MonitorHistoryStore> openHistory(const std::filesystem::path& file,
                                                               IfMissing ifMissing);

// Bytes of the file and its companions, as far as they can be told.
[[nodiscard]] std::uintmax_t historyBytes(const std::filesystem::path& file);

// All points of the range, in as many queries as they take: the store gives 5000 at a time.
[[nodiscard]] std::vector<HistoryPoint> allPoints(MonitorHistoryStore& store, MetricID metric,
                                                  std::string_view app, Date from, Date through);

[[noreturn]] void failNaming(const std::filesystem::path& file, const char* what);

// Runs `work` on the store of `file` and puts the file's name before what the store complains about.
template <class Work>
auto naming(const std::filesystem::path& file, Work&& work) {
  try {
    return work();
  } catch (const MonitorStorageError& error) {
    failNaming(file, error.what());
  }
}

}  // namespace monitor::vesk
