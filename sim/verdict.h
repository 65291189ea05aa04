// sim/verdict.h
// SPDX-License-Identifier: MIT
//
// Whether a device is at factory state, and if not, what differs. Both what is stored and what is in
// force count: a device that reaches factory state at its next power-on is not there yet.

#ifndef SIM_VERDICT_H
#define SIM_VERDICT_H

#include <string>
#include <vector>

#include "sim/device.h"

namespace sim {

struct FIELD_VERDICT {
  int                   Word;
  const silicon::FIELD* pField;
  uint32_t              Stored, Loaded, Factory;

  // The level's code in force is judged by the level, not by its bits.
  bool LoadedDiffers() const { return pField->Kind != silicon::LEVEL && Loaded != Factory; }
  bool Differs() const { return Stored != Factory || LoadedDiffers(); }
};

struct VERDICT {
  std::vector<FIELD_VERDICT> Fields;  // every option field
  // What differs from factory state, one short text each; none at factory state.
  std::vector<std::string> Differences;

  bool AtFactory() const { return Differences.empty(); }
};

// Looks only; the device has to have power.
VERDICT Judge(const Device& Device);

}  // namespace sim

#endif
