#pragma once

/* Declarations from Apple's public macOS SDK headers, limited to what the
   dock backend uses. See ../README.md. */

#include <mach/mach_types.h>

/* <mach/message.h> */
typedef kern_return_t mach_msg_return_t;

#define MACH_SEND_INVALID_DEST 0x10000003 /* Bogus destination port. */
