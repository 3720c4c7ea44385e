// SPDX-License-Identifier: MIT
#include "MonitorCore/PropertyListGuard.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "MonitorCore/MonitorError.h"

namespace monitor {
namespace {

constexpr std::size_t kDeepestNesting = 64;
constexpr std::size_t kMostEntries = 1'000;    // of a dictionary
constexpr std::size_t kMostElements = 20'000;  // of an array; more than any system has processes
constexpr std::size_t kLongestKey = 1'024;     // bytes, before entities are resolved
constexpr std::size_t kLongestNumber = 256;    // characters

constexpr std::string_view kWhitespace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

bool isHexDigit(char character) {
  return isDigit(character) || (character >= 'a' && character <= 'f') ||
         (character >= 'A' && character <= 'F');
}

bool isNameCharacter(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         isDigit(character);
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kWhitespace);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kWhitespace) - begin + 1);
}

// Takes the digits off the front of `text` and says how many there were.
std::size_t takeDigits(std::string_view& text) {
  const auto count =
      static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isDigit) - text.begin());
  text.remove_prefix(count);
  return count;
}

bool takeOneOf(std::string_view& text, std::string_view characters) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

bool isInteger(std::string_view text) {
  takeOneOf(text, "+-");
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    return std::all_of(text.begin(), text.end(), isHexDigit);
  }
  return takeDigits(text) > 0 && text.empty();
}

bool isReal(std::string_view text) {
  takeOneOf(text, "+-");
  std::size_t digits = takeDigits(text);
  if (takeOneOf(text, ".")) digits += takeDigits(text);
  if (digits == 0) return false;
  if (takeOneOf(text, "eE")) {
    takeOneOf(text, "+-");
    if (takeDigits(text) == 0) return false;
  }
  return text.empty();
}

struct Tag {
  enum class Kind { Open, Empty, Close };
  Kind kind;
  std::string_view name;
};

class Guard {
 public:
  explicit Guard(std::string_view text) : text_(text) {
    if (text_.substr(0, kByteOrderMark.size()) == kByteOrderMark) position_ = kByteOrderMark.size();
  }

  std::string run() {
    result_.reserve(text_.size());
    while (skipToMarkup()) takeTag(readTag());
    if (!open_.empty()) fail("it ends inside <" + std::string(open_.back().name) + ">");
    if (!hasValue_) fail("it holds no value");
    return std::move(result_);
  }

 private:
  struct Container {
    std::string_view name;  // "plist", "dict" or "array"
    bool wantsValue;        // of a dictionary: its last key has no value yet
    std::size_t entries;
  };

  [[noreturn]] void fail(const std::string& what) const {
    throw MonitorError(
        MonitorError::kCocoaDomain, MonitorError::kPropertyListReadCorrupt,
        "The property list is not valid: " + what + " (byte " + std::to_string(position_) + ").");
  }

  [[nodiscard]] bool startsWith(std::string_view prefix) const {
    return text_.substr(position_, prefix.size()) == prefix;
  }

  // Moves past the next `end` and returns what stood before it.
  std::string_view takeUntil(std::string_view end) {
    const std::size_t found = text_.find(end, position_);
    if (found == std::string_view::npos) fail("\"" + std::string(end) + "\" is missing");
    const std::string_view taken = text_.substr(position_, found - position_);
    position_ = found + end.size();
    return taken;
  }

  // Skips blanks, comments and declarations between elements. False at the end of the text.
  bool skipToMarkup() {
    while (true) {
      position_ = std::min(text_.find_first_not_of(kWhitespace, position_), text_.size());
      if (position_ == text_.size()) return false;
      if (startsWith("<?")) {
        takeUntil("?>");
      } else if (startsWith("<!--")) {
        position_ += 4;
        takeUntil("-->");
      } else if (startsWith("<!DOCTYPE") && !hasValue_ && open_.empty()) {
        skipDocumentType();
      } else {
        return true;
      }
    }
  }

  void skipDocumentType() {
    bool inSubset = false;
    while (position_ < text_.size()) {
      const char character = text_[position_++];
      if (character == '"' || character == '\'') takeUntil(std::string_view(&character, 1));
      if (character == '[') inSubset = true;
      if (character == ']') inSubset = false;
      if (character == '>' && !inSubset) return;
    }
    fail("the document type does not end");
  }

  // At "<".
  Tag readTag() {
    if (!startsWith("<")) fail("an element was expected");
    ++position_;
    Tag tag{Tag::Kind::Open, {}};
    if (startsWith("/")) {
      tag.kind = Tag::Kind::Close;
      ++position_;
    }
    const auto rest = text_.substr(position_);
    const auto length = std::find_if_not(rest.begin(), rest.end(), isNameCharacter) - rest.begin();
    tag.name = rest.substr(0, static_cast<std::size_t>(length));
    position_ += tag.name.size();
    skipAttributes(tag);
    return tag;
  }

  void skipAttributes(Tag& tag) {
    bool slash = false;
    while (position_ < text_.size()) {
      const char character = text_[position_++];
      if (character == '>') {
        if (slash) tag.kind = Tag::Kind::Empty;
        return;
      }
      const bool blank = kWhitespace.find(character) != std::string_view::npos;
      if (character == '<' || slash || (tag.kind == Tag::Kind::Close && !blank)) break;
      if (character == '"' || character == '\'') takeUntil(std::string_view(&character, 1));
      slash = character == '/';
    }
    fail("the tag of \"" + std::string(tag.name.substr(0, 20)) + "\" is malformed");
  }

