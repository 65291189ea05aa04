// probeapi/forward.h
//
// What the exported forwarding functions are made of. Callers need none of this: they declare the
// function they want (quobearm.h for the tool's own) and call it.
//
//   names.inc            the one list of names
//   forward_table.cpp    a slot per name: the function's address in the library, NULL until found
//   forward_stubs.S      the exported entry per name: slot set, jump there; else find it first
//   forward_resolve.cpp  finding one
//
// A stub does not know its function's signature. It touches no argument, neither in a register nor
// on the stack, and leaves by a jump, so any arguments and any result pass.

#ifndef PROBEAPI_FORWARD_H
#define PROBEAPI_FORWARD_H

#define FORWARD_NUM_FUNCTIONS 631

extern "C" {

// Called by a stub whose slot is empty. Opens the library if need be, finds sName in it, stores
// the address in *ppSlot and returns it.
//
// A library or function that is missing ends the process with exit status 1 after one line on
// standard output. Returns NULL, with the slot NULL, for a symbol whose value is null; the stub
// then returns 0 to its caller.
void* FORWARD_Resolve(void** ppSlot, const char* sName);

// FORWARD_Slot_<name>: void*, one per function. Set once, never cleared. Not exported.
#define FORWARD(Name) extern void* FORWARD_Slot_##Name;
#include "probeapi/names.inc"
#undef FORWARD

}  // extern "C"

#endif
