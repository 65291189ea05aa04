// SPDX-License-Identifier: MIT

#include "sim/f4/f4.h"

namespace sim::f4 {

static std::vector<SECTOR> SectorsOf(const silicon::SECTOR_MAP& Map, const silicon::MEMORY& Flash) {
  const uint32_t      BankBytes = Flash.Bytes / Map.NumBanks;
  std::vector<SECTOR> Sectors;
  for (uint32_t Bank = 0; Bank < Map.NumBanks && Map.UnitBytes != 0; Bank++) {
    uint32_t Offset = 0;
    for (uint32_t i = 0; Offset < BankBytes; i++) {
      const uint32_t Bytes = Map.UnitBytes * (i < 4 ? 1 : i == 4 ? 4 : 8);
      Sectors.push_back({Bank, i, Flash.Base + Bank * BankBytes + Offset, Bytes});
      Offset += Bytes;
    }
  }
  return Sectors;
}

ControllerF4::ControllerF4(Surroundings& Around, const silicon::DEVICE& Facts,
                           const F4_FAMILY& Family)
    : Controller(Around, Facts, Family.Common),
      family_(Family),
      layout_(LayoutOf(Facts)),
      sectors_(SectorsOf(layout_.Map, Facts.Memory[0])),
      splitSectors_(SectorsOf(layout_.Split, Facts.Memory[0])) {
  State("to_program_0", &toProgram_[0]);
  State("to_program_1", &toProgram_[1]);
  State("to_program_2", &toProgram_[2]);
}

// -- Bus -----------------------------------------------------------------------------------------

// Both banks hold options.
bool ControllerF4::RunsIn(uint32_t Bank) const {
  const PHASE& Phase = *Running();
  switch (Phase.Kind) {
    case MASS_ERASE:
      return Phase.Argument == UNPROTECT || (Phase.Argument >> Bank & 1) != 0;
    case PAGE_ERASE:
    case WORD_PROGRAM:
      return SectorAt(Phase.Argument).Bank == Bank;
    default:
      return true;
  }
}

// Keys and flags are taken at once. Of two banks one stays readable while the other is busy.
bool ControllerF4::MustWait(const ACCESS& Access) const {
  switch (Access.Area) {
    case OPTION_AREA:
      return Level() == 0;
    case MEMORY_AREA:
      return Access.pMemory->Row().Kind == MAIN_FLASH && Level() == 0 &&
             (Access.IsWrite || RunsIn(SectorAt(Access.Address).Bank));
    default:
      return Access.IsWrite && Access.Address >= BASE + CR;
  }
}

bool ControllerF4::ReadRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t* pValue) {
  *pValue = registers_[Offset] | (Offset == SR && Busy() ? SR_BSY : 0);
  return true;
}

bool ControllerF4::WriteRegister(uint32_t Offset, uint32_t /*Size*/, uint32_t Value) {
  switch (Offset) {
    case KEYR:
      return WriteKey(FLASH_LOCK, Value);
    case OPTKEYR:
      return WriteKey(OPTION_LOCK, Value) || !Is(F4_OPTKEY_BUS_ERROR);
    case ACR:
    case SR:
      registers_.Write(Offset, Value);
      return true;
    case CR:
      WriteControl(Value);
      return true;
    default:
      WriteOption(Offset, Value);
      return true;
  }
}

void ControllerF4::WriteControl(uint32_t Value) {
  if ((registers_[CR] & CR_LOCK) != 0) {
    return;
  }
  registers_.Write(CR, Value);
  if ((Value & CR_LOCK) != 0) {
    CloseLock(FLASH_LOCK);
  }
  if ((Value & CR_STRT) != 0 && !StartErase()) {
    registers_[CR] &= ~CR_STRT;
  }
}

// Flags of what could not be done; OPERR reports any of them where that interrupt is enabled.
void ControllerF4::SetError(uint32_t Flags) {
  registers_[SR] |= Flags | ((registers_[CR] & CR_ERRIE) != 0 ? SR_OPERR : 0);
}

// -- Operations ----------------------------------------------------------------------------------

// Flash is erased before the options are touched. From then to the end of the change these are lost,
// which leaves the device at level 1.
void ControllerF4::Perform(const PHASE& Phase, uint32_t DonePerMille) {
  const bool IsDone = DonePerMille == 1000;
  switch (Phase.Kind) {
    case MASS_ERASE:
      EraseSectors(Phase.Argument, DonePerMille);
      break;
    case PAGE_ERASE:
      MainFlash().EraseUntil(Phase.Argument, SectorAt(Phase.Argument).Bytes, DonePerMille);
      break;
    case OPTION_ERASE:
      EraseOptions();
      break;
    case OPTION_PROGRAM:
      IsDone ? StoreWords(toProgram_) : EraseOptions();
      break;
    case WORD_PROGRAM:
      // One that is cut short has cleared every other bit.
      MainFlash().WordAt(Phase.Argument) &= Phase.Value | (IsDone ? 0 : 0xAAAAAAAA);
      break;
    default:
      break;
  }
}

void ControllerF4::FinishPhase(const PHASE& Phase) {
  if (Phase.Kind == OPTION_PROGRAM) {
    LoadProtection();
    registers_[OPTCR] &= ~OPTCR_OPTSTRT;
  }
  if (Phase.Kind != OPTION_ERASE) {  // which programming follows
    registers_[CR] &= ~CR_STRT;
    registers_[SR] |= (registers_[CR] & CR_EOPIE) != 0 ? SR_EOP : 0;
  }
}

}  // namespace sim::f4