  void takeTag(const Tag& tag) {
    if (tag.kind == Tag::Kind::Close) {
      close(tag.name);
    } else if (tag.name == "plist") {
      if (!open_.empty() || hasValue_ || tag.kind == Tag::Kind::Empty) fail("<plist> is misplaced");
      open_.push_back({"plist", false, 0});
    } else if (tag.name == "key") {
      takeKey(tag);
    } else {
      placeValue();
      if (tag.name == "dict" || tag.name == "array") {
        openContainer(tag);
      } else {
        takeLeaf(tag);
      }
    }
  }

  void close(std::string_view name) {
    if (open_.empty() || open_.back().name != name)
      fail("</" + std::string(name.substr(0, 20)) + "> is misplaced");
    if (open_.back().wantsValue) fail("a key has no value");
    if (name != "plist") append("</", name, ">");
    open_.pop_back();
  }

  void openContainer(const Tag& tag) {
    if (tag.kind == Tag::Kind::Empty) {
      append("<", tag.name, "/>");
      return;
    }
    append("<", tag.name, ">");
    open_.push_back({tag.name, false, 0});
    const bool inPlist = open_.front().name == "plist";
    if (open_.size() - (inPlist ? 1 : 0) > kDeepestNesting) {
      fail("it nests deeper than " + std::to_string(kDeepestNesting) + " levels");
    }
  }

  void takeKey(const Tag& tag) {
    if (open_.empty() || open_.back().name != "dict" || open_.back().wantsValue) fail("a key is misplaced");
    if (++open_.back().entries > kMostEntries) {
      fail("a dictionary has more than " + std::to_string(kMostEntries) + " entries");
    }
    open_.back().wantsValue = true;
    const std::string key = tag.kind == Tag::Kind::Empty ? std::string() : takeText(tag.name, kLongestKey);
    append("<key>", key.size() > kLongestKey ? std::string_view() : std::string_view(key), "</key>");
  }

  // A value may stand once at the top, after a key, or in an array.
  void placeValue() {
    if (!open_.empty() && open_.back().name == "dict") {
      if (!open_.back().wantsValue) fail("a key was expected");
      open_.back().wantsValue = false;
    } else if (!open_.empty() && open_.back().name == "array") {
      if (++open_.back().entries > kMostElements) {
        fail("an array has more than " + std::to_string(kMostElements) + " elements");
      }
    } else {
      if (hasValue_) fail("it holds more than one value");
      hasValue_ = true;
    }
  }

  void takeLeaf(const Tag& tag) {
    const bool isNumber = tag.name == "integer" || tag.name == "real";
    const bool isBoolean = tag.name == "true" || tag.name == "false";
    const bool isOther = tag.name == "string" || tag.name == "data" || tag.name == "date";
    if (!isNumber && !isBoolean && !isOther) {
      fail("<" + std::string(tag.name.substr(0, 20)) + "> is not an element of property lists");
    }
    const std::string content =
        tag.kind == Tag::Kind::Empty ? std::string() : takeText(tag.name, isNumber ? kLongestNumber : 0);
    const std::string_view number = trimmed(content);
    if (isBoolean) {
      append("<", tag.name, "/>");
    } else if (isNumber && content.size() <= kLongestNumber &&
               (tag.name == "real" ? isReal(number) : isInteger(number))) {
      append("<real>", number, "</real>");
    } else {
      result_ += "<string/>";
    }
  }

  // The text up to the closing tag of `name`, with entities as they stand and CDATA sections turned into
  // entities. Of a text longer than `longest` only the beginning is kept, enough to see that it is too long.
  std::string takeText(std::string_view name, std::size_t longest) {
    std::string content;
    const auto keep = [&](std::string_view piece) {
      if (content.size() <= longest) content.append(piece.substr(0, longest + 1 - content.size()));
    };
    while (true) {
      const std::size_t markup = std::min(text_.find('<', position_), text_.size());
      keep(text_.substr(position_, markup - position_));
      position_ = markup;
      if (startsWith("<!--")) {
        position_ += 4;
        takeUntil("-->");
      } else if (startsWith("<![CDATA[")) {
        position_ += 9;
        for (const char character : takeUntil("]]>")) {
          keep(character == '&' ? "&amp;" : character == '<' ? "&lt;" : std::string_view(&character, 1));
        }
      } else if (startsWith("<?")) {
        takeUntil("?>");
      } else {
        break;
      }
    }
    const Tag end = readTag();
    if (end.kind != Tag::Kind::Close || end.name != name) fail("<" + std::string(name) + "> is not closed");
    return content;
  }

  void append(std::string_view before, std::string_view middle, std::string_view after) {
    result_.append(before).append(middle).append(after);
  }

  const std::string_view text_;
  std::size_t position_ = 0;
  std::vector<Container> open_;
  bool hasValue_ = false;  // the one value at the top has begun
  std::string result_;
};

}  // namespace

std::string guardPropertyList(std::string_view text) {
  return Guard(text).run();
}

}  // namespace monitor
