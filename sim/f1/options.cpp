// SPDX-License-Identifier: MIT

#include "sim/f1/f1.h"

namespace sim::f1 {

enum { WORD_RDP_USER, WORD_DATA, WORD_WRP01 };

// -- In force ------------------------------------------------------------------------------------

// A byte whose complement is wrong counts as FF.
uint32_t ControllerF1::Effective(int Index) const {
  uint32_t Value = Stored(Index);
  for (const uint32_t Shift : {0u, 16u}) {
    const uint32_t Half = Value >> Shift;
    if (((Half ^ Half >> 8) & 0xFF) != 0xFF) {
      Value |= 0xFFu << Shift;
    }
  }
  return Value & 0x00FF00FF;
}

bool ControllerF1::LoadsAtReset() const {
  return family_.Loading == LOAD_ON_RESET ||
         (family_.Loading == LOAD_ON_BOTH && Is(F3_LOAD_ON_RESET));
}

void ControllerF1::OnReset(bool /*IsNew*/, bool IsPowerOn) {
  static const uint32_t aSteps[] = {0, 1, 3};  // by level
  registers_[OBR]                = facts_.pFamily->LevelField.Put(registers_[OBR], aSteps[Level()]);
  registers_[OBR] |= BadWords() != 0 ? OBR_OPTERR : 0;
  unreadable_ = IsPowerOn ? 0 : unreadable_;
}

std::string ControllerF1::Remarks() const {
  if (unreadable_ != 0) {
    return "flash stays unreadable until power-on";
  }
  if (StoredLevel() != Level()) {
    return Level() == 0 ? "the stored protection level is not loaded yet"
                        : "the old protection level is still in force until options are loaded";
  }
  return "";
}

// -- Programming ---------------------------------------------------------------------------------

bool ControllerF1::WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) {
  if ((registers_[CR] & (CR_OPTPG | CR_OPTWRE | CR_LOCK)) != (CR_OPTPG | CR_OPTWRE)) {
    registers_[SR] |= SR_WRPRTERR;
    return true;
  }
  if (Size != 2) {
    return false;
  }
  const uint32_t Old = Stored(IndexOfWord(Address)) >> 8 * (Address % 4);
  if ((Old & 0xFFFF) != 0xFFFF) {
    registers_[SR] |= SR_PGERR | SR_WRPRTERR;
    return true;
  }
  // Taking the protection away costs the flash, however the byte came to be erased.
  std::vector<PHASE> Phases;
  if (Address == Word(WORD_RDP_USER).Stored && LevelOfByte(Value & 0xFF) == 0 && Level() != 0) {
    Phases.push_back({MASS_ERASE, Us(ERASE), UNPROTECT});
  }
  Phases.push_back({WORD_PROGRAM, Us(PROGRAM), Address, Value});
  Begin(Phases);
  return true;
}

void ControllerF1::ProgramOption(uint32_t Address, uint32_t Half) {
  const int Index = IndexOfWord(Address);
  Store(Index, Merge(Stored(Index), Address, 2, Half));
}

void ControllerF1::EraseOptions(bool ToTheEnd) {
  for (int i = 0; i < NumWords(); i++) {
    Store(i, ToTheEnd ? 0xFFFFFFFF : HalfErased(Stored(i), 0xFFFFFFFF));
  }
}

// -- A new device --------------------------------------------------------------------------------

CAPABILITIES ControllerF1::Can() const {
  const uint32_t InFlash = (MainFlash().Row().Bytes + WrpBytes() - 1) / WrpBytes();
  return {.NumWrp   = NumWrpBits() < InFlash ? NumWrpBits() : InFlash,
          .UserWord = WORD_RDP_USER,
          .UserMask = 0x00FF0000,
          .UserLow  = 16,
          .Level1   = 0x00};
}

// A bit that is 0 protects.
bool ControllerF1::Protect(const CREATE_REQUEST& Request, std::string* /*psError*/) {
  const uint32_t Free = ~Request.Wrp.Mask(Can().NumWrp);
  for (uint32_t i = 0; 16 * i < NumWrpBits(); i++) {
    const uint32_t Bits  = Free >> 16 * i;
    const int      Index = WORD_WRP01 + static_cast<int>(i);
    Store(Index, WithComplement(Index, (Bits & 0xFF) | (Bits & 0xFF00) << 8));
  }
  return true;
}

}  // namespace sim::f1
