// openocd/answer.h
// SPDX-License-Identifier: MIT
//
// What OpenOCD answers to a request, taken apart. No state, no allocation, any bytes as input.
//
// A request with the number N is sent as "list qN [catch {COMMAND} e] $e"; its answer is the Tcl list
// "qN CODE TEXT". The number tells an answer from text that a user's file has put on the same stream,
// and from the late answer to a request that was given up.

#ifndef OPENOCD_ANSWER_H
#define OPENOCD_ANSWER_H

#include <stddef.h>
#include <stdint.h>

// The byte after each request and each answer.
static const char ANSWER_END = 0x1A;

// Looks for the answer to request Number in a frame of Length bytes, which is what came before
// ANSWER_END. On success *pCode is what catch returned, 0 when the command succeeded, and pText its
// result without quotes and without blanks at its end. A text of Size bytes or more is cut.
//
// False when the frame does not end with that answer; *pCode and pText are then left alone or in part
// written.
bool ANSWER_Parse(const char* pFrame, size_t Length, uint32_t Number, int* pCode, char* pText,
                  size_t Size);

// Reads Count numbers ("0xBBED 17 ..."), decimal or hexadecimal after 0x, each of at most 32 bits.
// False when the text holds anything else, or another count; pValues may then be written in part.
bool ANSWER_Numbers(const char* sText, uint32_t* pValues, uint32_t Count);

#endif
