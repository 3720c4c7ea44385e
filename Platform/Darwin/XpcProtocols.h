// SPDX-License-Identifier: MIT
#pragma once

#import <Foundation/Foundation.h>

// The wire contracts as the system's connections speak them.

NS_ASSUME_NONNULL_BEGIN

@protocol MonitorAudioXpcProtocol
- (void)applicationsWithReply:(void (^)(NSData* _Nullable data, NSString* _Nullable message))reply;
- (void)setGain:(double)gain
      processes:(NSData*)processes
      withReply:(void (^)(NSString* _Nullable error))reply;
- (void)stopWithReply:(void (^)(void))reply;
@end

@protocol MonitorHelperXpcProtocol
- (void)collectWithReply:(void (^)(NSData* _Nullable data, NSString* _Nullable message))reply;
@end

NS_ASSUME_NONNULL_END
