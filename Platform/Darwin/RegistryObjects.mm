// SPDX-License-Identifier: MIT
#include "Platform/Darwin/RegistryObjects.h"

namespace monitor::platform {

void forEachService(const char* className, const std::function<void(io_service_t service)>& visit) {
  io_iterator_t services = 0;
  // The call consumes the matching dictionary.
  if (IOServiceGetMatchingServices(kIOMainPortDefault, IOServiceMatching(className), &services) != 0) return;
  const RegistryObject iterator(services);
  while (const io_service_t next = IOIteratorNext(iterator.get())) {
    const RegistryObject service(next);
    visit(service.get());
  }
}

id registryProperty(io_service_t service, NSString* key) {
  return (__bridge_transfer id)IORegistryEntryCreateCFProperty(service, (__bridge CFStringRef)key, kCFAllocatorDefault,
                                                               0);
}

std::string registryEntryID(io_service_t service) {
  std::uint64_t identifier = 0;
  IORegistryEntryGetRegistryEntryID(service, &identifier);
  return std::to_string(identifier);
}

}  // namespace monitor::platform
