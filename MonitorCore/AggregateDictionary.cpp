// SPDX-License-Identifier: MIT
#include "MonitorCore/AggregateDictionary.h"

#include <utility>

namespace monitor {

DescriptionDictionary aggregateDictionary(const AggregateDeviceDescription& description) {
  std::vector<DescriptionValue> subdevices;
  for (const auto& subdevice : description.subdevices) {
    subdevices.push_back({DescriptionDictionary{{"uid", {subdevice.uid}},
                                                {"channels-in", {subdevice.channelsIn}},
                                                {"channels-out", {subdevice.channelsOut}}}});
  }
  std::vector<DescriptionValue> taps;
  for (const auto& tap : description.taps) {
    taps.push_back({DescriptionDictionary{{"uid", {tap.uid}}, {"drift", {tap.drift}}}});
  }
  return {{"name", {description.name}},         {"uid", {description.uid}},
          {"private", {description.isPrivate}}, {"stacked", {description.isStacked}},
          {"master", {description.master}},     {"subdevices", {std::move(subdevices)}},
          {"taps", {std::move(taps)}},          {"tapautostart", {description.tapAutoStart}}};
}

}  // namespace monitor
