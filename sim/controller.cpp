#include "sim/controller.h"

#include <algorithm>

#include "sim/device.h"
#include "sim/text.h"

namespace sim {

static const char* const aPhaseNames[] = {"mass erase",          "page erase",
                                          "option bytes: erase", "option bytes: program",
                                          "program word",        "busy with nothing"};

static std::string DurationText(uint64_t Us) {
  if (Us == FOREVER) {
    return "never ends";
  }
  return Us >= 10000 ? Format("%llu ms", static_cast<unsigned long long>(Us / 1000))
                     : Format("%llu us", static_cast<unsigned long long>(Us));
}

Controller::Controller(Device& Owner, std::span<const REGISTER> Table,
                       std::vector<OPTION_WORD> Words)
    : owner_(Owner), registers_(Table), words_(std::move(Words)), stuck_(words_.size()) {
  for (const OPTION_WORD& Word : words_) {
    stored_.push_back(Word.Factory);
    wordRows_.push_back({Word.sName, Word.Address, 0, 0, 0, 0, Word.sFields});
  }
}

// -- Power and reset -----------------------------------------------------------------------------

void Controller::PowerOff() {
  AbortRunning();
  hold_ = 0;
}

void Controller::SystemReset() {
  AbortRunning();
  OnSystemReset();
}

void Controller::AbortRunning() {
  if (!phases_.empty()) {
    const PHASE Phase = phases_.front();
    phases_.clear();
    if (Phase.Kind != STAY_BUSY) {
      AbortPhase(Phase);
    }
    owner_.Event(std::string(aPhaseNames[Phase.Kind]) + " cut short");
  }
}

// -- Running operations --------------------------------------------------------------------------

void Controller::Start(const std::vector<PHASE>& Phases) {
  for (const PHASE& Phase : Phases) {
    phases_.push_back(Phase);
  }
  if (hold_ != 0) {
    phases_.push_back({STAY_BUSY, hold_});
    hold_ = 0;
  }
  leftUs_        = phases_.front().DurationUs;
  owner_.Changed = true;
  owner_.Event(std::string(aPhaseNames[phases_.front().Kind]) + " starts, " +
               DurationText(leftUs_));
}

void Controller::Pass(uint64_t Us) {
  while (!phases_.empty() && leftUs_ != FOREVER && Us >= leftUs_) {
    Us -= leftUs_;
    const PHASE Phase = phases_.front();
    phases_.pop_front();
    if (Phase.Kind != STAY_BUSY) {
      FinishPhase(Phase);
    }
    owner_.Changed = true;
    if (phases_.empty()) {
      owner_.Event(std::string(aPhaseNames[Phase.Kind]) + " done");
    } else {
      leftUs_ = phases_.front().DurationUs;
      owner_.Event(std::string(aPhaseNames[phases_.front().Kind]) + " starts, " +
                   DurationText(leftUs_));
    }
  }
  if (!phases_.empty() && leftUs_ != FOREVER) {
    leftUs_ -= Us;
  }
}

void Controller::FinishAll() {
  while (!phases_.empty()) {
    leftUs_ = 0;
    Pass(0);
  }
}

void Controller::HoldBusy(uint64_t Us) {
  if (phases_.empty()) {
    hold_ = std::max(hold_, Us);
  } else {
    phases_.push_back({STAY_BUSY, Us});
  }
}

bool Controller::RunsInPlace() const {
  return std::all_of(phases_.begin(), phases_.end(), [this](const PHASE& Phase) {
    return Phase.Kind != WORD_PROGRAM || IndexOfWord(Phase.Argument) >= 0 ||
           owner_.HasFlashAt(Phase.Argument);
  });
}

bool Controller::TakeKey(KeyLock* pLock, uint32_t Key, int Register, uint32_t LockBit) {
  if (!pLock->WriteKey(Key)) {
    registers_[Register] |= LockBit;
    return false;
  }
  if (pLock->IsOpen()) {
    registers_[Register] &= ~LockBit;
  }
  return true;
}

// -- Bus -----------------------------------------------------------------------------------------

bool Controller::ReadRegister(int Index, uint32_t Size, uint32_t* pValue) {
  (void)Size;
  *pValue = registers_[Index];
  return true;
}

bool Controller::InOptionArea(uint32_t Address) const {
  (void)Address;
  return false;
}

bool Controller::ReadOptionArea(uint32_t Address, uint32_t* pWord) {
  (void)Address;
  (void)pWord;
  return false;
}

bool Controller::WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) {
  (void)Address;
  (void)Size;
  (void)Value;
  return false;
}

bool Controller::WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) {
  (void)Target;
  (void)Address;
  (void)Size;
  (void)Value;
  return false;
}

