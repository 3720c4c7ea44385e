// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace monitor {

// Reads the text of an XML property list once, from front to back, and writes it anew for libplist, which by
// itself overflows its stack on deep nesting, takes quadratic time over repeated keys and entities, accepts a
// missing end, and loses the sign of integers and everything beyond 64 bits. In the result
//   - dictionaries and arrays nest at most 64 levels, and a dictionary has at most 1,000 entries;
//   - every element is closed, and every dictionary alternates keys and values;
//   - every well-formed number is a <real> of the same value; text, data, dates and malformed numbers, whose
//   contents
//     nobody asks for, are empty <string> elements;
//   - there are no comments, declarations, attributes or CDATA sections.
// Text that is not a property list, or breaks one of the limits, throws MonitorError kPropertyListReadCorrupt
// with a description that says what was wrong and at which byte. Time and memory are linear in the text's
// length.
[[nodiscard]] std::string guardPropertyList(std::string_view text);

}  // namespace monitor
