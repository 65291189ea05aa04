// options/json_read.h
// SPDX-License-Identifier: MIT
//
// Reads a JSON text and hands out its values one by one.

#ifndef OPTIONS_JSON_READ_H
#define OPTIONS_JSON_READ_H

#include <stdint.h>

static constexpr uint32_t JSON_MAX_DEPTH = 16;
static constexpr uint32_t JSON_TEXT_SIZE = 512;  // of a name or value, terminator counted

enum JSON_KIND : uint8_t {
  JSON_IS_TEXT,
  JSON_IS_OTHER,  // a number, true, false or null, as it is written
  JSON_IS_BEGIN,  // of an object or array; no text
  JSON_IS_END
};

// Called for each value with its name (empty in an array) and the name of what it is in (empty in the
// outermost object). Depth is 0 for the outermost object itself.
typedef void JSON_VISIT(void* pContext, uint32_t Depth, const char* sIn, const char* sName,
                        JSON_KIND Kind, const char* sText);

// 0: the whole text is one JSON value. -1: it is not, or a text in it is too long; *pLine is the line.
// A character beyond ASCII that is written as \u is handed out as '?'.
int32_t JSON_Read(const char* sText, JSON_VISIT* pfVisit, void* pContext, uint32_t* pLine);

#endif