bool Controller::FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) {
  (void)Address;
  (void)pValue;
  return Source.Row().Kind == SRAM || Level() == 0;
}

uint32_t Controller::Place(const Memory& Source, uint32_t Address) const {
  (void)Source;
  return Address;
}

const REGISTER* Controller::Describe(uint32_t Address) const {
  const int Index = registers_.Find(Address);
  if (Index >= 0) {
    return &registers_.Row(Index);
  }
  for (const REGISTER& Row : wordRows_) {
    if (Row.Address == Address && Address != 0) {
      return &Row;
    }
  }
  return nullptr;
}

// -- Option bytes --------------------------------------------------------------------------------

int Controller::IndexOfWord(uint32_t Address) const {
  for (size_t i = 0; i < words_.size(); i++) {
    if (words_[i].Address != 0 && words_[i].Address == (Address & ~3u)) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

void Controller::Store(int Index, uint32_t Value) {
  const size_t i = static_cast<size_t>(Index);
  stored_[i]     = (Value & ~stuck_[i].Mask) | stuck_[i].Value;
}

void Controller::SetStuckBits(int Index, uint32_t Mask, uint32_t Value) {
  STUCK& Stuck = stuck_[static_cast<size_t>(Index)];
  Stuck.Value  = (Stuck.Value & ~Mask) | (Value & Mask);
  Stuck.Mask |= Mask;
}

// -- State ---------------------------------------------------------------------------------------

void Controller::SaveTo(KeyFile* pFile, bool WithRegisters) const {
  for (size_t i = 0; i < words_.size(); i++) {
    pFile->Add(std::string("option.") + words_[i].sName, Format("0x%08X", stored_[i]));
  }
  if (!WithRegisters) {
    return;
  }
  for (int i = 0; i < registers_.Count(); i++) {
    pFile->Add(std::string("register.") + registers_.Row(i).sName, Format("0x%08X", registers_[i]));
  }
  for (const STATE_ITEM& Item : state_) {
    pFile->Add(std::string("state.") + Item.sName, Format("0x%08X", *Item.pValue));
  }
  for (size_t i = 0; i < phases_.size(); i++) {
    const PHASE& Phase = phases_[i];
    pFile->Add(Format("running.%zu.kind", i), Format("%d", Phase.Kind));
    pFile->Add(Format("running.%zu.argument", i), Format("0x%08X", Phase.Argument));
    pFile->Add(Format("running.%zu.value", i), Format("0x%08X", Phase.Value));
  }
}

bool Controller::LoadLine(const std::string& sKey, uint32_t Value) {
  const std::vector<std::string> Parts = Split(sKey, '.');
  if (Parts.size() == 2 && Parts[0] == "option") {
    for (size_t i = 0; i < words_.size(); i++) {
      if (Parts[1] == words_[i].sName) {
        stored_[i] = Value;
        return true;
      }
    }
  } else if (Parts.size() == 2 && Parts[0] == "register") {
    for (int i = 0; i < registers_.Count(); i++) {
      if (Parts[1] == registers_.Row(i).sName) {
        registers_[i] = Value;
        return true;
      }
    }
  } else if (Parts.size() == 2 && Parts[0] == "state") {
    for (const STATE_ITEM& Item : state_) {
      if (Parts[1] == Item.sName) {
        *Item.pValue = Value;
        return true;
      }
    }
  } else if (Parts.size() == 3 && Parts[0] == "running") {
    if (Parts[2] == "kind" && Value <= STAY_BUSY) {
      phases_.push_back({static_cast<PHASE_KIND>(Value), 0});
      return true;
    }
    if (!phases_.empty() && Parts[2] == "argument") {
      phases_.back().Argument = Value;
      return true;
    }
    if (!phases_.empty() && Parts[2] == "value") {
      phases_.back().Value = Value;
      return true;
    }
  }
  return false;
}

bool CheckSectors(const std::vector<uint32_t>& Sectors, uint32_t NumSectors, std::string* psError) {
  for (const uint32_t Sector : Sectors) {
    if (Sector >= NumSectors) {
      *psError = NumSectors == 0
                     ? std::string("this device has no such protection")
                     : Format("sector %u: this device has sectors 0 to %u", Sector, NumSectors - 1);
      return false;
    }
  }
  return true;
}

uint32_t SectorMask(const std::vector<uint32_t>& Sectors, bool All, uint32_t NumSectors) {
  if (All) {
    return NumSectors >= 32 ? ~0u : (1u << NumSectors) - 1;
  }
  uint32_t Mask = 0;
  for (const uint32_t Sector : Sectors) {
    Mask |= 1u << Sector;
  }
  return Mask;
}

}  // namespace sim
