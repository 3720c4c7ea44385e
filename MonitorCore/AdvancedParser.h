// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "MonitorCore/AdvancedDetails.h"
#include "MonitorCore/AdvancedSample.h"
#include "MonitorCore/Date.h"
#include "MonitorCore/ProcessKey.h"

namespace monitor {

// The processes the caller knows, by pid.
using ProcessIdentities = std::unordered_map<std::int32_t, ProcessKey>;

namespace AdvancedParser {

// Turns the property-list output of one run of the power-metrics tool into a sample dated `at`. The output
// may hold several documents parted by zero bytes; the last one counts. Because of that split a binary list
// never arrives whole; only XML is read. What is missing or malformed below the top level only removes its
// reading; tasks of processes that are not among `identities` are skipped. `details` are those of the
// platform whose tool it was.
//
// Throws MonitorError kPropertyListReadCorrupt when there is no document, when it is not a property list or
// breaks the limits of guardPropertyList(), or when its top level is not a dictionary. Safe on hostile input
// of any size the caller lets through: linear time, bounded depth. Pure; any thread.
[[nodiscard]] AdvancedSample parse(std::string_view output, const ProcessIdentities& identities, Date at,
                                   const AdvancedDetails& details = kMacAdvancedDetails);

}  // namespace AdvancedParser

}  // namespace monitor
