#pragma once

/* Declarations from Apple's public macOS SDK headers, limited to what the
   dock backend uses. See ../README.md. */

/* <i386/_types.h>, <sys/_types.h> */
typedef unsigned int __darwin_natural_t;
typedef __darwin_natural_t __darwin_mach_port_name_t;
typedef __darwin_mach_port_name_t __darwin_mach_port_t;

/* <sys/_types/_mach_port_t.h> */
typedef __darwin_mach_port_t mach_port_t;

/* <mach/i386/vm_types.h> */
typedef __darwin_natural_t natural_t;

/* <mach/i386/kern_return.h> */
typedef int kern_return_t;

/* <mach/kern_return.h> */
#define KERN_SUCCESS 0

/* <mach/mach_types.h> */
typedef mach_port_t task_t;
typedef task_t task_port_t;
