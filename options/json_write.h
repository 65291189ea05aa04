// options/json_write.h
// SPDX-License-Identifier: MIT
//
// Writes one JSON object to a stream. The members of the object, and the elements of an array that is
// one of them, have a line each; what is inside them is on that line.

#ifndef OPTIONS_JSON_WRITE_H
#define OPTIONS_JSON_WRITE_H

#include <stdint.h>
#include <stdio.h>

static constexpr uint32_t JSON_DEPTH = 6;

struct JSON_WRITER {
  FILE*    pFile;
  uint32_t Depth;
  bool     IsArray[JSON_DEPTH];
  uint32_t NumItems[JSON_DEPTH];
};

void JSON_Begin(JSON_WRITER* pWriter, FILE* pFile);  // and opens the object
void JSON_Finish(JSON_WRITER* pWriter);              // closes it and ends the line

// A member, or an element of an array if sName is NULL. A text is escaped; bytes that are not UTF-8
// become U+FFFD. NULL as a text is null.
void JSON_OpenObject(JSON_WRITER* pWriter, const char* sName);
void JSON_OpenArray(JSON_WRITER* pWriter, const char* sName);
void JSON_Close(JSON_WRITER* pWriter);
void JSON_Text(JSON_WRITER* pWriter, const char* sName, const char* sText);
void JSON_Number(JSON_WRITER* pWriter, const char* sName, uint32_t Value);
void JSON_Bool(JSON_WRITER* pWriter, const char* sName, bool Value);
void JSON_Null(JSON_WRITER* pWriter, const char* sName);

// A value as a text, "0x" and at least NumDigits digits.
void JSON_Hex(JSON_WRITER* pWriter, const char* sName, uint32_t Value, uint32_t NumDigits);

#endif
