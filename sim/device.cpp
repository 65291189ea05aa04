#include "sim/device.h"

#include <algorithm>

#include "sim/text.h"

namespace sim {

const VARIANT_ROW VariantTable[NUM_VARIANTS] = {
    {"timing_max", 0, "1: operations take their longest time, not the typical one"},
    {"unassigned_faults", 1, "0: an address where nothing is takes writes and reads 0"},
    {"obl_transfer_fails", 0, "1: the write that starts a reload is answered with a fault"},
    {"f0_dbgmcu_gated", 1, "0: DBGMCU of F0 and L0 answers without its clock enabled"},
    {"f1_unprotect_needs_power_on", 0, "1: F1 flash stays unreadable until power-on"},
    {"f3_load_on_reset", 1, "0: F3 loads options at power-on and OBL_LAUNCH only"},
    {"f4_level_at_once", 1, "0: F2/F4/F7 judge by the level loaded at reset"},
    {"f4_optkey_bus_error", 0, "1: a wrong key in FLASH_OPTKEYR is a failed transfer"},
    {"l0_spare_words_writable", 1, "0: unused words of the L0 option page read as ones"},
    {"l0_l1_refuse_pcrop_clear", 0, "1: at level 0 every write that would lift PCROP is refused"},
    {"l1_erratum_mass_erase", 0, "1: L1 mass-erases when level 0 is written at level 0"},
    {"h7_prg_reloaded_on_reset", 1, "0: H7 _PRG registers keep their values over a reset"},
    {"h7_error_cleared_on_reset", 0, "1: a reset clears H7 OPTCHANGEERR"},
    {"h7_delivered_by_manual", 0, "1: H7 comes with ST_RAM_SIZE 0 and DMES 0, as printed"},
};

static const uint32_t RCC_CR_HSION  = 1u << 0;
static const uint32_t RCC_CR_HSIRDY = 1u << 1;

Device::Device(const DEVICE_ROW& Row) : row_(&Row), system_(Row.pSystem->Registers) {
  for (const VARIANT_ROW& Variant : VariantTable) {
    variants_.push_back(Variant.Default);
  }
  for (const MEMORY_ROW& MemoryRow : Row.aMemories) {
    if (MemoryRow.Bytes != 0) {
      memories_.emplace_back(MemoryRow);
    }
  }
  controller_ = Row.pfMakeController(*this, Row);
}

void Device::Event(const std::string& sText) const {
  if (OnEvent) {
    OnEvent(sText);
  }
}

// -- Time ----------------------------------------------------------------------------------------

void Device::AdvanceTo(uint64_t NowUs) {
  while (powered_ && nowUs_ < NowUs) {
    const bool Watched = watchdogLeftUs_ != 0 && !WatchdogFrozen();
    uint64_t   Step    = std::min(NowUs - nowUs_, controller_->TimeLeftUs());
    if (Watched && CoreFeedsWatchdog()) {
      StartWatchdog();
    } else if (Watched) {
      Step = std::min(Step, watchdogLeftUs_);
    }
    nowUs_ += Step;
    controller_->Pass(Step);
    if (Watched && !CoreFeedsWatchdog()) {
      watchdogLeftUs_ -= std::min(Step, watchdogLeftUs_);
      if (watchdogLeftUs_ == 0) {
        watchdogResets_++;
        SystemReset(false, "watchdog");
      }
    }
  }
  nowUs_ = std::max(nowUs_, NowUs);
}

bool Device::StallUntilReady() {
  while (controller_->Busy()) {
    const uint64_t Left = controller_->TimeLeftUs();
    if (Left == FOREVER) {
      return false;
    }
    stalledUs_ += Left;
    // At least one pass, so that an operation with nothing left to do ends.
    if (Left == 0) {
      controller_->Pass(0);
    } else {
      AdvanceTo(nowUs_ + Left);
    }
  }
  return true;
}

uint64_t Device::TakeStalledUs() {
  const uint64_t Us = stalledUs_;
  stalledUs_        = 0;
  return Us;
}

// -- Watchdog ------------------------------------------------------------------------------------

void Device::StartWatchdog() {
  watchdogLeftUs_ = row_->pSystem->WatchdogUs;
}

bool Device::WatchdogFrozen() const {
  const SYSTEM_BLOCK& System = *row_->pSystem;
  return halted_ && (SystemRegister(System.Freeze) & (1u << System.FreezeBit)) != 0;
}

// A program that runs keeps the watchdog quiet. It cannot run where flash is erased, nor at level 1
// under a debugger.
bool Device::CoreFeedsWatchdog() {
  Memory* pFlash = FindMemory(MAIN_FLASH);
  return !halted_ && controller_->Level() == 0 && !controller_->Busy() &&
         pFlash->WordAt(pFlash->Row().Base) != pFlash->Row().Erased;
}

// -- Power and reset -----------------------------------------------------------------------------

void Device::PowerOn() {
  if (powered_) {
    return;
  }
  powered_ = true;
  halted_  = false;
  Event("power on");
  system_.ResetAll();
  const int IdCode = system_.Find(row_->pSystem->IdCode);
  if (IdCode >= 0) {
    system_[IdCode] = row_->IdCode;
  }
  for (Memory& Ram : memories_) {
    if (Ram.Row().Kind == SRAM) {
      Ram.Erase();
    }
  }
  controller_->OnPowerOn();
  watchdogLeftUs_ = 0;
  if (controller_->WatchdogByHardware()) {
    StartWatchdog();
  }
  Changed = true;
}

void Device::PowerOff() {
  if (!powered_) {
    return;
  }
  Event("power off");
  controller_->PowerOff();
  powered_        = false;
  watchdogLeftUs_ = 0;
  Changed         = true;
}

void Device::SystemReset(bool HaltCore, const char* sCause) {
  if (!powered_) {
    return;
  }
  Event(std::string("system reset (") + sCause + ")");
  halted_ = HaltCore;
  for (int i = 0; i < system_.Count(); i++) {
    const uint32_t Address = system_.Row(i).Address;
    if (Address < row_->pSystem->DebugFirst || Address > row_->pSystem->DebugLast) {
      system_[i] = system_.Row(i).Reset;
    }
  }
  controller_->SystemReset();
  watchdogLeftUs_ = 0;
  if (controller_->WatchdogByHardware()) {
    StartWatchdog();
  }
  Changed = true;
}

// -- Bus -----------------------------------------------------------------------------------------

bool Device::DebugPortAnswers() const {
  return powered_ && controller_->Level() < 2;
}

uint32_t Device::SystemRegister(uint32_t Address) const {
  const int Index = system_.Find(Address);
  return Index >= 0 ? system_[Index] : 0;
}

bool Device::DebugBlockClocked() const {
  const SYSTEM_BLOCK& System = *row_->pSystem;
  return System.Gate == 0 || variants_[F0_DBGMCU_GATED] == 0 ||
         (SystemRegister(System.Gate) & (1u << System.GateBit)) != 0;
}

bool Device::Read(uint32_t Address, uint32_t Size, uint32_t* pValue) {
  uint32_t Word = 0;
  if (Address % Size != 0 || !ReadPart(Address & ~3u, Size, &Word)) {
    return false;
  }
  Word >>= 8 * (Address % 4);
  *pValue = Size == 4 ? Word : Word & ((1u << (8 * Size)) - 1);
  return true;
}

bool Device::ReadPart(uint32_t Address, uint32_t Size, uint32_t* pWord) {
  if (!DebugPortAnswers()) {
    return false;
  }
  const int Register = controller_->Registers().Find(Address);
  if (Register >= 0) {
    return controller_->ReadRegister(Register, Size, pWord);
  }
  if (controller_->InOptionArea(Address)) {
    return controller_->ReadOptionArea(Address, pWord);
  }
  for (Memory& Source : memories_) {
    if (Source.Contains(Address)) {
      // What can be read at all of flash, is read when the controller is done with it.
      if (Source.Row().Kind == MAIN_FLASH && controller_->Level() == 0 && !StallUntilReady()) {
        return false;
      }
      const uint32_t Place = controller_->Place(Source, Address);
      *pWord               = Source.WordAt(Place);
      return controller_->FilterRead(Source, Place, pWord);
    }
  }
  const int System = system_.Find(Address);
  if (System >= 0) {
    const bool IsDebug =
        Address >= row_->pSystem->DebugFirst && Address <= row_->pSystem->DebugLast;
    // The identity answers without the clock; what hangs behind it is the freeze registers.
    *pWord =
        IsDebug && Address != row_->pSystem->IdCode && !DebugBlockClocked() ? 0 : system_[System];
    return true;
  }
  *pWord = 0;
  return variants_[UNASSIGNED_FAULTS] == 0;
}

bool Device::Write(uint32_t Address, uint32_t Size, uint32_t Value) {
  if (!DebugPortAnswers() || Address % Size != 0) {
    return false;
  }
  const int Register = controller_->Registers().Find(Address & ~3u);
  if (Register >= 0) {
    // A narrow write leaves the other bits as they are, which is not the same as writing them.
    uint32_t Word = 0;
    if (Size != 4 && !controller_->ReadRegister(Register, Size, &Word)) {
      return false;
    }
    const REGISTER& Row = controller_->Registers().Row(Register);
    Word &= ~(Row.ClearByOne | Row.SetOnly);
    return controller_->WriteRegister(Register, Size, Merge(Word, Address, Size, Value));
  }
  if (controller_->InOptionArea(Address)) {
    return controller_->WriteOptionArea(Address, Size, Value);
  }
  for (Memory& Target : memories_) {
    if (!Target.Contains(Address)) {
      continue;
    }
    if (Target.Row().Kind == MAIN_FLASH || Target.Row().Kind == EEPROM) {
      return controller_->WriteMemory(Target, controller_->Place(Target, Address), Size, Value);
    }
    uint32_t Ignored = 0;
    if (!controller_->FilterRead(Target, Address, &Ignored)) {
      return false;
    }
    Target.WordAt(Address) = Merge(Target.WordAt(Address), Address, Size, Value);
    Changed                = Changed || Target.Row().Kind == BACKUP;
    return true;
  }
  const int System = system_.Find(Address & ~3u);
  if (System >= 0) {
    const bool IsDebug =
        Address >= row_->pSystem->DebugFirst && Address <= row_->pSystem->DebugLast;
    if (IsDebug && !DebugBlockClocked()) {
      Event("the write is lost: DBGMCU has no clock");
      return true;
    }
    system_.Write(System, Merge(system_[System], Address, Size, Value));
    if ((Address & ~3u) == row_->pSystem->RccCr) {
      uint32_t& RccCr = system_[System];
      RccCr           = (RccCr & RCC_CR_HSION) ? RccCr | RCC_CR_HSIRDY : RccCr & ~RCC_CR_HSIRDY;
    }
    return true;
  }
  Event("there is nothing at this address");
  return variants_[UNASSIGNED_FAULTS] == 0;
}

// -- Memories ------------------------------------------------------------------------------------

void Device::EraseKind(MEMORY_KIND Kind) {
  for (Memory& Target : memories_) {
    if (Target.Row().Kind == Kind) {
      Target.Erase();
    }
  }
  Changed = true;
}

bool Device::IsFlashErased() const {
  return std::all_of(memories_.begin(), memories_.end(), [](const Memory& Each) {
    return (Each.Row().Kind != MAIN_FLASH && Each.Row().Kind != EEPROM) || Each.IsErased();
  });
}

bool Device::HasFlashAt(uint32_t Address) const {
  return std::any_of(memories_.begin(), memories_.end(), [Address](const Memory& Each) {
    return (Each.Row().Kind == MAIN_FLASH || Each.Row().Kind == EEPROM) && Each.Contains(Address);
  });
}

Memory* Device::FindMemory(MEMORY_KIND Kind) {
  for (Memory& Each : memories_) {
    if (Each.Row().Kind == Kind) {
      return &Each;
    }
  }
  return nullptr;
}

const REGISTER* Device::Describe(uint32_t Address) const {
  const int System = system_.Find(Address);
  return System >= 0 ? &system_.Row(System) : controller_->Describe(Address);
}

// -- State ---------------------------------------------------------------------------------------

bool Device::SetVariant(const std::string& sName, uint32_t Value) {
  for (size_t i = 0; i < NUM_VARIANTS; i++) {
    if (sName == VariantTable[i].sName) {
      variants_[i] = Value;
      return true;
    }
  }
  return false;
}

void Device::SaveTo(KeyFile* pFile) const {
  pFile->Add("device", row_->sName);
  pFile->Add("powered", powered_ ? "1" : "0");
  for (size_t i = 0; i < NUM_VARIANTS; i++) {
    if (variants_[i] != VariantTable[i].Default) {
      pFile->Add(std::string("variant.") + VariantTable[i].sName, Format("%u", variants_[i]));
    }
  }
  controller_->SaveTo(pFile, powered_);
  if (powered_) {
    pFile->Add("core.halted", halted_ ? "1" : "0");
    for (int i = 0; i < system_.Count(); i++) {
      pFile->Add(std::string("register.") + system_.Row(i).sName, Format("0x%08X", system_[i]));
    }
  }
  for (const Memory& Each : memories_) {
    if (Each.Row().Kind != SRAM) {
      Each.SaveTo(pFile);
    }
  }
}

bool Device::LoadFrom(const KeyFile& File, std::string* psError) {
  for (const auto& [sKey, sValue] : File.Lines()) {
    const std::vector<std::string> Parts = Split(sKey, '.');
    bool                           Good  = false;
    uint32_t                       Value = 0;
    if (Parts[0] == "memory" && Parts.size() == 3) {
      for (Memory& Each : memories_) {
        Good = Good || (Parts[1] == Each.Row().sName && Each.LoadLine(Parts[2], sValue));
      }
    } else if (sKey == "device" || Parts[0] == "probe") {
      Good = true;  // not the device's own
    } else if (ParseU32(sValue, &Value)) {
      if (sKey == "powered") {
        powered_ = Value != 0;
        Good     = true;
      } else if (sKey == "core.halted") {
        halted_ = Value != 0;
        Good    = true;
      } else if (Parts[0] == "variant" && Parts.size() == 2) {
        Good = SetVariant(Parts[1], Value);
      } else {
        Good = controller_->LoadLine(sKey, Value);
        for (int i = 0; i < system_.Count() && !Good && Parts[0] == "register"; i++) {
          if (Parts.size() == 2 && Parts[1] == system_.Row(i).sName) {
            system_[i] = Value;
            Good       = true;
          }
        }
      }
    }
    if (!Good) {
      *psError =
          Format("\"%s = %s\" means nothing for a %s", sKey.c_str(), sValue.c_str(), row_->sName);
      return false;
    }
  }
  if (!controller_->RunsInPlace()) {
    *psError = Format("\"running\" programs an address that a %s does not have", row_->sName);
    return false;
  }
  if (powered_) {
    controller_->FinishAll();
    if (controller_->WatchdogByHardware()) {
      StartWatchdog();
    }
  }
  return true;
}

}  // namespace sim
