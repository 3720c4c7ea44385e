// SPDX-License-Identifier: MIT
#include "MonitorCore/Json/StrictJson.h"

#include <cmath>
#include <utility>

#include <nlohmann/json.hpp>

namespace monitor::json {
namespace {

// Deep enough for every record of the system, shallow enough for any stack.
constexpr int kMaximumDepth = 64;

const char* typeName(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::null: return "null";
    case nlohmann::json::value_t::object: return "an object";
    case nlohmann::json::value_t::array: return "an array";
    case nlohmann::json::value_t::string: return "text";
    case nlohmann::json::value_t::boolean: return "a boolean";
    case nlohmann::json::value_t::number_integer:
    case nlohmann::json::value_t::number_unsigned:
    case nlohmann::json::value_t::number_float: return "a number";
    default: return "nothing";
  }
}

// What the library underneath quotes from bad input can be long, unprintable and not even UTF-8.
std::string presentable(std::string_view text) {
  constexpr std::size_t kLongest = 200;
  std::string result(text.substr(0, kLongest));
  for (char& character : result) {
    if (character < ' ' || character > '~') character = '?';
  }
  return text.size() > kLongest ? result + "..." : result;
}

// Refuses a document as soon as it nests too deeply, before its tree is built.
bool withinDepth(int depth, nlohmann::json::parse_event_t event, nlohmann::json& /*parsed*/) {
  using Event = nlohmann::json::parse_event_t;
  if ((event == Event::object_start || event == Event::array_start) && depth >= kMaximumDepth) {
    throw DecodeError("JSON nests deeper than " + std::to_string(kMaximumDepth) + " levels");
  }
  return true;
}

}  // namespace

// One step of the way from the root to a value: an object key, or an index when the key is empty.
struct Reader::Step {
  std::shared_ptr<const Step> parent;
  std::string key;
  std::size_t index = 0;
  bool isKey = false;
};

bool Reader::isNull() const { return value_->is_null(); }
bool Reader::isString() const { return value_->is_string(); }
bool Reader::isNumber() const { return value_->is_number(); }
bool Reader::isObject() const { return value_->is_object(); }
bool Reader::isArray() const { return value_->is_array(); }

std::string Reader::string() const {
  if (!value_->is_string()) fail(std::string("expected text, found ") + typeName(*value_));
  return value_->get_ref<const std::string&>();
}

bool Reader::boolean() const {
  if (!value_->is_boolean()) fail(std::string("expected a boolean, found ") + typeName(*value_));
  return value_->get<bool>();
}

double Reader::number() const {
  if (!value_->is_number()) fail(std::string("expected a number, found ") + typeName(*value_));
  const double number = value_->get<double>();
  if (!std::isfinite(number)) fail("expected a finite number");
  return number;
}

std::int64_t Reader::signedInteger(std::int64_t low, std::int64_t high) const {
  const auto refuse = [&] {
    fail("expected a whole number from " + std::to_string(low) + " to " + std::to_string(high));
  };
  if (value_->is_number_unsigned()) {
    const auto number = value_->get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(high)) refuse();
    return static_cast<std::int64_t>(number);
  }
  if (value_->is_number_integer()) {
    const auto number = value_->get<std::int64_t>();
    if (number < low || number > high) refuse();
    return number;
  }
  if (!value_->is_number_float()) refuse();
  const double number = value_->get<double>();
  // The cast below is defined for everything under 2^63. -2^63 is also what integers below the range are rounded to;
  // one that is in range and written as an integer does not come here.
  if (std::trunc(number) != number || number <= -0x1p63 || number >= 0x1p63) refuse();
  const auto whole = static_cast<std::int64_t>(number);
  if (whole < low || whole > high) refuse();
  return whole;
}

std::uint64_t Reader::unsignedInteger(std::uint64_t high) const {
  const auto refuse = [&] { fail("expected a whole number from 0 to " + std::to_string(high)); };
  if (value_->is_number_unsigned()) {
    const auto number = value_->get<std::uint64_t>();
    if (number > high) refuse();
    return number;
  }
  if (value_->is_number_integer() && value_->get<std::int64_t>() == 0) return 0;  // "-0"
  if (!value_->is_number_float()) refuse();
  const double number = value_->get<double>();
  if (std::trunc(number) != number || number < 0 || number >= 0x1p64) refuse();
  const auto whole = static_cast<std::uint64_t>(number);
  if (whole > high) refuse();
  return whole;
}

