// machorun/shim.h
// SPDX-License-Identifier: MIT
//
// What the Mach-O program's imports are bound to.
//
// Each shim_*.cpp covers one area: functions that take Darwin's arguments, call this system's
// functions and return Darwin's results. host_functions.cpp lists functions that are the same on
// both systems and are bound directly. Any other name is refused: this system's function of that
// name may take other constants or write a record of another size.
//
// The same holds for values. A flag or request that a shim does not translate ends the run with a
// message (Unknown); nothing is passed on as it is.

#ifndef MACHORUN_SHIM_H
#define MACHORUN_SHIM_H

#include <stdint.h>

#include <span>
#include <string>

struct Shim {
  const char* sName;  // as in the file: with the underscore in front
  void*       pAddress;
};

template <class T>
constexpr Shim Bound(const char* sName, T* pFunction) {
  return {sName, reinterpret_cast<void*>(pFunction)};
}

std::span<const Shim> HostFunctions();
std::span<const Shim> DlShims();
std::span<const Shim> ErrnoShims();
std::span<const Shim> FileShims();
std::span<const Shim> IOKitShims();
std::span<const Shim> NameShims();
std::span<const Shim> ProcessShims();
std::span<const Shim> SocketShims();
std::span<const Shim> TerminalShims();
std::span<const Shim> ThreadShims();
std::span<const Shim> TimeShims();

// -- For the shims -------------------------------------------------------------------------------

// Ends the run: the program asked for something that is not translated here. Exit status 126.
[[noreturn]] void Unknown(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

// Adds a line to the file that MACHORUN_TRACE names, if it is set. Keeps errno.
void Trace(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

// The path of the program's file, with links followed.
const std::string& ProgramRealPath();

int ToDarwinErrno(int HostErrno);

// Translates flag by flag with a table; a flag that is in no row is Unknown.
struct FlagPair {
  uint64_t Darwin;
  uint64_t Host;
};
uint64_t FlagsToHost(uint64_t Flags, std::span<const FlagPair> Table, const char* sWhat);
// Host flags that are in no row are dropped.
uint64_t FlagsToDarwin(uint64_t Flags, std::span<const FlagPair> Table);

// Forgets a socket that was closed; its number may be used again.
void ForgetSocket(int Descriptor);

#endif
