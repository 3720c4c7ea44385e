#pragma once
#include <objc/NSObject.h>
// In Objective-C++ dispatch objects are Objective-C objects, so ARC manages them.
DD_ASSUME_NONNULL_BEGIN
@protocol OS_dispatch_object <NSObject>
@end
@protocol OS_dispatch_queue <OS_dispatch_object>
@end
@protocol OS_dispatch_source <OS_dispatch_object>
@end
@protocol OS_dispatch_semaphore <OS_dispatch_object>
@end
@protocol OS_dispatch_queue_attr <OS_dispatch_object>
@end
typedef NSObject<OS_dispatch_object>* dispatch_object_t;
typedef NSObject<OS_dispatch_queue>* dispatch_queue_t;
typedef NSObject<OS_dispatch_source>* dispatch_source_t;
typedef NSObject<OS_dispatch_semaphore>* dispatch_semaphore_t;
typedef NSObject<OS_dispatch_queue_attr>* dispatch_queue_attr_t;
typedef void (^dispatch_block_t)(void);
typedef uint64_t dispatch_time_t;
typedef unsigned int dispatch_qos_class_t;
typedef const struct dispatch_source_type_s* dispatch_source_type_t;
enum : dispatch_qos_class_t {
    QOS_CLASS_USER_INTERACTIVE = 0x21,
    QOS_CLASS_USER_INITIATED = 0x19,
    QOS_CLASS_DEFAULT = 0x15,
    QOS_CLASS_UTILITY = 0x11,
    QOS_CLASS_BACKGROUND = 0x09,
};
#define NSEC_PER_SEC 1000000000ull
#define NSEC_PER_MSEC 1000000ull
#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)
#define DISPATCH_QUEUE_SERIAL ((dispatch_queue_attr_t _Nullable)nil)
DD_BEGIN
extern const struct dispatch_source_type_s _dispatch_source_type_timer;
dispatch_queue_t dispatch_queue_create(const char* _Nullable label, dispatch_queue_attr_t _Nullable attr)
    __attribute__((ns_returns_retained));
dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t _Nullable attr,
                                                              dispatch_qos_class_t qos, int relativePriority);
dispatch_queue_t dispatch_get_main_queue(void);
dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
typedef void (*dispatch_function_t)(void* _Nullable);
void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* _Nullable context,
                                 dispatch_function_t _Nullable destructor);
void* _Nullable dispatch_get_specific(const void* key);
__attribute__((noreturn)) void dispatch_main(void);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_sync(dispatch_queue_t queue, __attribute__((noescape)) dispatch_block_t block);
void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
dispatch_source_t dispatch_source_create(dispatch_source_type_t type, uintptr_t handle, uintptr_t mask,
                                         dispatch_queue_t _Nullable queue) __attribute__((ns_returns_retained));
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t _Nullable handler);
void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t leeway);
void dispatch_source_cancel(dispatch_source_t source);
void dispatch_activate(dispatch_object_t object);
void dispatch_resume(dispatch_object_t object);
dispatch_semaphore_t dispatch_semaphore_create(intptr_t value) __attribute__((ns_returns_retained));
intptr_t dispatch_semaphore_wait(dispatch_semaphore_t semaphore, dispatch_time_t timeout);
intptr_t dispatch_semaphore_signal(dispatch_semaphore_t semaphore);
DD_END
#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)
DD_ASSUME_NONNULL_END
