// SPDX-License-Identifier: MIT
#include "Platform/Darwin/Text.h"

namespace monitor::platform {

NSString* _Nonnull objcText(std::string_view text) {
  NSString* _Nullable object = [[NSString alloc] initWithBytes:text.data()
                                                        length:text.size()
                                                      encoding:NSUTF8StringEncoding];
  return object != nil ? (NSString* _Nonnull)object : @"";
}

NSString* objcTextOrNil(const std::optional<std::string>& text) {
  if (!text) return nil;
  return objcText(*text);
}

std::string plainText(NSString* text) {
  const char* bytes = text.UTF8String;
  return bytes != nullptr ? std::string(bytes) : std::string();
}

std::optional<std::string> plainTextOrNothing(id object) {
  if (![object isKindOfClass:[NSString class]]) return std::nullopt;
  return plainText((NSString*)object);
}

NSData* objcData(std::string_view bytes) { return [NSData dataWithBytes:bytes.data() length:bytes.size()]; }

std::string plainBytes(NSData* data) { return {static_cast<const char*>(data.bytes), data.length}; }

}  // namespace monitor::platform
