// SPDX-License-Identifier: MIT
#include "Platform/Darwin/XpcConnections.h"

#import <Foundation/Foundation.h>
#import <dispatch/dispatch.h>

#include <optional>
#include <string>
#include <utility>

#include "Platform/Darwin/Text.h"
#import "Platform/Darwin/XpcProtocols.h"

using namespace monitor;            // NOLINT: the Objective-C classes below cannot live in a namespace
using namespace monitor::platform;  // NOLINT

namespace {

std::optional<Data> bytesOrNothing(NSData* _Nullable data) {
  if (data == nil) return std::nullopt;
  return plainBytes((NSData* _Nonnull)data);
}

std::optional<std::string> textOrNothing(NSString* _Nullable text) {
  if (text == nil) return std::nullopt;
  return plainText(text);
}

NSData* _Nullable dataOrNil(const std::optional<Data>& bytes) {
  if (!bytes) return nil;
  return objcData(*bytes);
}

// A reply of data or a message, as either side of the wire takes it, and how one is given to the other.
using WireReply = void (^)(NSData* _Nullable data, NSString* _Nullable message);
using PortableReply = std::function<void(const std::optional<Data>& data, const std::optional<std::string>& message)>;

PortableReply portableReply(WireReply _Nonnull reply) {
  return [reply](const std::optional<Data>& data, const std::optional<std::string>& message) {
    reply(dataOrNil(data), objcTextOrNil(message));
  };
}

WireReply _Nonnull wireReply(PortableReply reply) {
  return ^(NSData* _Nullable data, NSString* _Nullable message) {
    reply(bytesOrNothing(data), textOrNothing(message));
  };
}

// What differs between the protocols: the wire protocol and the objects on both of its ends.
template <class Protocol>
struct Wire;

}  // namespace

// The service's end: forwards what arrives to the portable object.
@interface AudioExport : NSObject <MonitorAudioXpcProtocol> {
 @public
  std::shared_ptr<MonitorAudioProtocol> _object;
}
@end

@implementation AudioExport
- (void)applicationsWithReply:(void (^)(NSData* _Nullable, NSString* _Nullable))reply {
  _object->applications(portableReply(reply));
}
- (void)setGain:(double)gain processes:(NSData*)processes withReply:(void (^)(NSString* _Nullable))reply {
  _object->setGain(gain, plainBytes(processes),
                   [reply](const std::optional<std::string>& error) { reply(objcTextOrNil(error)); });
}
- (void)stopWithReply:(void (^)(void))reply {
  _object->stop([reply] { reply(); });
}
@end

@interface HelperExport : NSObject <MonitorHelperXpcProtocol> {
 @public
  std::shared_ptr<MonitorHelperProtocol> _object;
}
@end

@implementation HelperExport
- (void)collectWithReply:(void (^)(NSData* _Nullable, NSString* _Nullable))reply {
  _object->collect(portableReply(reply));
}
@end

namespace {

// The client's end: forwards portable calls to the remote proxy.
class AudioProxy final : public MonitorAudioProtocol {
 public:
  explicit AudioProxy(id<MonitorAudioXpcProtocol> _Nonnull proxy) : proxy_(proxy) {}

  void applications(ApplicationsReply reply) override {
    [proxy_ applicationsWithReply:wireReply(std::move(reply))];
  }
  void setGain(double gain, const Data& processes, SetGainReply reply) override {
    [proxy_ setGain:gain
          processes:objcData(processes)
          withReply:^(NSString* _Nullable error) {
            reply(textOrNothing(error));
          }];
  }
  void stop(StopReply reply) override {
    [proxy_ stopWithReply:^{
      reply();
    }];
  }

 private:
  id<MonitorAudioXpcProtocol> _Nonnull proxy_;
};

class HelperProxy final : public MonitorHelperProtocol {
 public:
  explicit HelperProxy(id<MonitorHelperXpcProtocol> _Nonnull proxy) : proxy_(proxy) {}

