// options/outlook.h
// SPDX-License-Identifier: MIT
//
// What one run of the unlock tool will do to the device that was read, by the rules of the reference
// manuals. Nothing is tried.

#ifndef OPTIONS_OUTLOOK_H
#define OPTIONS_OUTLOOK_H

#include "options/reading.h"

static constexpr uint32_t MAX_LEFT = 40;

enum OUTLOOK_ANSWER : int8_t { OUTLOOK_UNKNOWN = -1, OUTLOOK_NO = 0, OUTLOOK_YES = 1 };

// A field that is not at its factory value afterwards.
struct LEFT {
  const WORD_READING*   pWord;
  const silicon::FIELD* pField;  // NULL: the word's complement is wrong
  uint32_t              Value;
  const char*           sWhy;
};

struct OUTLOOK {
  OUTLOOK_ANSWER Possible;
  OUTLOOK_ANSWER ErasesFlash;
  bool           NeedsPowerCycle;  // until then the old options stay in force
  LEFT           aLeft[MAX_LEFT];  // after that power cycle, where one is needed
  uint32_t       NumLeft;
  const char*    sWhy;
};

void OUTLOOK_Find(const READING* pReading, OUTLOOK* pOutlook);

#endif
