// wire/server.h
// SPDX-License-Identifier: MIT
//
// Serves one adapter on a loopback socket: reports of 64 bytes, one after the other, for one host at
// a time. A host that comes while another is connected waits.

#ifndef WIRE_SERVER_H
#define WIRE_SERVER_H

#include <functional>

#include "wire/adapter.h"

namespace wire {

// A listening socket on 127.0.0.1; Port 0 takes a free one. -1 on failure; *pPort is the port.
int Listen(int* pPort);

// Serves until the adapter is unplugged or GoesOn, which is asked before each report and whenever a
// signal interrupts the wait for one, says no.
void Serve(int Listener, Adapter* pAdapter, const std::function<bool()>& GoesOn);

}  // namespace wire

#endif
