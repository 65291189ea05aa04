// SPDX-License-Identifier: MIT

// Stand-in for what Darwin's <sys/ioctl.h> has beyond the system's own: the serial speed request of
// its USB serial drivers, _IOW('T', 2, uint32_t).
//
// The Darwin contract: sets both directions of a serial line to any rate in bits per second the
// hardware supports, beside the table of standard rates. Returns -1 with errno set for any other
// rate and for a descriptor that is not a serial line. Here it becomes the kernel's own request for
// an arbitrary rate; a rate that the driver misses by more than two percent, and 0, give EINVAL.
// Left out: that Darwin drops the rate with the next tcsetattr().

#include_next <sys/ioctl.h>

#ifndef HOST_SYS_IOCTL_H
#define HOST_SYS_IOCTL_H

// The stand-in itself calls the real one.
#ifndef HOST_SYS_IOCTL_IMPLEMENTATION

#ifdef __cplusplus
extern "C" {
#endif

int ioctl(int hFile, unsigned long Request, ...) __THROW __asm__("HOST_ioctl");

#ifdef __cplusplus
}
#endif

#endif

#endif
