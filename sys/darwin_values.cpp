// SPDX-License-Identifier: MIT

// Checks at compile time that the system's names have the values that the product relies on: for
// serial lines, the log, child processes, sockets, power management and the search for ports.
// Compiled for macOS only; it contains no code.

#include <IOKit/pwr_mgt/IOPMLib.h>
#include <IOKit/serial/IOSerialKeys.h>
#include <spawn.h>
#include <sys/socket.h>
#include <syslog.h>

#include "sys/serial_settings.h"

static_assert(INPUT_CLEARED == 0x27FC, "input flags cleared");
static_assert(INPUT_SET == 0x01, "input flags set");
static_assert(OUTPUT_KEPT == 0x0D, "output flags kept");
static_assert(CONTROL_CLEARED == 0x39F00, "control flags cleared");
static_assert(CONTROL_SET == 0x8B00, "control flags set");
static_assert((uint32_t)~LOCAL_CLEARED == 0xDFFFFA00, "local flags kept");
static_assert(SPEED_REQUEST == 0x80045402, "serial speed request");
static_assert(TIOCEXCL == 0x2000740D, "exclusive use request");

static_assert(__builtin_strcmp(kIOSerialBSDServiceValue, "IOSerialBSDClient") == 0, "class");
static_assert(__builtin_strcmp(kIOSerialBSDTypeKey, "IOSerialBSDClientType") == 0, "key of kind");
static_assert(__builtin_strcmp(kIOSerialBSDAllTypes, "IOSerialStream") == 0, "every kind");
static_assert(__builtin_strcmp(kIOCalloutDeviceKey, "IOCalloutDevice") == 0, "key of path");

static_assert(kIOPMAssertionLevelOn == 255, "level of the assertion");

static_assert(SO_NOSIGPIPE == 0x1022, "no signal for a broken connection");
static_assert(POSIX_SPAWN_CLOEXEC_DEFAULT == 0x4000, "child without descriptors");
static_assert((LOG_USER | LOG_DEBUG) == 15, "log priority");
