// SPDX-License-Identifier: MIT

#include "sim/device.h"

#include <algorithm>

#include "sim/text.h"

namespace sim {

const VARIANT_ROW UNASSIGNED_FAULTS = {
    .sName   = "unassigned_faults",
    .Default = true,
    .sText   = "an address where nothing is takes writes and reads 0"};
const VARIANT_ROW F0_DBGMCU_GATED = {
    .sName   = "f0_dbgmcu_gated",
    .Default = true,
    .sText   = "DBGMCU of F0 and L0 answers without its clock enabled"};

static const VARIANT_ROW* const apCommonVariants[] = {&TIMING_MAX, &UNASSIGNED_FAULTS};
static const VARIANT_ROW* const apGateVariants[]   = {&F0_DBGMCU_GATED};

static const uint32_t RCC_CR_HSION  = 1u << 0;
static const uint32_t RCC_CR_HSIRDY = 1u << 1;

static const char* const aWatchdogNames[NUM_WATCHDOGS] = {"watchdog", "window watchdog"};

Device::Device(const DEVICE_ROW& Row)
    : row_(&Row), system_(0, Row.pFamily->pSystem->Registers), memories_(Row.pFacts->Memory) {
  variants_.Add(apCommonVariants);
  if (Row.pFamily->pSystem->Gate != 0) {
    variants_.Add(apGateVariants);
  }
  variants_.Add(Row.pFamily->Variants);
  controller_ = Row.pfMakeController(*this);
}

void Device::Event(const std::string& sText) {
  if (OnEvent) {
    OnEvent(nowUs_, sText);
  }
}

// -- Time ----------------------------------------------------------------------------------------

void Device::AdvanceTo(uint64_t NowUs) {
  while (powered_ && !inReset_ && nowUs_ < NowUs) {
    const uint64_t BitesUs = FeedsWatchdogs() ? FOREVER : UntilWatchdogUs();
    const uint64_t Step    = std::min({NowUs - nowUs_, controller_->TimeLeftUs(), BitesUs});
    nowUs_ += Step;
    Pass(Step);
  }
  nowUs_ = std::max(nowUs_, NowUs);
}

void Device::Pass(uint64_t Us) {
  const bool Fed = FeedsWatchdogs();
  controller_->Pass(Us);
  PassOnWatchdogs(Us, Fed);
  CheckBrownOut();
}

uint64_t Device::StallUs(uint32_t Address, bool IsWrite) const {
  const PLACE Place = PlaceOf(Address & ~3u);
  if (!controller_->Busy() || Place.Kind == NOWHERE || !DebugPortAnswers()) {
    return 0;
  }
  const bool   InMemory = Place.Kind == MEMORY;
  const ACCESS Access   = {
        .Area    = InMemory                ? MEMORY_AREA
                   : Place.Kind == OPTIONS ? OPTION_AREA
                                           : REGISTERS,
        .IsWrite = IsWrite,
        .Address = InMemory ? controller_->Place(*Place.pMemory, Address) : Address,
        .pMemory = Place.pMemory};
  if (Place.Kind == SYSTEM_REGISTER || Place.Kind == SIZE_REGISTER ||
      !controller_->MustWait(Access)) {
    return 0;
  }
  return UntilReadyUs();
}

// The running step ends, or a watchdog cuts it.
uint64_t Device::UntilReadyUs() const {
  return std::max<uint64_t>(std::min(controller_->TimeLeftUs(), UntilWatchdogUs()), 1);
}

void Device::FinishRunning() {
  while (powered_ && controller_->Busy() && UntilReadyUs() != FOREVER) {
    Pass(UntilReadyUs());
  }
  controller_->FinishAll();
}

bool Device::WaitForBus(uint32_t Address, bool IsWrite) {
  while (const uint64_t Us = StallUs(Address, IsWrite)) {
    if (Us == FOREVER) {
      return false;
    }
    stalledUs_ += Us;
    AdvanceTo(nowUs_ + Us);
  }
  return true;
}

uint64_t Device::TakeStalledUs() {
  const uint64_t Us = stalledUs_;
  stalledUs_        = 0;
  return Us;
}

// -- Core and watchdogs --------------------------------------------------------------------------

bool Device::IsFlashBlank() const {
  return std::all_of(memories_.begin(), memories_.end(), [](const Memory& Each) {
    return Each.Row().Kind != MAIN_FLASH || Each.WordAt(Each.Row().Base) == Each.Row().Erased;
  });
}

CORE_STATE Device::Core() const {
  return halted_ ? CORE_HALTED : HasProgram() ? CORE_RUNNING : CORE_LOCKED_UP;
}

void Device::HaltCore() {
  halted_   = powered_ && !inReset_;
  IsChanged = true;
}

void Device::RunCore() {
  halted_   = false;
  IsChanged = true;
}

void Device::StartWatchdogs() {
  for (int i = 0; i < NUM_WATCHDOGS; i++) {
    const bool Starts  = controller_->StartsWatchdog(static_cast<WATCHDOG>(i));
    watchdogLeftUs_[i] = Starts ? row_->pFamily->pSystem->Watchdogs[i].ResetUs : 0;
  }
}

// A program that runs keeps the watchdogs quiet.
bool Device::FeedsWatchdogs() const {
  return Core() == CORE_RUNNING && !controller_->Busy();
}

bool Device::IsFrozen(const WATCHDOG_ROW& Watchdog) const {
  return halted_ && (system_[Watchdog.Freeze] >> Watchdog.Bit & 1) != 0;
}

uint64_t Device::UntilWatchdogUs() const {
  uint64_t Us = FOREVER;
  for (int i = 0; i < NUM_WATCHDOGS; i++) {
    if (watchdogLeftUs_[i] != 0 && !IsFrozen(row_->pFamily->pSystem->Watchdogs[i])) {
      Us = std::min(Us, watchdogLeftUs_[i]);
    }
  }
  return Us;
}

void Device::PassOnWatchdogs(uint64_t Us, bool Fed) {
  for (int i = 0; i < NUM_WATCHDOGS; i++) {
    const WATCHDOG_ROW& Row    = row_->pFamily->pSystem->Watchdogs[i];
    uint64_t&           LeftUs = watchdogLeftUs_[i];
    if (LeftUs == 0 || IsFrozen(Row)) {
      continue;
    }
    LeftUs = Fed ? Row.ResetUs : LeftUs - std::min(Us, LeftUs);
    if (LeftUs == 0) {
      watchdogResets_++;
      SystemReset(false, aWatchdogNames[i]);
      return;
    }
  }
}

// -- Power and reset -----------------------------------------------------------------------------

void Device::PowerOn() {
  if (powered_) {
    return;
  }
  powered_ = true;
  halted_  = false;
  inReset_ = false;
  Event("power on");
  system_.ResetAll();
  system_[row_->pFacts->pFamily->IdCode] = row_->pFacts->IdCode;
  memories_.Erase(SRAM);
  controller_->PowerOn();
  StartWatchdogs();
  IsChanged = true;
}

void Device::PowerOff() {
  if (!powered_) {
    return;
  }
  Event("power off");
  controller_->PowerOff();
  powered_ = false;
  inReset_ = false;
  std::fill(std::begin(watchdogLeftUs_), std::end(watchdogLeftUs_), 0);
  IsChanged = true;
}

// The voltage at which a brown-out reset comes is known once power is on and the options are loaded.
void Device::SetVoltage(uint32_t Millivolts) {
  millivolts_ = Millivolts;
  if (!powered_ && millivolts_ >= POWER_ON_MV) {
    PowerOn();
  }
  CheckBrownOut();
}

void Device::CheckBrownOut() {
  const uint32_t NeededMv = powered_ ? std::max(POWER_ON_MV, controller_->BrownOutMv()) : 0;
  if (millivolts_ < NeededMv) {
    Event(Format("%u mV are too little, the device needs %u mV", millivolts_, NeededMv));
    PowerOff();
  }
}

void Device::ResetCircuit(bool HaltCore, const char* sCause) {
  Event(std::string("system reset (") + sCause + ")");
  halted_ = HaltCore;
  for (const REGISTER& Row : system_.Rows()) {
    if (!IsDebugRegister(Row.Address)) {
      system_[Row.Address] = Row.Reset;
    }
  }
  controller_->SystemReset();
  StartWatchdogs();
  IsChanged = true;
  CheckBrownOut();
}

void Device::SystemReset(bool HaltCore, const char* sCause) {
  if (powered_) {
    ResetCircuit(HaltCore, sCause);
  }
}

void Device::HoldReset(const char* sCause) {
  if (powered_ && !inReset_) {
    ResetCircuit(false, sCause);
    inReset_ = true;
  }
}

void Device::ReleaseReset(bool HaltCore) {
  if (inReset_) {
    inReset_ = false;
    halted_  = HaltCore;
    StartWatchdogs();
  }
}

// -- Bus -----------------------------------------------------------------------------------------

bool Device::DebugPortAnswers() const {
  const bool Hidden = program_ != PROGRAM_PLAIN && !halted_ && !inReset_ && !IsFlashBlank();
  return powered_ && controller_->Level() < 2 && !Hidden;
}

bool Device::IsDebugRegister(uint32_t Address) const {
  return Address >= row_->pFamily->pSystem->DebugFirst &&
         Address <= row_->pFamily->pSystem->DebugLast;
}

bool Device::IsDebugClocked() const {
  const SYSTEM_BLOCK& System = *row_->pFamily->pSystem;
  return System.Gate == 0 || !variants_[F0_DBGMCU_GATED] ||
         (system_[System.Gate] >> System.GateBit & 1) != 0;
}

bool Device::HsiRuns() const {
  return row_->pFamily->pSystem->RccCr == 0 ||
         (system_[row_->pFamily->pSystem->RccCr] & RCC_CR_HSION) != 0;
}

Device::PLACE Device::PlaceOf(uint32_t Address) const {
  if (controller_->Registers().RowAt(Address) != nullptr) {
    return {FLASH_REGISTER};
  }
  if (controller_->InOptionArea(Address)) {
    return {OPTIONS};
  }
  for (const Memory& Each : memories_) {
    if (Each.Contains(Address)) {
      return {MEMORY, &Each};
    }
  }
  if (system_.RowAt(Address) != nullptr) {
    return {SYSTEM_REGISTER};
  }
  return {Address == (row_->pFacts->pFamily->FlashSize & ~3u) ? SIZE_REGISTER : NOWHERE};
}

bool Device::Read(uint32_t Address, uint32_t Size, uint32_t* pValue) {
  uint32_t Word = 0;
  if (Address % Size != 0 || !WaitForBus(Address, false) || !ReadWord(Address & ~3u, Size, &Word)) {
    return false;
  }
  Word >>= 8 * (Address % 4);
  *pValue = Size == 4 ? Word : Word & ((1u << (8 * Size)) - 1);
  return true;
}

bool Device::ReadWord(uint32_t Address, uint32_t Size, uint32_t* pWord) {
  if (!DebugPortAnswers() || inReset_) {
    return false;
  }
  const uint32_t SizeAt = row_->pFacts->pFamily->FlashSize;
  switch (PlaceOf(Address).Kind) {
    case FLASH_REGISTER:
      return controller_->ReadRegister(Address - controller_->Registers().Base(), Size, pWord);
    case OPTIONS:
      return controller_->ReadOptionArea(Address, pWord);
    case MEMORY:
      return ReadMemory(Address, pWord);
    case SYSTEM_REGISTER:
      // The identity answers without the clock of the block.
      *pWord =
          IsDebugRegister(Address) && Address != row_->pFacts->pFamily->IdCode && !IsDebugClocked()
              ? 0
              : system_[Address];
      return true;
    case SIZE_REGISTER:
      *pWord = Merge(0xFFFFFFFF, SizeAt, 2,
                     row_->pFacts->SizeCode == silicon::SIZE_IN_KB
                         ? row_->pFacts->Memory[0].Bytes / silicon::KB
                         : row_->pFacts->SizeCode);
      return true;
    default:
      *pWord = 0;
      return !variants_[UNASSIGNED_FAULTS];
  }
}

bool Device::ReadMemory(uint32_t Address, uint32_t* pWord) {
  Memory&        Source = *memories_.At(Address);
  const uint32_t Place  = controller_->Place(Source, Address);
  *pWord                = Source.WordAt(Place);
  return controller_->FilterRead(Source, Place, pWord);
}

bool Device::Write(uint32_t Address, uint32_t Size, uint32_t Value) {
  // Asked after the wait: what ran may have taken the debug port or the power away.
  if (Address % Size != 0 || !WaitForBus(Address, true) || !DebugPortAnswers() || inReset_) {
    return false;
  }
  switch (PlaceOf(Address & ~3u).Kind) {
    case FLASH_REGISTER:
      return WriteRegister(Address, Size, Value);
    case OPTIONS:
      return controller_->WriteOptionArea(Address, Size, Value);
    case MEMORY:
      return WriteMemory(Address, Size, Value);
    case SYSTEM_REGISTER:
      return WriteSystem(Address, Size, Value);
    default:
      Event("there is nothing at this address");
      return !variants_[UNASSIGNED_FAULTS];
  }
}

// A narrow write leaves the other bits as they are, which is not the same as writing them.
bool Device::WriteRegister(uint32_t Address, uint32_t Size, uint32_t Value) {
  const REGISTER& Row    = *controller_->Registers().RowAt(Address & ~3u);
  const uint32_t  Offset = Row.Address - controller_->Registers().Base();
  uint32_t        Word   = 0;
  if (Size != 4 && !controller_->ReadRegister(Offset, Size, &Word)) {
    return false;
  }
  Word &= ~(Row.ClearByOne | Row.SetOnly);
  return controller_->WriteRegister(Offset, Size, Merge(Word, Address, Size, Value));
}

bool Device::WriteMemory(uint32_t Address, uint32_t Size, uint32_t Value) {
  Memory& Target = *memories_.At(Address);
  if (Target.Row().Kind == MAIN_FLASH || Target.Row().Kind == EEPROM) {
    return controller_->WriteMemory(Target, controller_->Place(Target, Address), Size, Value);
  }
  uint32_t Ignored = 0;
  if (!controller_->FilterRead(Target, Address, &Ignored)) {
    return false;
  }
  Target.WordAt(Address) = Merge(Target.WordAt(Address), Address, Size, Value);
  IsChanged              = IsChanged || Target.Row().Kind == BACKUP;
  return true;
}

bool Device::WriteSystem(uint32_t Address, uint32_t Size, uint32_t Value) {
  const uint32_t Register = Address & ~3u;
  if (IsDebugRegister(Register) && !IsDebugClocked()) {
    Event("the write is lost: DBGMCU has no clock");
    return true;
  }
  system_.Write(Register, Merge(system_[Register], Address, Size, Value));
  if (Register == row_->pFamily->pSystem->RccCr) {
    uint32_t& RccCr = system_[Register];
    RccCr           = HsiRuns() ? RccCr | RCC_CR_HSIRDY : RccCr & ~RCC_CR_HSIRDY;
  }
  return true;
}

// -- Memories and names --------------------------------------------------------------------------

bool Device::IsFlashErased() const {
  return std::all_of(memories_.begin(), memories_.end(), [](const Memory& Each) {
    return (Each.Row().Kind != MAIN_FLASH && Each.Row().Kind != EEPROM) || Each.IsErased();
  });
}

const REGISTER* Device::Describe(uint32_t Address) const {
  const REGISTER* pRow = system_.RowAt(Address);
  return pRow != nullptr ? pRow : controller_->Describe(Address);
}

std::optional<uint32_t> Device::AddressOf(const std::string& sName) const {
  for (const std::span<const REGISTER> Rows : {controller_->Registers().Rows(), system_.Rows()}) {
    for (const REGISTER& Row : Rows) {
      if (sName == Row.sName || "FLASH_" + sName == Row.sName) {
        return Row.Address;
      }
    }
  }
  const int Word = controller_->FindWord(sName);
  return Word >= 0 && controller_->Word(Word).Stored != 0
             ? std::optional(controller_->Word(Word).Stored)
             : std::nullopt;
}

// -- State ---------------------------------------------------------------------------------------

void Device::SaveTo(KeyFile* pFile) const {
  pFile->Add("device", Name());
  pFile->Add("powered", powered_ ? "1" : "0");
  if (program_ != PROGRAM_PLAIN) {
    pFile->Add("core.program", std::to_string(program_));
  }
  variants_.SaveTo(pFile);
  controller_->SaveTo(pFile, powered_);
  if (powered_) {
    pFile->Add("core.halted", halted_ ? "1" : "0");
    system_.SaveTo(pFile);
  }
  for (const Memory& Each : memories_) {
    if (Each.Row().Kind != SRAM) {
      Each.SaveTo(pFile);
    }
  }
}

bool Device::LoadLine(const std::string& sKey, const std::string& sValue) {
  const std::vector<std::string> Parts = Split(sKey, '.');
  uint32_t                       Value = 0;
  if (sKey == "device") {
    return true;
  }
  if (sKey == "probe.open" || sKey == "probe.supply_on") {
    return sValue == "1";  // not the device's own
  }
  if (Parts[0] == "memory" && Parts.size() == 3) {
    return std::any_of(memories_.begin(), memories_.end(), [&](Memory& Each) {
      return Parts[1] == Each.Row().sName && Each.LoadLine(Parts[2], sValue);
    });
  }
  if (!ParseU32(sValue, &Value)) {
    return false;
  }
  if (sKey == "powered" || sKey == "core.halted") {
    (sKey == "powered" ? powered_ : halted_) = Value != 0;
    return Value <= 1;
  }
  if (sKey == "core.program") {
    program_ = Value <= PROGRAM_STOPS ? static_cast<PROGRAM>(Value) : PROGRAM_PLAIN;
    return Value <= PROGRAM_STOPS;
  }
  if (Parts[0] == "variant" && Parts.size() == 2) {
    return SetVariant(Parts[1], Value);
  }
  return controller_->LoadLine(sKey, Value) ||
         (Parts[0] == "register" && Parts.size() == 2 && system_.LoadLine(Parts[1], Value));
}

bool Device::LoadFrom(const KeyFile& File, std::string* psError) {
  for (const KEY_LINE& Line : File.Lines()) {
    if (!LoadLine(Line.sKey, Line.sValue)) {
      *psError = File.Place(Line) + Format("\"%s = %s\" means nothing for a %s", Line.sKey.c_str(),
                                           Line.sValue.c_str(), Name());
      return false;
    }
  }
  if (!controller_->RunsInPlace()) {
    *psError =
        File.Place() + Format("\"running\" programs an address that a %s does not have", Name());
    return false;
  }
  if (powered_) {
    StartWatchdogs();
  }
  return true;
}

}  // namespace sim
