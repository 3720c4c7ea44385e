#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <objc/NSObject.h>
typedef double NSTimeInterval;
NS_ASSUME_NONNULL_BEGIN
@class NSData, NSError, NSNumber, NSURL, NSXPCConnection;
@class NSArray<__covariant ObjectType>;
@class NSDictionary<__covariant KeyType, __covariant ObjectType>;
@protocol NSCopying
@end
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(struct DDFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end
enum NSComparisonResult : NSInteger { NSOrderedAscending = -1, NSOrderedSame = 0, NSOrderedDescending = 1 };
typedef enum NSComparisonResult NSComparisonResult;
@interface NSString : NSObject <NSCopying>
@property(readonly) NSUInteger length;
@property(readonly, nullable) const char* UTF8String;
@property(readonly, copy) NSString* lastPathComponent;
@property(readonly, copy) NSArray<NSString*>* pathComponents;
+ (nullable instancetype)stringWithUTF8String:(const char*)text;
- (nullable instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)length encoding:(NSUInteger)encoding;
- (NSComparisonResult)localizedStandardCompare:(NSString*)other;
@end
enum : NSUInteger { NSUTF8StringEncoding = 4 };
@interface NSNumber : NSObject <NSCopying>
@property(readonly) double doubleValue;
@property(readonly) unsigned long long unsignedLongLongValue;
@property(readonly) int intValue;
@property(readonly) BOOL boolValue;
+ (NSNumber*)numberWithBool:(BOOL)v;
+ (NSNumber*)numberWithInt:(int)v;
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)v;
+ (NSNumber*)numberWithLong:(long)v;
+ (NSNumber*)numberWithUnsignedLong:(unsigned long)v;
+ (NSNumber*)numberWithLongLong:(long long)v;
+ (NSNumber*)numberWithUnsignedLongLong:(unsigned long long)v;
+ (NSNumber*)numberWithDouble:(double)v;
@end
@interface NSData : NSObject <NSCopying>
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes __attribute__((objc_returns_inner_pointer));
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@end
@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
@property(readonly) NSUInteger count;
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nullable])objects count:(NSUInteger)count;
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)index;
@end
@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
+ (instancetype)array;
+ (instancetype)arrayWithCapacity:(NSUInteger)n;
- (void)addObject:(ObjectType)object;
@end
@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
@property(readonly) NSUInteger count;
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                                count:(NSUInteger)count;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key;
@end
@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
+ (instancetype)dictionary;
- (void)setObject:(ObjectType)object forKey:(KeyType<NSCopying>)key;
@end
@interface NSUUID : NSObject <NSCopying>
- (nullable instancetype)initWithUUIDString:(NSString*)text;
+ (instancetype)UUID;
@property(readonly, copy) NSString* UUIDString;
@end
typedef NSString* NSURLResourceKey;
DD_EXTERN NSURLResourceKey const NSURLVolumeTotalCapacityKey;
DD_EXTERN NSURLResourceKey const NSURLVolumeAvailableCapacityKey;
@interface NSURL : NSObject <NSCopying>
@property(readonly, copy, nullable) NSString* path;
+ (NSURL*)fileURLWithPath:(NSString*)path;
- (BOOL)getResourceValue:(id _Nullable __autoreleasing* _Nonnull)value
                  forKey:(NSURLResourceKey)key
                   error:(NSError* _Nullable __autoreleasing* _Nullable)error;
- (nullable NSDictionary<NSURLResourceKey, id>*)resourceValuesForKeys:(NSArray<NSURLResourceKey>*)keys
                                                                error:(NSError* _Nullable __autoreleasing* _Nullable)error;
@end
enum NSSearchPathDirectory : NSUInteger { NSApplicationSupportDirectory = 14 };
typedef enum NSSearchPathDirectory NSSearchPathDirectory;
enum NSSearchPathDomainMask : NSUInteger { NSUserDomainMask = 1 };
typedef enum NSSearchPathDomainMask NSSearchPathDomainMask;
@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (NSArray<NSURL*>*)URLsForDirectory:(NSSearchPathDirectory)directory inDomains:(NSSearchPathDomainMask)mask;
@end
DD_EXTERN NSString* NSHomeDirectory(void);
@interface NSError : NSObject <NSCopying>
@property(readonly, copy) NSString* domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSString* localizedDescription;
@end
@interface NSBundle : NSObject
@property(class, readonly, strong) NSBundle* mainBundle;
@property(readonly, copy, nullable) NSString* bundleIdentifier;
+ (nullable instancetype)bundleWithPath:(NSString*)path;
- (nullable id)objectForInfoDictionaryKey:(NSString*)key;
@end
typedef struct {
    NSInteger majorVersion;
    NSInteger minorVersion;
    NSInteger patchVersion;
} NSOperatingSystemVersion;
@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
@property(readonly) NSTimeInterval systemUptime;
@property(readonly) unsigned long long physicalMemory;
@property(readonly) NSOperatingSystemVersion operatingSystemVersion;
- (BOOL)isOperatingSystemAtLeastVersion:(NSOperatingSystemVersion)version;
@end
// Of <Foundation/FoundationErrors.h>.
enum : NSInteger {
  NSFileReadTooLargeError = 263,
  NSPropertyListReadCorruptError = 3840,
  NSXPCConnectionInvalid = 4099,
  NSXPCConnectionCodeSigningRequirementFailure = 4102,
  NSCoderInvalidValueError = 4866
};
enum NSXPCConnectionOptions : NSUInteger { NSXPCConnectionPrivileged = (1 << 12) };
typedef enum NSXPCConnectionOptions NSXPCConnectionOptions;
@interface NSXPCInterface : NSObject
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
@end
@protocol NSXPCProxyCreating
- (id)remoteObjectProxy;
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@end
@interface NSXPCConnection : NSObject <NSXPCProxyCreating>
- (instancetype)initWithServiceName:(NSString*)serviceName;
- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options;
@property(nullable, retain) NSXPCInterface* exportedInterface;
@property(nullable, retain) id exportedObject;
@property(nullable, retain) NSXPCInterface* remoteObjectInterface;
@property(nullable, copy) void (^interruptionHandler)(void);
@property(nullable, copy) void (^invalidationHandler)(void);
@property(readonly) uid_t effectiveUserIdentifier;
@property(readonly) pid_t processIdentifier;
- (void)setCodeSigningRequirement:(NSString*)requirement DD_MACOS(13.0);
- (void)resume;
- (void)invalidate;
@end
@class NSXPCListener;
@protocol NSXPCListenerDelegate <NSObject>
// Optional in the real protocol; required here so that a misspelt method is an error.
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection;
@end
@interface NSXPCListener : NSObject
+ (NSXPCListener*)serviceListener;
- (instancetype)initWithMachServiceName:(NSString*)name;
@property(nullable, weak) id<NSXPCListenerDelegate> delegate;
- (void)setConnectionCodeSigningRequirement:(NSString*)requirement DD_MACOS(13.0);
- (void)resume;
@end
DD_EXTERN void NSLog(NSString* format, ...) __attribute__((format(__NSString__, 1, 2)));
NS_ASSUME_NONNULL_END
