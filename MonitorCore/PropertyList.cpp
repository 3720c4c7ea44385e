// SPDX-License-Identifier: MIT
#include "MonitorCore/PropertyList.h"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include <plist/plist.h>

#include "MonitorCore/MonitorError.h"
#include "MonitorCore/PropertyListGuard.h"

namespace monitor {

bool PropertyListValue::isDictionary() const {
  return plist_get_node_type(node_) == PLIST_DICT;
}

std::optional<double> PropertyListValue::number() const {
  if (plist_get_node_type(node_) != PLIST_REAL)
    return std::nullopt;  // the guard leaves no other kind of number
  double value = 0.0;
  plist_get_real_val(node_, &value);
  return value;
}

std::optional<double> PropertyListValue::numberOrBoolean() const {
  if (plist_get_node_type(node_) != PLIST_BOOLEAN) return number();
  std::uint8_t value = 0;
  plist_get_bool_val(node_, &value);
  return value != 0 ? 1.0 : 0.0;
}

std::optional<PropertyListValue> PropertyListValue::find(const char* key) const {
  if (!isDictionary()) return std::nullopt;
  void* const node = plist_dict_get_item(node_, key);
  return node == nullptr ? std::nullopt : std::optional(PropertyListValue(node));
}

std::optional<std::vector<PropertyListValue>> PropertyListValue::elements() const {
  if (plist_get_node_type(node_) != PLIST_ARRAY) return std::nullopt;
  std::vector<PropertyListValue> list;
  list.reserve(plist_array_get_size(node_));
  void* iterator = nullptr;
  plist_array_new_iter(node_, &iterator);
  const std::unique_ptr<void, decltype(&std::free)> owner(iterator, &std::free);
  while (true) {
    void* element = nullptr;
    plist_array_next_item(node_, iterator, &element);
    if (element == nullptr) return list;
    list.push_back(PropertyListValue(element));
  }
}

PropertyList::PropertyList(std::string_view text) {
  const std::string guarded = guardPropertyList(text);
  if (guarded.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw MonitorError(MonitorError::kCocoaDomain, MonitorError::kPropertyListReadCorrupt,
                       "The property list is not valid: it is larger than 4 GiB.");
  }
  void* node = nullptr;
  plist_from_xml(guarded.c_str(), static_cast<std::uint32_t>(guarded.size()), &node);
  root_.reset(node);
  if (node == nullptr) {
    throw MonitorError(MonitorError::kCocoaDomain, MonitorError::kPropertyListReadCorrupt,
                       "The property list is not valid: a key holds an unknown entity.");
  }
}

void PropertyList::Free::operator()(void* node) const {
  plist_free(node);
}

}  // namespace monitor
