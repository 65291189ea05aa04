// SPDX-License-Identifier: MIT

#include "sim/controller.h"

#include <algorithm>

#include "sim/text.h"

namespace sim {

const VARIANT_ROW TIMING_MAX = {
    .sName = "timing_max", .Default = false, .sText = "operations take their longest time"};
const VARIANT_ROW OBL_TRANSFER_FAILS = {
    .sName   = "obl_transfer_fails",
    .Default = false,
    .sText   = "the write that starts a reload is answered with a fault"};

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

Controller::Controller(Surroundings& Around, const silicon::DEVICE& Facts, const FAMILY& Family)
    : around_(Around),
      facts_(Facts),
      registers_(Family.Base, Family.Registers),
      brownOutMv_(Family.BrownOutMv) {
  State("bad_words", &badWords_);
  for (const LOCK_ROW& Row : Family.Locks) {
    locks_.emplace_back(Row);
  }
  for (const silicon::OPTION_WORD& Word : Facts.Options) {
    stored_.push_back({.Value = Word.Factory, .Complement = ~Word.Factory});
    // The fields are numbered as bits of the whole word, so the halves of a word that is stored in
    // two places get no fields.
    const bool InOne = Word.StoredUpper == 0;
    wordRows_.push_back({.sName   = Word.sName,
                         .Address = Word.Stored,
                         .Fields  = InOne ? Word.Fields : silicon::FIELDS{}});
    wordRows_.push_back({.sName = Word.sName, .Address = Word.StoredUpper});
  }
}

// -- Power and reset -----------------------------------------------------------------------------

void Controller::PowerOff() {
  CutRunning();
  hold_ = 0;
  for (STORED& Each : stored_) {
    Each.Loaded.reset();
  }
}

void Controller::SystemReset() {
  CutRunning();
  Reset(launched_ || LoadsAtReset(), false);
}

// What is in force stays so over a reset that does not load.
void Controller::Reset(bool Loads, bool IsPowerOn) {
  launched_ = false;
  registers_.ResetAll();
  for (KeyLock& Lock : locks_) {
    Lock.Reset();
  }
  badWords_ = Loads ? 0 : badWords_;
  for (int i = 0; i < NumWords(); i++) {
    if (Loads) {
      SetLoaded(i, Effective(i));
      badWords_ |= Matches(i) ? 0 : 1u << i;
    }
    ShowLoaded(i, Loaded(i));
  }
  OnReset(Loads, IsPowerOn);
}

void Controller::CutRunning() {
  if (phases_.empty()) {
    return;
  }
  const PHASE Phase = phases_.front();
  phases_.clear();
  if (Phase.Kind != STAY_BUSY) {
    const uint64_t Done = Phase.DurationUs - std::min(leftUs_, Phase.DurationUs);
    Perform(Phase, static_cast<uint32_t>(Done * 1000 / std::max<uint64_t>(Phase.DurationUs, 1)));
  }
  around_.Event(std::string(aPhaseNames[Phase.Kind]) + " cut short");
}

// -- Running operations --------------------------------------------------------------------------

uint64_t Controller::Us(const TIME& Time) const {
  return Is(TIMING_MAX) ? Time.LongestUs : Time.TypicalUs;
}

void Controller::Start(const std::vector<PHASE>& Phases) {
  phases_.insert(phases_.end(), Phases.begin(), Phases.end());
  if (hold_ != 0) {
    phases_.push_back({STAY_BUSY, hold_});
    hold_ = 0;
  }
  leftUs_ = phases_.front().DurationUs;
  around_.Changed();
  around_.Event(RunningText() + " starts, " + DurationText(leftUs_));
}

void Controller::Pass(uint64_t Us) {
  while (!phases_.empty() && leftUs_ != FOREVER && Us >= leftUs_) {
    Us -= leftUs_;
    const PHASE Phase = phases_.front();
    phases_.pop_front();
    if (Phase.Kind != STAY_BUSY) {
      Perform(Phase, 1000);
      FinishPhase(Phase);
    }
    if (Phase.Unprotects()) {
      AllMemories().Erase(BACKUP);
    }
    around_.Changed();
    if (phases_.empty()) {
      around_.Event(std::string(aPhaseNames[Phase.Kind]) + " done");
    } else {
      leftUs_ = phases_.front().DurationUs;
      around_.Event(RunningText() + " starts, " + DurationText(leftUs_));
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

std::string Controller::RunningText() const {
  return phases_.empty() ? "" : aPhaseNames[phases_.front().Kind];
}

bool Controller::RunsInPlace() const {
  return std::all_of(phases_.begin(), phases_.end(), [this](const PHASE& Phase) {
    const Memory* pMemory = AllMemories().At(Phase.Argument);
    return Phase.Kind != WORD_PROGRAM ||
           (ProgramsOptionWords() && IndexOfWord(Phase.Argument) >= 0) ||
           (pMemory != nullptr &&
            (pMemory->Row().Kind == MAIN_FLASH || pMemory->Row().Kind == EEPROM));
  });
}

// -- Locks ---------------------------------------------------------------------------------------

int Controller::LockAt(uint32_t Offset) const {
  for (size_t i = 0; i < locks_.size(); i++) {
    const LOCK_ROW& Row = locks_[i].Row();
    if (Row.Register == Offset || (Row.Alias != 0 && Row.Alias == Offset)) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

bool Controller::WriteKey(int Lock, uint32_t Key) {
  KeyLock&  Own    = locks_[AsSize(Lock)];
  const int Behind = Own.Row().Behind;
  if (Behind >= 0 && !IsOpen(Behind)) {
    return true;
  }
  const bool Good = Own.WriteKey(Key);
  ShowLock(Lock);
  return Good;
}

void Controller::CloseLock(int Lock) {
  locks_[AsSize(Lock)].Close();
  ShowLock(Lock);
}

void Controller::ShowLock(int Lock) {
  const KeyLock&  Own     = locks_[AsSize(Lock)];
  const LOCK_ROW& Row     = Own.Row();
  uint32_t&       Control = registers_[Row.Control];
  Control &= ~(Row.ClosedBit | Row.OpenBit);
  Control |= Own.IsOpen() ? Row.OpenBit : Row.ClosedBit;
  for (int i = 0; i < static_cast<int>(locks_.size()); i++) {
    const LOCK_ROW& Other = locks_[AsSize(i)].Row();
    if (Other.FollowsIt && Other.Behind == Lock && !Own.IsOpen()) {
      CloseLock(i);
    }
  }
}

// Loads the options anew, with a reset.
bool Controller::LaunchOptions() {
  launched_ = true;
  around_.ResetFromWithin("OBL_LAUNCH");
  return !Is(OBL_TRANSFER_FAILS);
}

// -- Bus -----------------------------------------------------------------------------------------

bool Controller::MustWait(const ACCESS& Access) const {
  return Access.Area == MEMORY_AREA && Access.pMemory->Row().Kind == MAIN_FLASH && Level() == 0;
}

bool Controller::ReadOptionArea(uint32_t Address, uint32_t* pWord) {
  *pWord = Stored(IndexOfWord(Address));
  return true;
}

bool Controller::FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) {
  switch (Source.Row().Kind) {
    case SRAM:
      return true;
    case MAIN_FLASH:
      return ReadFlash(Source, Address, pValue);
    default:
      return Level() == 0;
  }
}

const REGISTER* Controller::Describe(uint32_t Address) const {
  const REGISTER* pRow = registers_.RowAt(Address);
  for (const REGISTER& Row : wordRows_) {
    if (pRow == nullptr && Row.Address == Address && Address != 0) {
      pRow = &Row;
    }
  }
  return pRow;
}

const char* Controller::NameOfKey(uint32_t Address, uint32_t Value) const {
  const int Lock = LockAt(Address - registers_.Base());
  return Lock >= 0 ? locks_[AsSize(Lock)].NameOf(Value) : nullptr;
}

// -- State ---------------------------------------------------------------------------------------

void Controller::SaveTo(KeyFile* pFile, bool WithRegisters) const {
  for (int i = 0; i < NumWords(); i++) {
    const std::string sKey = std::string("option.") + Word(i).sName;
    const STORED&     Each = stored_[AsSize(i)];
    pFile->Add(sKey, Format("0x%08X", Each.Value));
    if (Each.Complement != ~Each.Value) {
      pFile->Add(sKey + ".complement", Format("0x%08X", Each.Complement));
    }
  }
  if (!WithRegisters) {
    return;
  }
  for (int i = 0; i < NumWords(); i++) {
    pFile->Add(std::string("loaded.") + Word(i).sName, Format("0x%08X", Loaded(i)));
  }
  registers_.SaveTo(pFile);
  for (const KeyLock& Lock : locks_) {
    pFile->Add(std::string("state.") + Lock.Row().sState, Format("0x%08X", Lock.State));
  }
  for (const STATE_ITEM& Item : state_) {
    pFile->Add(std::string("state.") + Item.sName, Format("0x%08X", *Item.pValue));
  }
  for (size_t i = 0; i < phases_.size(); i++) {
    const PHASE&   Phase  = phases_[i];
    const uint64_t LeftUs = i == 0 ? leftUs_ : Phase.DurationUs;
    pFile->Add(Format("running.%zu.kind", i), Format("%d", Phase.Kind));
    pFile->Add(Format("running.%zu.argument", i), Format("0x%08X", Phase.Argument));
    pFile->Add(Format("running.%zu.value", i), Format("0x%08X", Phase.Value));
    pFile->Add(Format("running.%zu.us", i),
               Format("%u", static_cast<uint32_t>(std::min<uint64_t>(Phase.DurationUs, ~0u))));
    pFile->Add(Format("running.%zu.left_us", i),
               Format("%u", static_cast<uint32_t>(std::min<uint64_t>(LeftUs, ~0u))));
  }
}

bool Controller::LoadLine(const std::string& sKey, uint32_t Value) {
  const std::vector<std::string> Parts = Split(sKey, '.');
  if (Parts.size() == 3 && Parts[0] == "running") {
    return LoadRunning(Parts[2], Value);
  }
  if (Parts.size() == 3 && Parts[0] == "option" && Parts[2] == "complement") {
    return LoadOption("complement", Parts[1], Value);
  }
  if (Parts.size() != 2) {
    return false;
  }
  if (Parts[0] == "option" || Parts[0] == "loaded") {
    return LoadOption(Parts[0], Parts[1], Value);
  }
  if (Parts[0] == "register") {
    return registers_.LoadLine(Parts[1], Value);
  }
  for (KeyLock& Lock : locks_) {
    if (Parts[0] == "state" && Parts[1] == Lock.Row().sState) {
      Lock.State = Value;
      return Value <= KeyLock::DEAD;
    }
  }
  for (const STATE_ITEM& Item : state_) {
    if (Parts[0] == "state" && Parts[1] == Item.sName) {
      *Item.pValue = Value;
      return true;
    }
  }
  return false;
}

bool Controller::LoadOption(const std::string& sPart, const std::string& sName, uint32_t Value) {
  const int Index = FindWord(sName);
  if (Index < 0) {
    return false;
  }
  STORED& Each = stored_[AsSize(Index)];
  if (sPart == "loaded") {
    Each.Loaded = Value;
  } else {
    Each.Complement = sPart == "complement" ? Value : ~Value;
    Each.Value      = sPart == "complement" ? Each.Value : Value;
  }
  return true;
}

bool Controller::LoadRunning(const std::string& sWhat, uint32_t Value) {
  const uint64_t Us = Value == ~0u ? FOREVER : Value;
  if (sWhat == "kind" && Value <= STAY_BUSY) {
    phases_.push_back({static_cast<PHASE_KIND>(Value), 0});
    return true;
  }
  if (phases_.empty()) {
    return false;
  }
  if (sWhat == "argument") {
    phases_.back().Argument = Value;
  } else if (sWhat == "value") {
    phases_.back().Value = Value;
  } else if (sWhat == "us") {
    phases_.back().DurationUs = Us;
  } else if (sWhat == "left_us") {
    leftUs_ = phases_.size() == 1 ? Us : leftUs_;
  } else {
    return false;
  }
  return true;
}

}  // namespace sim