  void collect(CollectReply reply) override { [proxy_ collectWithReply:wireReply(std::move(reply))]; }

 private:
  id<MonitorHelperXpcProtocol> _Nonnull proxy_;
};

template <>
struct Wire<MonitorAudioProtocol> {
  static NSXPCInterface* _Nonnull interface() {
    return [NSXPCInterface interfaceWithProtocol:@protocol(MonitorAudioXpcProtocol)];
  }
  static id _Nonnull exported(std::shared_ptr<MonitorAudioProtocol> object) {
    AudioExport* exported = [[AudioExport alloc] init];
    exported->_object = std::move(object);
    return exported;
  }
  static std::shared_ptr<MonitorAudioProtocol> proxy(id _Nonnull remote) {
    if (![remote conformsToProtocol:@protocol(MonitorAudioXpcProtocol)]) return nullptr;
    return std::make_shared<AudioProxy>((id<MonitorAudioXpcProtocol>)remote);
  }
};

template <>
struct Wire<MonitorHelperProtocol> {
  static NSXPCInterface* _Nonnull interface() {
    return [NSXPCInterface interfaceWithProtocol:@protocol(MonitorHelperXpcProtocol)];
  }
  static id _Nonnull exported(std::shared_ptr<MonitorHelperProtocol> object) {
    HelperExport* exported = [[HelperExport alloc] init];
    exported->_object = std::move(object);
    return exported;
  }
  static std::shared_ptr<MonitorHelperProtocol> proxy(id _Nonnull remote) {
    if (![remote conformsToProtocol:@protocol(MonitorHelperXpcProtocol)]) return nullptr;
    return std::make_shared<HelperProxy>((id<MonitorHelperXpcProtocol>)remote);
  }
};

// What both ends of a connection have in common. `Port` is the port of one end.
template <class Port>
class XpcEnd : public Port {
 public:
  explicit XpcEnd(NSXPCConnection* _Nonnull connection) : connection_(connection) {}

  void setCodeSigningRequirement(std::string_view requirement) override {
    [connection_ setCodeSigningRequirement:objcText(requirement)];
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    connection_.invalidationHandler = ^{
      handler();
    };
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    connection_.interruptionHandler = ^{
      handler();
    };
  }
  void resume() override { [connection_ resume]; }

 protected:
  NSXPCConnection* _Nonnull connection() const { return connection_; }

 private:
  NSXPCConnection* _Nonnull connection_;
};

template <class Protocol>
class XpcServiceConnection final : public XpcEnd<ServiceConnection<Protocol>> {
 public:
  using XpcEnd<ServiceConnection<Protocol>>::XpcEnd;

  [[nodiscard]] std::uint32_t effectiveUserIdentifier() const override {
    return this->connection().effectiveUserIdentifier;
  }
  void setExportedInterface() override { this->connection().exportedInterface = Wire<Protocol>::interface(); }
  void setExportedObject(std::shared_ptr<Protocol> object) override {
    this->connection().exportedObject = Wire<Protocol>::exported(std::move(object));
  }
};

}  // namespace

// The accept hook: hands each new connection to the portable delegate. One class for both protocols; the hook knows
// which it serves. The platform's protocol declares the method optional, so that a misspelt one would silently accept
// nobody; our own declarations require it.
@interface ListenerDelegate : NSObject <NSXPCListenerDelegate> {
  std::function<bool(NSXPCConnection* _Nonnull)> _accept;
}
- (nonnull instancetype)initWithAccept:(std::function<bool(NSXPCConnection* _Nonnull)>)accept;
@end

@implementation ListenerDelegate
- (instancetype)initWithAccept:(std::function<bool(NSXPCConnection* _Nonnull)>)accept {
  if ((self = [super init])) _accept = std::move(accept);
  return self;
}
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)connection {
  (void)listener;
  return _accept(connection) ? YES : NO;
}
@end

