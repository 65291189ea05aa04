// options/areas.h
// SPDX-License-Identifier: MIT
//
// What is protected in the flash, as ranges of addresses: from the protection that is in force, or
// that is stored where no register shows what is in force.

#ifndef OPTIONS_AREAS_H
#define OPTIONS_AREAS_H

#include "options/reading.h"

enum AREA_KIND : uint8_t { AREAS_WRITE_PROTECTED, AREAS_PCROP, AREAS_SECURE };

static constexpr uint32_t MAX_AREAS = 80;  // every second of 160 sectors

struct AREA {
  uint32_t Bank;   // from 1
  uint32_t First;  // sectors or pages by the manual's numbers; of an area its START and END
  uint32_t Last;
  uint32_t Start;  // addresses, both inclusive
  uint32_t End;
};

struct AREAS {
  const char* sUnit;  // what First and Last count: "sector", "page", "4 KB" or "area"
  AREA        aArea[MAX_AREAS];
  uint32_t    NumAreas;  // 0 also for a device that is not described
};

void AREAS_Find(const READING* pReading, AREA_KIND Kind, AREAS* pAreas);

#endif