Reader Reader::at(std::string_view key) const {
  if (!value_->is_object()) fail(std::string("expected an object, found ") + typeName(*value_));
  const auto found = value_->find(key);
  if (found == value_->end()) fail("the required key \"" + std::string(key) + "\" is missing");
  return {&*found, std::make_shared<const Step>(Step{step_, std::string(key), 0, true})};
}

std::optional<Reader> Reader::find(std::string_view key) const {
  if (!value_->is_object()) fail(std::string("expected an object, found ") + typeName(*value_));
  const auto found = value_->find(key);
  if (found == value_->end() || found->is_null()) return std::nullopt;
  return Reader(&*found, std::make_shared<const Step>(Step{step_, std::string(key), 0, true}));
}

std::size_t Reader::size() const {
  if (!value_->is_array()) fail(std::string("expected an array, found ") + typeName(*value_));
  return value_->size();
}

Reader Reader::operator[](std::size_t index) const {
  if (index >= size()) fail("expected at least " + std::to_string(index + 1) + " elements");
  return {&(*value_)[index], std::make_shared<const Step>(Step{step_, {}, index, false})};
}

std::string Reader::path() const {
  std::string text;
  for (const Step* step = step_.get(); step != nullptr; step = step->parent.get()) {
    std::string piece = step->isKey ? step->key : '[' + std::to_string(step->index) + ']';
    if (step->isKey && step->parent != nullptr) piece.insert(0, 1, '.');
    text.insert(0, piece);
  }
  return text;
}

std::string Reader::quoted() const { return '"' + presentable(string()) + '"'; }

void Reader::fail(std::string_view message) const {
  const std::string where = path();
  throw DecodeError((where.empty() ? std::string() : "at " + where + ": ") + std::string(message));
}

Document::Document(std::string_view bytes) {
  // The parser would take a zero byte for the end of the input and never look at what follows.
  if (bytes.find('\0') != std::string_view::npos) throw DecodeError("not valid JSON: it holds a zero byte");
  try {
    value_ = std::make_unique<nlohmann::json>(nlohmann::json::parse(bytes.begin(), bytes.end(), withinDepth));
  } catch (const nlohmann::json::exception& error) {
    throw DecodeError("not valid JSON: " + presentable(error.what()));
  }
}

Document::~Document() = default;

Reader Document::root() const { return {value_.get(), nullptr}; }

Writer::Writer(nlohmann::ordered_json value)
    : value_(std::make_unique<nlohmann::ordered_json>(std::move(value))) {}
Writer::Writer(Writer&&) noexcept = default;
Writer& Writer::operator=(Writer&&) noexcept = default;
Writer::~Writer() = default;

Writer Writer::object() { return Writer(nlohmann::ordered_json::object()); }
Writer Writer::array() { return Writer(nlohmann::ordered_json::array()); }

void Writer::set(std::string_view key, std::string_view value) { (*value_)[std::string(key)] = value; }
void Writer::set(std::string_view key, bool value) { (*value_)[std::string(key)] = value; }
void Writer::setSigned(std::string_view key, std::int64_t value) { (*value_)[std::string(key)] = value; }
void Writer::setUnsigned(std::string_view key, std::uint64_t value) { (*value_)[std::string(key)] = value; }
void Writer::setNull(std::string_view key) { (*value_)[std::string(key)] = nullptr; }

void Writer::set(std::string_view key, double value) {
  if (!std::isfinite(value)) throw EncodeError("the number of \"" + std::string(key) + "\" is not finite");
  (*value_)[std::string(key)] = value;
}

void Writer::set(std::string_view key, Writer value) { (*value_)[std::string(key)] = std::move(*value.value_); }

void Writer::append(std::string_view value) { value_->push_back(value); }

void Writer::append(double value) {
  if (!std::isfinite(value)) throw EncodeError("a number in a list is not finite");
  value_->push_back(value);
}

void Writer::appendSigned(std::int64_t value) { value_->push_back(value); }
void Writer::appendUnsigned(std::uint64_t value) { value_->push_back(value); }
void Writer::append(Writer value) { value_->push_back(std::move(*value.value_)); }

std::string Writer::text(int indent) const {
  try {
    return value_->dump(indent);
  } catch (const nlohmann::ordered_json::exception& error) {
    throw EncodeError("not UTF-8 text: " + presentable(error.what()));
  }
}

}  // namespace monitor::json
