// SPDX-License-Identifier: MIT
#include "Platform/Darwin/BundleApplications.h"

#import <Foundation/Foundation.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

std::optional<std::string> nonEmpty(std::optional<std::string> text) {
  if (text && text->empty()) return std::nullopt;
  return text;
}

class BundleApplications final : public ApplicationBundles {
 public:
  std::optional<ApplicationBundle> bundleOfProcess(std::int32_t /*pid*/, const std::string& executable) override {
    const auto folder = applicationFolderOf(executable);
    if (!folder) return std::nullopt;
    NSBundle* _Nullable bundle = [NSBundle bundleWithPath:objcText(*folder)];
    if (bundle == nil) return std::nullopt;
    return ApplicationBundle{
        .identifier = nonEmpty(plainTextOrNothing(bundle.bundleIdentifier)),
        .displayName = plainTextOrNothing([bundle objectForInfoDictionaryKey:@"CFBundleDisplayName"]),
        .name = plainTextOrNothing([bundle objectForInfoDictionaryKey:@"CFBundleName"]),
        .path = folder};
  }

  std::string identityKey(std::int32_t /*pid*/, const std::string& executable) override { return executable; }
};

class DarwinSystemInformation final : public SystemInformation {
 public:
  [[nodiscard]] std::optional<OperatingSystemVersion> macOSVersion() const override {
    const NSOperatingSystemVersion version = NSProcessInfo.processInfo.operatingSystemVersion;
    return OperatingSystemVersion{version.majorVersion, version.minorVersion, version.patchVersion};
  }
  [[nodiscard]] std::uint32_t userIdentifier() const override { return getuid(); }
  [[nodiscard]] std::int32_t processIdentifier() const override { return getpid(); }
  [[nodiscard]] std::optional<std::string> mainBundleIdentifier() const override {
    return nonEmpty(plainTextOrNothing(NSBundle.mainBundle.bundleIdentifier));
  }
  [[nodiscard]] std::string applicationSupportFolder() const override {
    NSArray<NSURL*>* folders = [NSFileManager.defaultManager URLsForDirectory:NSApplicationSupportDirectory
                                                                    inDomains:NSUserDomainMask];
    if (folders.count == 0) {
      std::fputs("The system names no application support folder for this user.\n", stderr);
      std::abort();
    }
    return plainText(folders[0].path);
  }
};

}  // namespace

std::shared_ptr<ApplicationBundles> makeApplicationBundles() { return std::make_shared<BundleApplications>(); }

std::shared_ptr<SystemInformation> makeSystemInformation() { return std::make_shared<DarwinSystemInformation>(); }

}  // namespace monitor::platform
