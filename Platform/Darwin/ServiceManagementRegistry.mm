// SPDX-License-Identifier: MIT
#include "Platform/Darwin/ServiceManagementRegistry.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>
#import <dispatch/dispatch.h>

#include <utility>

#include "Platform/Darwin/Text.h"

namespace monitor::platform {
namespace {

SMAppService* _Nonnull daemonService(std::string_view propertyList) {
  return [SMAppService daemonServiceWithPlistName:objcText(propertyList)];
}

std::optional<MonitorError> errorOrNothing(NSError* _Nullable error) {
  if (error == nil) return std::nullopt;
  return MonitorError(plainText(error.domain), error.code, plainText(error.localizedDescription));
}

DaemonStatus portable(SMAppServiceStatus status) {
  switch (status) {
    case SMAppServiceStatusNotRegistered: return DaemonStatus::NotRegistered;
    case SMAppServiceStatusEnabled: return DaemonStatus::Enabled;
    case SMAppServiceStatusRequiresApproval: return DaemonStatus::RequiresApproval;
    case SMAppServiceStatusNotFound: break;
  }
  return DaemonStatus::NotFound;
}

// Status and registration may wait for another process, so they run on a background queue.
class ServiceManagementRegistry final : public DaemonRegistry {
 public:
  void status(std::string_view propertyList, StatusCompletion completion) override {
    SMAppService* service = daemonService(propertyList);
    dispatch_async(queue(), ^{
      completion(portable(service.status));
    });
  }

  void registerDaemon(std::string_view propertyList, ChangeCompletion completion) override {
    SMAppService* service = daemonService(propertyList);
    dispatch_async(queue(), ^{
      NSError* error = nil;
      const bool registered = [service registerAndReturnError:&error];
      completion(registered ? std::nullopt : errorOrNothing(error));
    });
  }

  void unregisterDaemon(std::string_view propertyList, ChangeCompletion completion) override {
    [daemonService(propertyList) unregisterWithCompletionHandler:^(NSError* _Nullable error) {
      completion(errorOrNothing(error));
    }];
  }

 private:
  static dispatch_queue_t _Nonnull queue() { return dispatch_get_global_queue(QOS_CLASS_UTILITY, 0); }
};

}  // namespace

std::unique_ptr<DaemonRegistry> makeDaemonRegistry() { return std::make_unique<ServiceManagementRegistry>(); }

}  // namespace monitor::platform
