// sys/serial.h
// SPDX-License-Identifier: MIT
//
// Serial ports: finding USB ports, and using a port as a raw line (8N1, no flow control).
//
// A port is named by its device node without the leading "/dev/": "cu.usbmodem1". A line has 8 data
// bits, no parity, 1 stop bit. One thread at a time for each handle.

#ifndef SYS_SERIAL_H
#define SYS_SERIAL_H

#include <stdint.h>

enum { SYS_SERIAL_NAME_SIZE = 64 };  // terminator included

struct SYS_SERIAL_NAME {
  char ac[SYS_SERIAL_NAME_SIZE];
};

struct SYS_SERIAL_PORT;  // an open port

// Finds the USB serial ports, and prints each.
// These are the call-out devices whose path begins with "/dev/cu.usb". The names of the first
// Capacity of them are stored at paNames, which may be NULL if Capacity is 0. A name of more than
// 63 characters is cut; do not open a name that fills its entry.
// Every port found is printed on standard output as "Modem at path: %s\n" with its full path, also
// those beyond Capacity.
// Returns the number of ports found, which may exceed Capacity; 0 when the search fails.
uint32_t SYS_SERIAL_Enumerate(SYS_SERIAL_NAME* paNames, uint32_t Capacity);

// Opens a port for this process alone and sets it up.
// BaudRate is in bits per second and below 2^31. A read does not wait longer than a tenth of a
// second for data. Bytes pending in either direction are discarded.
// Unsupported settings are ignored, except the speed: if the line does not support the rate, or the
// device is not a serial line, the line "ERROR while writing port settings." is printed on standard
// output.
// Returns the handle, to be closed with SYS_SERIAL_Close, or NULL; no descriptor stays open then.
// NULL without a message: the device does not exist, sName has more than 122 characters (cut, it
// could name another device), there is no memory, or the descriptor is FD_SETSIZE (1024) or above,
// which select() cannot wait for.
SYS_SERIAL_PORT* SYS_SERIAL_Open(const char* sName, uint32_t BaudRate);

// Sets the speed of both directions.
// hPort is a descriptor (SYS_SERIAL_GetDescriptor gives that of a handle), so that a line opened
// elsewhere can be used too. Returns 0, or -1 when the line does not support the rate.
int32_t SYS_SERIAL_SetSpeed(int32_t hPort, uint32_t BaudRate);

// Returns the descriptor of an open port.
int32_t SYS_SERIAL_GetDescriptor(const SYS_SERIAL_PORT* pPort);

// Waits for data for up to Timeout milliseconds, and reads once.
// With a Timeout of 0 it does not wait.
// Returns the number of bytes read, 1 to NumBytes; 0 after the time-out; -1 for an error.
// When the device is gone the result is 0 or -1 well before the time-out: on macOS -1 (ENXIO) for a
// USB device that was pulled out. A caller that keeps reading will spin.
int32_t SYS_SERIAL_Read(SYS_SERIAL_PORT* pPort, void* pBuffer, uint32_t NumBytes, uint32_t Timeout);

// Writes once.
// Returns the number of bytes written, which may be less than NumBytes, or -1.
int32_t SYS_SERIAL_Write(SYS_SERIAL_PORT* pPort, const void* pData, uint32_t NumBytes);

// Closes the port and frees the handle.
// pPort must not be NULL.
void SYS_SERIAL_Close(SYS_SERIAL_PORT* pPort);

#endif
