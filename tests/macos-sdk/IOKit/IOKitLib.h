#pragma once

/* Declarations from Apple's public macOS SDK headers, limited to what the
   dock backend uses. See ../README.md. Availability and CF_RETURNS_RETAINED
   annotations are left out. */

#include <stddef.h>
#include <stdint.h>

#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach_init.h>
#include <mach/mach_types.h>
#include <mach/message.h>

#ifdef __cplusplus
extern "C" {
#endif

/* <mach/error.h> */
#define err_system(x) ((signed)((((unsigned)(x)) & 0x3f) << 26))
#define err_sub(x) (((x) & 0xfff) << 14)

/* <IOKit/IOReturn.h> */
typedef kern_return_t IOReturn;

#define sys_iokit err_system(0x38)
#define sub_iokit_common err_sub(0)
#define iokit_common_err(return) (sys_iokit | sub_iokit_common | return)

#define kIOReturnSuccess KERN_SUCCESS                  /* OK */
#define kIOReturnError iokit_common_err(0x2bc)         /* general error */
#define kIOReturnNoMemory iokit_common_err(0x2bd)      /* can't allocate memory */
#define kIOReturnBadArgument iokit_common_err(0x2c2)   /* invalid argument */
#define kIOReturnNotAttached iokit_common_err(0x2d9)   /* device not attached */
#define kIOReturnNotResponding iokit_common_err(0x2ed) /* device not responding */

/* <IOKit/IOTypes.h> */
typedef UInt32 IOOptionBits;

typedef mach_port_t io_object_t;
typedef io_object_t io_connect_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;

/* <device/device_types.h> (LP64) */
typedef char io_name_t[128];
typedef char io_string_t[512];
typedef uint64_t io_user_reference_t;
typedef io_user_reference_t io_async_ref64_t[8];

/* <IOKit/IOKitKeys.h> */
#define kIOServicePlane "IOService"

/* <IOKit/OSMessageNotification.h> */
enum {
    kIOAsyncReservedIndex = 0,
    kIOAsyncReservedCount,

    kIOAsyncCalloutFuncIndex = kIOAsyncReservedCount,
    kIOAsyncCalloutRefconIndex,
    kIOAsyncCalloutCount,
};

enum {
    kOSAsyncRef64Count = 8,
};

/* <IOKit/IOKitLib.h> */
typedef struct IONotificationPort* IONotificationPortRef;

typedef void (*IOAsyncCallback)(void* refcon, IOReturn result, void** args, uint32_t numArgs);

extern const mach_port_t kIOMasterPortDefault;

IONotificationPortRef IONotificationPortCreate(mach_port_t masterPort);
void IONotificationPortDestroy(IONotificationPortRef notify);
CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef notify);
mach_port_t IONotificationPortGetMachPort(IONotificationPortRef notify);

kern_return_t IOObjectRelease(io_object_t object);
kern_return_t IOObjectRetain(io_object_t object);

io_object_t IOIteratorNext(io_iterator_t iterator);

kern_return_t IOServiceGetMatchingServices(mach_port_t masterPort, CFDictionaryRef matching, io_iterator_t* existing);
kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, uint32_t type, io_connect_t* connect);
kern_return_t IOServiceClose(io_connect_t connect);

kern_return_t IOConnectCallAsyncMethod(mach_port_t connection, uint32_t selector, mach_port_t wake_port,
                                       uint64_t* reference, uint32_t referenceCnt,
                                       const uint64_t* input, uint32_t inputCnt,
                                       const void* inputStruct, size_t inputStructCnt,
                                       uint64_t* output, uint32_t* outputCnt,
                                       void* outputStruct, size_t* outputStructCnt);
kern_return_t IOConnectCallScalarMethod(mach_port_t connection, uint32_t selector,
                                        const uint64_t* input, uint32_t inputCnt,
                                        uint64_t* output, uint32_t* outputCnt);

io_registry_entry_t IORegistryEntryFromPath(mach_port_t masterPort, const io_string_t path);

enum {
    kIORegistryIterateRecursively = 0x00000001,
    kIORegistryIterateParents = 0x00000002,
};

kern_return_t IORegistryEntryGetPath(io_registry_entry_t entry, const io_name_t plane, io_string_t path);
kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry, CFMutableDictionaryRef* properties,
                                                CFAllocatorRef allocator, IOOptionBits options);
CFTypeRef IORegistryEntrySearchCFProperty(io_registry_entry_t entry, const io_name_t plane, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);
kern_return_t IORegistryEntrySetCFProperties(io_registry_entry_t entry, CFTypeRef properties);
kern_return_t IORegistryEntryGetChildIterator(io_registry_entry_t entry, const io_name_t plane,
                                              io_iterator_t* iterator);
kern_return_t IORegistryEntryGetParentEntry(io_registry_entry_t entry, const io_name_t plane,
                                            io_registry_entry_t* parent);

CFMutableDictionaryRef IOServiceMatching(const char* name);
CFMutableDictionaryRef IOServiceNameMatching(const char* name);

#ifdef __cplusplus
}
#endif
