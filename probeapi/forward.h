// probeapi/forward.h
// SPDX-License-Identifier: MIT
//
// The parts of the exported forwarding functions. Callers do not need this header: they declare the
// function that they want (quobearm.h declares the tool's) and call it.
//
//   names.inc            the one list of names
//   forward_table.cpp    a slot per name: its address in the library, NULL until resolved
//   forward_stubs.S      an exported entry per name: fills an empty slot, then jumps to its address
//   forward_resolve.cpp  resolves one name
//
// An entry does not know its function's signature. It changes no argument, in a register or on the
// stack, and ends with a jump, so any arguments and any result pass.

#ifndef PROBEAPI_FORWARD_H
#define PROBEAPI_FORWARD_H

#define FORWARD_NUM_FUNCTIONS 631

extern "C" {

// Called by an entry whose slot is empty. Opens the library unless it is open, finds sName in it,
// stores the address in *ppSlot and returns it.
//
// If the library or the function is missing, the process ends with exit status 1 after one line on
// standard output. Returns NULL and stores NULL for a symbol whose value is null; the entry then
// returns 0 to its caller.
//
// Without a lock. Two threads that resolve the same name store the same address.
void* FORWARD_Resolve(void** ppSlot, const char* sName);

// FORWARD_Slot_<name>: a void* per function, set once. Not exported.
#define FORWARD(Name) extern void* FORWARD_Slot_##Name;
#include "probeapi/names.inc"
#undef FORWARD

}  // extern "C"

#endif
