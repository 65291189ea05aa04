// sys/serial.h
//
// Serial ports: finding those of USB devices, and using one as a raw line of 8 data bits, no
// parity, 1 stop bit, no flow control.
//
// A port is named by its device node without the leading "/dev/", "cu.usbmodem1". A handle is used
// by one thread at a time.

#ifndef SYS_SERIAL_H
#define SYS_SERIAL_H

#include <stdint.h>

enum { SYS_SERIAL_NAME_SIZE = 64 };  // terminator included

struct SYS_SERIAL_NAME {
  char ac[SYS_SERIAL_NAME_SIZE];
};

struct SYS_SERIAL_PORT;  // an open port

// Looks for call-out devices whose path begins with "/dev/cu.usb" and stores the names of the first
// Capacity of them at paNames, which may be NULL with a Capacity of 0. A name longer than 63
// characters is cut; do not open what fills its entry.
// Every device found is printed on standard output, also those behind the Capacity:
// "Modem at path: %s\n" with the path in full.
// Returns the number of devices found, which may exceed Capacity; 0 when the search fails.
uint32_t SYS_SERIAL_Enumerate(SYS_SERIAL_NAME* paNames, uint32_t Capacity);

// Opens the port for this process alone, sets it up (reads do not wait longer than a tenth of a
// second), and drops what is pending in either direction. BaudRate is in bits per second.
// What a line cannot do is overlooked, but for its speed: with a rate that it does not take, and
// with a device that is no serial line, "ERROR while writing port settings." is printed on standard
// output as a line.
// Returns the handle, to be closed with SYS_SERIAL_Close, or NULL; no descriptor stays open then.
// NULL without a word: there is no such device, sName is longer than 122 characters (cut it could
// name another device), there is no memory, or the descriptor would be one that reads cannot wait
// for, because select() knows those below FD_SETSIZE (1024) only.
SYS_SERIAL_PORT* SYS_SERIAL_Open(const char* sName, uint32_t BaudRate);

// Sets the speed of both directions. hPort is a descriptor, so that a line opened elsewhere will
// do; that of a handle is SYS_SERIAL_GetDescriptor.
// Returns 0, or -1 when the line does not take that rate.
int32_t SYS_SERIAL_SetSpeed(int32_t hPort, uint32_t BaudRate);
int32_t SYS_SERIAL_GetDescriptor(const SYS_SERIAL_PORT* pPort);

// Waits for data for up to Timeout milliseconds (0: not at all) and reads once.
// Returns the number of bytes read, 1 to NumBytes; 0 after the time-out, and when the device is
// gone; -1 for an error.
// With a device that is gone there is nothing to wait for: a 0 well before the time-out tells it
// from a silent one. Who reads on without looking at the clock would spin.
int32_t SYS_SERIAL_Read(SYS_SERIAL_PORT* pPort, void* pBuffer, uint32_t NumBytes, uint32_t Timeout);

// Writes once. Returns the number of bytes taken, which may be less than NumBytes, or -1.
int32_t SYS_SERIAL_Write(SYS_SERIAL_PORT* pPort, const void* pData, uint32_t NumBytes);

// Closes the port and frees the handle. pPort must not be NULL.
void SYS_SERIAL_Close(SYS_SERIAL_PORT* pPort);

#endif