namespace {

template <class Protocol>
class XpcServiceListener final : public ServiceListener<Protocol> {
 public:
  XpcServiceListener(NSXPCListener* _Nonnull listener, bool ownsMainThread)
      : listener_(listener), ownsMainThread_(ownsMainThread) {}

  void setConnectionCodeSigningRequirement(std::string_view requirement) override {
    [listener_ setConnectionCodeSigningRequirement:objcText(requirement)];
  }
  void setDelegate(ServiceListenerDelegate<Protocol>* delegate) override {
    // The listener holds its delegate weakly: this member is what keeps it alive.
    delegate_ = [[ListenerDelegate alloc] initWithAccept:[delegate](NSXPCConnection* _Nonnull connection) {
      return delegate->shouldAcceptNewConnection(std::make_shared<XpcServiceConnection<Protocol>>(connection));
    }];
    listener_.delegate = delegate_;
  }
  int resume() override {
    [listener_ resume];
    // A service listener never comes back from resume; a Mach service listener does and needs the main queue served.
    if (!ownsMainThread_) dispatch_main();
    return 0;
  }

 private:
  NSXPCListener* _Nonnull listener_;
  ListenerDelegate* _Nullable delegate_ = nil;
  bool ownsMainThread_;
};

RemoteError remoteError(NSError* _Nonnull error) {
  return {plainText(error.domain), error.code, plainText(error.localizedDescription)};
}

template <class Protocol>
class XpcRemoteConnection final : public XpcEnd<RemoteConnection<Protocol>> {
 public:
  using ErrorHandler = typename RemoteConnection<Protocol>::ErrorHandler;
  using XpcEnd<RemoteConnection<Protocol>>::XpcEnd;

  void setRemoteObjectInterface() override {
    this->connection().remoteObjectInterface = Wire<Protocol>::interface();
  }
  void invalidate() override { [this->connection() invalidate]; }
  std::shared_ptr<Protocol> remoteObjectProxy() override {
    return Wire<Protocol>::proxy([this->connection() remoteObjectProxy]);
  }
  std::shared_ptr<Protocol> remoteObjectProxyWithErrorHandler(ErrorHandler handler) override {
    return Wire<Protocol>::proxy([this->connection() remoteObjectProxyWithErrorHandler:^(NSError* error) {
      handler(remoteError(error));
    }]);
  }
};

template <class Protocol>
class XpcConnectionFactory final : public RemoteConnectionFactory<Protocol> {
 public:
  std::shared_ptr<RemoteConnection<Protocol>> makeConnection(std::string_view serviceName, bool privileged) override {
    NSXPCConnection* connection =
        privileged ? [[NSXPCConnection alloc] initWithMachServiceName:objcText(serviceName)
                                                              options:NSXPCConnectionPrivileged]
                   : [[NSXPCConnection alloc] initWithServiceName:objcText(serviceName)];
    return std::make_shared<XpcRemoteConnection<Protocol>>(connection);
  }
};

}  // namespace

namespace monitor::platform {

std::unique_ptr<ServiceListener<MonitorAudioProtocol>> makeAudioServiceListener() {
  return std::make_unique<XpcServiceListener<MonitorAudioProtocol>>([NSXPCListener serviceListener], true);
}

std::unique_ptr<ServiceListener<MonitorHelperProtocol>> makeHelperServiceListener(std::string_view name) {
  return std::make_unique<XpcServiceListener<MonitorHelperProtocol>>(
      [[NSXPCListener alloc] initWithMachServiceName:objcText(name)], false);
}

std::unique_ptr<RemoteConnectionFactory<MonitorAudioProtocol>> makeAudioConnectionFactory() {
  return std::make_unique<XpcConnectionFactory<MonitorAudioProtocol>>();
}

std::unique_ptr<RemoteConnectionFactory<MonitorHelperProtocol>> makeHelperConnectionFactory() {
  return std::make_unique<XpcConnectionFactory<MonitorHelperProtocol>>();
}

}  // namespace monitor::platform
