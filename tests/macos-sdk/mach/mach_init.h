#pragma once

/* Declarations from Apple's public macOS SDK headers, limited to what the
   dock backend uses. See ../README.md. */

#include <mach/mach_types.h>

/* <mach/mach_init.h> */
#ifdef __cplusplus
extern "C" {
#endif

extern mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_

#ifdef __cplusplus
}
#endif
