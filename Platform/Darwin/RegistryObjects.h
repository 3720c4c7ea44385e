// SPDX-License-Identifier: MIT
#pragma once

#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>

#include <functional>
#include <string>

namespace monitor::platform {

// An object of the I/O registry, released with its holder.
class RegistryObject {
 public:
  explicit RegistryObject(io_object_t object) : object_(object) {}
  RegistryObject(const RegistryObject&) = delete;
  RegistryObject& operator=(const RegistryObject&) = delete;
  ~RegistryObject() {
    if (object_ != 0) IOObjectRelease(object_);
  }
  [[nodiscard]] io_object_t get() const { return object_; }

 private:
  io_object_t object_;
};

// Calls `visit` with every service of the class, in the registry's order.
void forEachService(const char* _Nonnull className, const std::function<void(io_service_t service)>& visit);

// A property as an object of its own; nil when the service has none.
[[nodiscard]] id _Nullable registryProperty(io_service_t service, NSString* _Nonnull key);

// The registry's 64-bit id of the entry in decimal.
[[nodiscard]] std::string registryEntryID(io_service_t service);

}  // namespace monitor::platform
