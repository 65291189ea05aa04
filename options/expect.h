// options/expect.h
// SPDX-License-Identifier: MIT
//
// What a device is compared with, and how it differs.

#ifndef OPTIONS_EXPECT_H
#define OPTIONS_EXPECT_H

#include "options/reading.h"

static constexpr uint32_t MAX_DIFFERENCES = 160;
static constexpr uint32_t MAX_FIELDS      = 64;   // of a file
static constexpr uint32_t NAME_SIZE       = 48;   // of a name or value, terminator counted
static constexpr uint32_t ERROR_SIZE      = 600;  // of a message

struct DIFFERENCE {
  const char* sWhat;              // "loaded", "stored", "complement", "error", "level" or "device"
  char        acWord[NAME_SIZE];  // empty: none
  char        acName[NAME_SIZE];  // empty: none
  char        acExpected[NAME_SIZE];
  char        acActual[NAME_SIZE];
};

struct DIFFERENCES {
  DIFFERENCE aDifference[MAX_DIFFERENCES];
  uint32_t   NumDifferences;
};

// One field, or with an empty name one word, of an earlier output. An empty value was null.
struct EXPECTED_FIELD {
  char acWord[NAME_SIZE];
  char acName[NAME_SIZE];
  char acLoaded[NAME_SIZE];
  char acStored[NAME_SIZE];
  char acComplement[NAME_SIZE];
};

struct EXPECTED {
  char           acDevice[NAME_SIZE];  // empty: not known
  char           acLevel[NAME_SIZE];
  EXPECTED_FIELD aField[MAX_FIELDS];
  uint32_t       NumFields;
  EXPECTED_FIELD aError[MAX_FIELDS];  // register and flag, as word and name
  uint32_t       NumErrors;
};

// Reads an earlier output of --json. 0: read. -1: acError says in one line why not.
int32_t EXPECT_ReadFile(const char* sPath, EXPECTED* pExpected, char (&acError)[ERROR_SIZE]);

// "0" to "2", or empty for a level that is not known.
const char* EXPECT_LevelText(int32_t Level);

// "right", "wrong", "erased"; empty for none.
const char* EXPECT_ComplementText(COMPLEMENT_STATE State);

void EXPECT_CompareWithFactory(const READING* pReading, DIFFERENCES* pDifferences);
void EXPECT_CompareWithFile(const READING* pReading, const EXPECTED* pExpected,
                            DIFFERENCES* pDifferences);

#endif
