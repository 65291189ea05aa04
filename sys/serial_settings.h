// sys/serial_settings.h
// SPDX-License-Identifier: MIT
//
// The changes that sys/serial.cpp makes to a line's terminal attributes, by the system's names.
//
// sys/darwin_values.cpp checks the values that these names have on macOS. Not for users of the
// module.

#ifndef SYS_SERIAL_SETTINGS_H
#define SYS_SERIAL_SETTINGS_H

#include <stdint.h>
#include <sys/ioctl.h>
#include <termios.h>

// Bytes arrive unchanged and a break is ignored. BRKINT and IXANY keep their state.
static constexpr tcflag_t INPUT_CLEARED =
    IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IMAXBEL;
static constexpr tcflag_t INPUT_SET = IGNBRK;

// All other output processing is switched off, most of all ONLCR.
static constexpr tcflag_t OUTPUT_KEPT = OPOST | OXTABS | ONOEOT;

// 8 data bits, no parity, 1 stop bit, no hardware flow control, modem lines ignored.
static constexpr tcflag_t CONTROL_CLEARED =
    CSIZE | CSTOPB | CREAD | PARENB | CLOCAL | CCTS_OFLOW | CRTS_IFLOW;
static constexpr tcflag_t CONTROL_SET = CS8 | CREAD | CLOCAL;

// No echo, no line editing, no characters that raise signals.
static constexpr tcflag_t LOCAL_CLEARED =
    ECHOKE | ECHOE | ECHOK | ECHO | ECHONL | ECHOPRT | ECHOCTL | ISIG | ICANON | IEXTEN | PENDIN;

// The speed request of IOKit's serial drivers in its 32-bit form. The one in <IOKit/serial/ioss.h>
// takes a speed_t, which is 64 bits wide.
static constexpr unsigned long SPEED_REQUEST = _IOW('T', 2, uint32_t);

#endif
