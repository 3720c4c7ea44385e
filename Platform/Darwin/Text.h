// SPDX-License-Identifier: MIT
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

namespace monitor::platform {

// Text between the two worlds. Bytes that are not UTF-8 make an empty NSString rather than nil.
[[nodiscard]] NSString* _Nonnull objcText(std::string_view text);
[[nodiscard]] NSString* _Nullable objcTextOrNil(const std::optional<std::string>& text);
[[nodiscard]] std::string plainText(NSString* _Nullable text);
[[nodiscard]] std::optional<std::string> plainTextOrNothing(id _Nullable object);  // nothing unless an NSString
[[nodiscard]] NSData* _Nonnull objcData(std::string_view bytes);
[[nodiscard]] std::string plainBytes(NSData* _Nonnull data);

}  // namespace monitor::platform
