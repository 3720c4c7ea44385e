// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/InfoPropertyList.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include "MonitorCore/Utf8.h"
#include "Platform/Linux/Process/BoundedFile.h"
#include "Platform/Linux/Process/ControlGroup.h"

namespace monitor::platform {
namespace {

constexpr std::size_t kLargestList = 1U << 20U;
constexpr std::size_t kLongestText = 1024;
constexpr std::size_t kDeepest = 32;
constexpr std::size_t kMostKeys = 4096;
constexpr std::size_t kMostEntities = 4096;

struct FreeList {
  void operator()(void* node) const { plist_free(node); }
};
using List = std::unique_ptr<void, FreeList>;

// Binary lists are not read: no folder of this kind has one here, and the library expands what they share
// without bound.
bool isXml(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  return begin != std::string_view::npos &&
         (text.substr(begin).starts_with("<?xml") || text.substr(begin).starts_with("<!DOCTYPE") ||
          text.substr(begin).starts_with("<plist"));
}

// Where the markup that begins at `begin` ends; the end of the text when it never does.
std::size_t endOfMarkup(std::string_view xml, std::size_t begin) {
  const auto behind = [&](std::string_view end) {
    const std::size_t at = xml.find(end, begin);
    return at == std::string_view::npos ? xml.size() : at + end.size();
  };
  if (xml.substr(begin).starts_with("<!--")) return behind("-->");
  if (xml.substr(begin).starts_with("<![CDATA[")) return behind("]]>");
  if (xml.substr(begin).starts_with("<?")) return behind("?>");
  return behind(">");
}

std::optional<std::string> textOf(void* dictionary, const char* key) {
  void* item = plist_dict_get_item(dictionary, key);
  if (item == nullptr || plist_get_node_type(item) != PLIST_STRING) return std::nullopt;
  char* value = nullptr;
  plist_get_string_val(item, &value);
  const std::unique_ptr<char, void (*)(void*)> owned(value, std::free);
  if (owned == nullptr || *owned == '\0') return std::nullopt;
  std::string text(owned.get());
  if (text.size() > kLongestText || repairedUtf8(text) != text) return std::nullopt;
  return text;
}

std::optional<BundleInformation> parse(std::string_view text) {
  if (!isXml(text) || !isHarmlessPropertyList(text)) return std::nullopt;
  void* root = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &root);
  const List list(root);
  if (list == nullptr || plist_get_node_type(list.get()) != PLIST_DICT) return std::nullopt;
  BundleInformation information;
  information.identifier = textOf(list.get(), "CFBundleIdentifier");
  information.displayName = textOf(list.get(), "CFBundleDisplayName");
  information.name = textOf(list.get(), "CFBundleName");
  if (information.identifier && !isUsableIdentifier(*information.identifier)) information.identifier.reset();
  return information;
}

std::vector<std::string> candidates(const std::string& folder) {
  constexpr std::size_t kMostCandidates = 8;
  std::vector<std::string> others;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder + "/Resources", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.starts_with("Info-") && name.ends_with(".plist")) others.push_back(entry->path().string());
    if (others.size() == kMostCandidates) break;
  }
  std::sort(others.begin(), others.end());
  others.insert(others.begin(), folder + "/Contents/Info.plist");
  return others;
}

}  // namespace

bool isHarmlessPropertyList(std::string_view xml) {
  std::size_t depth = 0;
  std::size_t keys = 0;
  if (static_cast<std::size_t>(std::count(xml.begin(), xml.end(), '&')) > kMostEntities) return false;
  for (std::size_t begin = xml.find('<'); begin != std::string_view::npos; begin = xml.find('<', begin)) {
    const std::size_t end = endOfMarkup(xml, begin);
    const std::string_view markup = xml.substr(begin, end - begin);
    begin = end;
    if (markup.starts_with("<?") || markup.starts_with("<!--") || markup.starts_with("<![CDATA[")) continue;
    if (markup.starts_with("<!")) {
      if (markup.find('[') != std::string_view::npos) return false;
    } else if (markup.starts_with("</")) {
      depth -= depth > 0 ? 1 : 0;
    } else if (!markup.ends_with("/>")) {
      if (++depth > kDeepest) return false;
      if (markup.starts_with("<key") && ++keys > kMostKeys) return false;
    }
  }
  return true;
}

std::optional<BundleInformation> readBundleInformation(const std::string& folder) {
  for (const std::string& path : candidates(folder)) {
    const auto text = readFile(path, kLargestList);
    if (!text) continue;
    if (auto information = parse(*text)) return information;
  }
  return std::nullopt;
}

}  // namespace monitor::platform
