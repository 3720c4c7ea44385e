// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace monitor {

// One value of a parsed property list; valid as long as the list. Asking for what a value is not gives
// nothing.
class PropertyListValue {
 public:
  [[nodiscard]] bool isDictionary() const;
  // A number that is not a Boolean. May be infinite.
  [[nodiscard]] std::optional<double> number() const;
  // A number, or a Boolean as 1 or 0.
  [[nodiscard]] std::optional<double> numberOrBoolean() const;
  // The value under `key` of a dictionary; of a key that stands twice the last one.
  [[nodiscard]] std::optional<PropertyListValue> find(const char* key) const;
  // The elements of an array; nothing for any other value.
  [[nodiscard]] std::optional<std::vector<PropertyListValue>> elements() const;

 private:
  friend class PropertyList;
  explicit PropertyListValue(void* node) : node_(node) {}

  void* node_;
};

// An XML property list, however hostile. Other formats are not recognised. Contents of text, data and dates
// are not kept.
class PropertyList {
 public:
  // Throws MonitorError kPropertyListReadCorrupt on text that is not a property list or breaks the limits of
  // guardPropertyList().
  explicit PropertyList(std::string_view text);

  [[nodiscard]] PropertyListValue root() const { return PropertyListValue(root_.get()); }

 private:
  struct Free {
    void operator()(void* node) const;
  };
  std::unique_ptr<void, Free> root_;
};

}  // namespace monitor
