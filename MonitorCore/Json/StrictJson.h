// SPDX-License-Identifier: MIT
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

// The one way JSON enters and leaves the system. The library underneath converts silently (true to 1, 1.5 to 1,
// 300 to 44); this layer does not: every read names the exact type it wants, integers are range-checked, and an error
// carries the path of the value that broke the rule.
namespace monitor::json {

// Input that is not JSON, or not the JSON that was asked for. what() names the path and what was expected there.
class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value that JSON cannot carry (a non-finite number, text that is not UTF-8).
class EncodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A cursor at one value of a parsed document. Valid as long as the document; copies are cheap. `null` and a missing
// key are the same to find(). All accessors throw DecodeError.
class Reader {
 public:
  [[nodiscard]] bool isNull() const;
  [[nodiscard]] bool isString() const;
  [[nodiscard]] bool isNumber() const;
  [[nodiscard]] bool isObject() const;
  [[nodiscard]] bool isArray() const;

  [[nodiscard]] std::string string() const;
  // The text in double quotes, cut and made printable, for messages.
  [[nodiscard]] std::string quoted() const;
  [[nodiscard]] bool boolean() const;
  [[nodiscard]] double number() const;  // always finite
  // A whole number within T's range. 5.0 counts as 5; 5.5, true and "5" are refused.
  template <std::integral T>
  [[nodiscard]] T integer() const {
    if constexpr (std::is_signed_v<T>) {
      return static_cast<T>(signedInteger(std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
    } else {
      return static_cast<T>(unsignedInteger(std::numeric_limits<T>::max()));
    }
  }

  // Objects. A key that stands twice keeps its last value.
  [[nodiscard]] Reader at(std::string_view key) const;                   // required
  [[nodiscard]] std::optional<Reader> find(std::string_view key) const;  // absent or null gives nothing
  // Arrays.
  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] Reader operator[](std::size_t index) const;

  // "at processes[3].pid: " followed by `message`, for rules that the caller checks itself.
  [[noreturn]] void fail(std::string_view message) const;
  [[nodiscard]] std::string path() const;

 private:
  friend class Document;
  struct Step;
  Reader(const nlohmann::json* value, std::shared_ptr<const Step> step) : value_(value), step_(std::move(step)) {}
  [[nodiscard]] std::int64_t signedInteger(std::int64_t low, std::int64_t high) const;
  [[nodiscard]] std::uint64_t unsignedInteger(std::uint64_t high) const;

  const nlohmann::json* value_;
  std::shared_ptr<const Step> step_;  // how this value was reached from the root; null at the root
};

// Parses `bytes` as one JSON text; anything else, trailing bytes and nesting deeper than 64 included, throws.
class Document {
 public:
  explicit Document(std::string_view bytes);
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  [[nodiscard]] Reader root() const;

 private:
  std::unique_ptr<nlohmann::json> value_;
};

// Builds one JSON value. Objects keep their keys in the order they were set.
class Writer {
 public:
  [[nodiscard]] static Writer object();
  [[nodiscard]] static Writer array();
  Writer(Writer&&) noexcept;
  Writer& operator=(Writer&&) noexcept;
  ~Writer();

  void set(std::string_view key, std::string_view value);
  void set(std::string_view key, const char* value) { set(key, std::string_view(value)); }
  void set(std::string_view key, bool value);
  void set(std::string_view key, double value);  // EncodeError unless finite
  template <std::integral T>
    requires(!std::same_as<T, bool>)
  void set(std::string_view key, T value) {
    if constexpr (std::is_signed_v<T>) {
      setSigned(key, value);
    } else {
      setUnsigned(key, value);
    }
  }
  void set(std::string_view key, Writer value);
  void setNull(std::string_view key);

  void append(std::string_view value);
  void append(const char* value) { append(std::string_view(value)); }
  void append(double value);
  template <std::integral T>
    requires(!std::same_as<T, bool>)
  void append(T value) {
    if constexpr (std::is_signed_v<T>) {
      appendSigned(value);
    } else {
      appendUnsigned(value);
    }
  }
  void append(Writer value);

  // Compact text; `indent` above zero gives one key a line. EncodeError where a text is not UTF-8.
  [[nodiscard]] std::string text(int indent = -1) const;

 private:
  explicit Writer(nlohmann::ordered_json value);
  void setSigned(std::string_view key, std::int64_t value);
  void setUnsigned(std::string_view key, std::uint64_t value);
  void appendSigned(std::int64_t value);
  void appendUnsigned(std::uint64_t value);
  std::unique_ptr<nlohmann::ordered_json> value_;
};

}  // namespace monitor::json
