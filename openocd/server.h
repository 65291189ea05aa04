// openocd/server.h
// SPDX-License-Identifier: MIT
//
// A conversation with OpenOCD: one request at a time, each with a deadline. The server is a child of
// this process, or a running one whose Tcl port is reached over the network.
//
// The log of a child is read while an answer is awaited, kept in a file if one is named, and bounded.
// One thread at a time.

#ifndef OPENOCD_SERVER_H
#define OPENOCD_SERVER_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "openocd/child.h"

enum SERVER_RESULT {
  SERVER_OK      = 0,
  SERVER_REFUSED = -1,  // the command failed; the answer is OpenOCD's text
  SERVER_GONE    = -2   // no answer: the conversation is over, see acReason
};

enum { SERVER_MAX_REQUEST = 2048, SERVER_MAX_ANSWER = 8192, SERVER_MAX_LINE = 256 };

struct SERVER {
  bool     IsOpen;
  bool     IsChild;
  CHILD    Child;                      // of a running server only the socket is used
  uint32_t Number;                     // of the last request
  char     acReason[SERVER_MAX_LINE];  // why the conversation is over
  char     acError[SERVER_MAX_LINE];   // what the log says of the last request after "Error: "
  char     acLine[SERVER_MAX_LINE];    // of the log, the line that is not whole yet
  size_t   LineLength;
  FILE*    pLog;
  size_t   LogBytes;                       // written to the file so far
  char     acReceived[SERVER_MAX_ANSWER];  // not yet taken apart
  size_t   NumReceived;
  size_t   NumTried;  // of these bytes, those that were looked at as the end of the answer
};

// Starts sProgram; sLog may be empty. sLastCommand is the Tcl command that is carried out if this
// process ends before SERVER_End.
// False when that is not possible, with the reason in acReason. A program that cannot be run, or ends
// at once, shows at the first request.
bool SERVER_Start(SERVER* pServer, const char* sProgram, const char* sLog,
                  const char* sLastCommand);

// Connects to a running server's Tcl port.
bool SERVER_Connect(SERVER* pServer, const char* sHost, uint32_t Port);

// Carries out a Tcl command, which is formatted here, and stores its result as text.
// After SERVER_GONE the conversation has been ended as by SERVER_End(pServer, 0), and all later
// requests return SERVER_GONE at once.
SERVER_RESULT SERVER_Request(SERVER* pServer, int DeadlineMs, char* pAnswer, size_t Size,
                             const char* sFormat, ...) __attribute__((format(printf, 5, 6)));

// Whether the conversation goes on, as far as that can be said without a request: false when the
// server has closed it.
bool SERVER_IsAlive(SERVER* pServer);

// Ends the conversation. A child gets GraceMs to end by itself and is gone on return. A running server
// stays. May be called at any time.
void SERVER_End(SERVER* pServer, int GraceMs);

#endif
