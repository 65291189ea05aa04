// Flash controller of STM32H742/743/753: two banks, each with its own view of the option registers.
// Values to program (_PRG) and values in force (_CUR) are apart; OPTSTART compares them, checks the
// rules of change, programs and reloads at once. Reference manual RM0433.

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

// The option values, and for _CUR and _PRG the order of what is kept.
enum { OPTSR, PRAR1, SCAR1, WPSN1, PRAR2, SCAR2, WPSN2, BOOT, NUM_OPTIONS };

const uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTART = 1u << 1, OPTCR_SWAP_BANK = 1u << 31;
const uint32_t OPTSR_OPT_BUSY = 1u << 0, OPTSR_IWDG1_SW = 1u << 4, OPTSR_SECURITY = 1u << 21,
               OPTSR_OPTCHANGEERR = 1u << 30, OPTSR_SWAP_BANK_OPT = 1u << 31;
const uint32_t OPTCCR_CLR_OPTCHANGEERR = 1u << 30;
const uint32_t AREA_KEEP_OFF           = 1u << 31;  // DMEP, DMES: unprotecting wipes the area
const uint32_t SR_WRPERR = 1u << 17, SR_RDPERR = 1u << 23;
const uint32_t CR_LOCK = 1u << 0;

#define OPTSR_FIELDS                                                                     \
  "BOR_LEV 3:2, IWDG1_SW 4, nRST_STOP_D1 6, nRST_STBY_D1 7, RDP 15:8, FZ_IWDG_STOP 17, " \
  "FZ_IWDG_SDBY 18, ST_RAM_SIZE 20:19, SECURITY 21, IO_HSLV 29"
#define PRAR_FIELDS  "PROT_AREA_START 11:0, PROT_AREA_END 27:16, DMEP 31"
#define SCAR_FIELDS  "SEC_AREA_START 11:0, SEC_AREA_END 27:16, DMES 31"
#define WPSN_FIELDS  "WRPSn 7:0"
#define BOOT_FIELDS  "BOOT_ADD0 15:0, BOOT_ADD1 31:16"
#define CUR_FIELDS   "OPT_BUSY 0, " OPTSR_FIELDS ", OPTCHANGEERR 30, SWAP_BANK_OPT 31"
#define PRG_FIELDS   OPTSR_FIELDS ", SWAP_BANK_OPT 31"
#define OPTCR_FIELDS "OPTLOCK 0, OPTSTART 1, MER 4, OPTCHANGEERRIE 30, SWAP_BANK 31"
#define SR_FIELDS \
  "BSY 0, WBNE 1, QW 2, EOP 16, WRPERR 17, PGSERR 18, STRBERR 19, RDPERR 23, RDSERR 24"
#define CR_FIELDS "LOCK 0, PG 1, SER 2, BER 3, PSIZE 5:4, FW 6, START 7, SNB 10:8"

enum {
  KEYR,
  OPTKEYR,
  CR,
  SR,
  CCR,
  OPTCR,
  OPTSR_CUR,
  OPTSR_PRG,
  OPTCCR,
  PRAR_CUR,
  PRAR_PRG,
  SCAR_CUR,
  SCAR_PRG,
  WPSN_CUR,
  WPSN_PRG,
  BOOT_CUR,
  BOOT_PRG,
  REGISTERS_PER_VIEW
};

// One view; the second lies 0x100 above and has the same rows. Suffixes as in the manual.
#define VIEW(Base, Bank, Suffix)                                                       \
  {"FLASH_KEYR" Bank, (Base) + 0x04, 0, 0, 0, 0, ""},                                  \
      {"FLASH_OPTKEYR" Suffix, (Base) + 0x08, 0, 0, 0, 0, ""},                         \
      {"FLASH_CR" Bank, (Base) + 0x0C, 0x00000031, 0x0000077E, 0, CR_LOCK, CR_FIELDS}, \
      {"FLASH_SR" Bank, (Base) + 0x10, 0, 0, 0, 0, SR_FIELDS},                         \
      {"FLASH_CCR" Bank, (Base) + 0x14, 0, 0, 0, 0, SR_FIELDS}, {"FLASH_OPTCR" Suffix, \
                                                                 (Base) + 0x18,        \
                                                                 0x00000001,           \
                                                                 0x40000000,           \
                                                                 0,                    \
                                                                 OPTCR_OPTLOCK,        \
                                                                 OPTCR_FIELDS},        \
      {"FLASH_OPTSR_CUR" Suffix, (Base) + 0x1C, 0, 0, 0, 0, CUR_FIELDS},               \
      {"FLASH_OPTSR_PRG" Suffix, (Base) + 0x20, 0, 0, 0, 0, PRG_FIELDS},               \
      {"FLASH_OPTCCR" Suffix, (Base) + 0x24, 0, 0, 0, 0, "CLR_OPTCHANGEERR 30"},       \
      {"FLASH_PRAR_CUR" Bank, (Base) + 0x28, 0, 0, 0, 0, PRAR_FIELDS},                 \
      {"FLASH_PRAR_PRG" Bank, (Base) + 0x2C, 0, 0, 0, 0, PRAR_FIELDS},                 \
      {"FLASH_SCAR_CUR" Bank, (Base) + 0x30, 0, 0, 0, 0, SCAR_FIELDS},                 \
      {"FLASH_SCAR_PRG" Bank, (Base) + 0x34, 0, 0, 0, 0, SCAR_FIELDS},                 \
      {"FLASH_WPSN_CUR" Bank "R", (Base) + 0x38, 0, 0, 0, 0, WPSN_FIELDS},             \
      {"FLASH_WPSN_PRG" Bank "R", (Base) + 0x3C, 0, 0, 0, 0, WPSN_FIELDS},             \
      {"FLASH_BOOT_CURR" Suffix, (Base) + 0x40, 0, 0, 0, 0, BOOT_FIELDS}, {            \
    "FLASH_BOOT_PRGR" Suffix, (Base) + 0x44, 0, 0, 0, 0, BOOT_FIELDS                   \
  }

const REGISTER aRegisters[] = {VIEW(0x52002000, "1", ""), VIEW(0x52002100, "2", "2")};

// -- Option words --------------------------------------------------------------------------------

struct OPTION_ROW {
  OPTION_WORD Word;
  uint32_t    Mask;  // bits that can be programmed
};

// OPTSR: bits 5, 26 and 28 read as ones and cannot be written on this device.
const OPTION_ROW aOptions[NUM_OPTIONS] = {
    {{"OPTSR", 0, 0x1416AAF0, PRG_FIELDS}, 0xA03EFFDC},
    {{"PRAR1", 0, 0x000000FF, PRAR_FIELDS}, 0x8FFF0FFF},
    {{"SCAR1", 0, 0x800000FF, SCAR_FIELDS}, 0x8FFF0FFF},
    {{"WPSN1", 0, 0x000000FF, WPSN_FIELDS}, 0x000000FF},
    {{"PRAR2", 0, 0x000000FF, PRAR_FIELDS}, 0x8FFF0FFF},
    {{"SCAR2", 0, 0x800000FF, SCAR_FIELDS}, 0x8FFF0FFF},
    {{"WPSN2", 0, 0x000000FF, WPSN_FIELDS}, 0x000000FF},
    {{"BOOT", 0, 0x1FF00800, BOOT_FIELDS}, 0xFFFFFFFF},
};
const uint32_t OPTSR_USER      = 0xA03E00DC;  // the user options of OPTSR
const uint32_t OPTSR_BY_MANUAL = 0x1406AAF0;
const uint32_t SCAR_BY_MANUAL  = 0x000000FF;

std::vector<OPTION_WORD> OptionWords() {
  std::vector<OPTION_WORD> Words;
  for (const OPTION_ROW& Row : aOptions) {
    Words.push_back(Row.Word);
  }
  return Words;
}

const uint32_t KB         = 1024;
const uint32_t FLASH_BASE = 0x08000000, BANK_BYTES = 1024 * KB;
const uint32_t SECTOR_BYTES = 128 * KB, SECTORS_PER_BANK = 8;
const uint32_t AREA_UNIT = 256;  // bytes

const uint64_t MASS_ERASE_US = 5000000, MASS_ERASE_MAX_US = 10000000;
const uint64_t OPTION_US = 300000, OPTION_MAX_US = 600000;

const uint32_t KEY1 = 0x45670123, KEY2 = 0xCDEF89AB;
const uint32_t OPTKEY1 = 0x08192A3B, OPTKEY2 = 0x4C5D6E7F;

int LevelOf(uint32_t Optsr) {
  const uint32_t Rdp = Optsr >> 8 & 0xFF;
  return Rdp == 0xAA ? 0 : Rdp == 0xCC ? 2 : 1;
}

uint32_t AreaStart(uint32_t Area) {
  return Area & 0xFFF;
}
uint32_t AreaEnd(uint32_t Area) {
  return Area >> 16 & 0xFFF;
}
bool AreaValid(uint32_t Area) {
  return AreaStart(Area) <= AreaEnd(Area);
}

// Start and end the same means the whole bank.
bool AreaHolds(uint32_t Area, uint32_t Unit) {
  return AreaValid(Area) &&
         (AreaStart(Area) == AreaEnd(Area) || (Unit >= AreaStart(Area) && Unit <= AreaEnd(Area)));
}

bool AreaCovers(uint32_t New, uint32_t Old) {
  if (!AreaValid(Old)) {
    return true;
  }
  if (!AreaValid(New)) {
    return false;
  }
  if (AreaStart(New) == AreaEnd(New)) {
    return true;
  }
  return AreaStart(Old) != AreaEnd(Old) && AreaStart(New) <= AreaStart(Old) &&
         AreaEnd(New) >= AreaEnd(Old);
}

bool SameBounds(uint32_t A, uint32_t B) {
  return ((A ^ B) & ~AREA_KEEP_OFF) == 0;
}

class ControllerH7 : public Controller {
 public:
  explicit ControllerH7(Device& Owner)
      : Controller(Owner, aRegisters, OptionWords()),
        bank1_(KEY1, KEY2),
        bank2_(KEY1, KEY2),
        options_(OPTKEY1, OPTKEY2) {
    bank1_.ThirdKeyKills   = true;
    bank2_.ThirdKeyKills   = true;
    options_.ThirdKeyKills = true;
    State("keys_1", &bank1_.State);
    State("keys_2", &bank2_.State);
    State("option_keys", &options_.State);
    State("change_error", &changeError_);
    State("swapped", &swapped_);
    static const char* const aNames[] = {"prg_optsr", "prg_prar1", "prg_scar1", "prg_wpsn1",
                                         "prg_prar2", "prg_scar2", "prg_wpsn2", "prg_boot"};
    for (int i = 0; i < NUM_OPTIONS; i++) {
      State(aNames[i], &prg_[i]);
    }
  }

  void OnPowerOn() override {
    changeError_ = 0;
    ResetRegisters();
    ReloadPrg();
  }

  void OnSystemReset() override {
    ResetRegisters();
    if (owner_.Variant(H7_PRG_RELOADED_ON_RESET) != 0) {
      ReloadPrg();
    }
    if (owner_.Variant(H7_ERROR_CLEARED_ON_RESET) != 0) {
      changeError_ = 0;
    }
  }

  // -- Bus

  bool ReadRegister(int Index, uint32_t Size, uint32_t* pValue) override {
    (void)Size;
    const int View = Index / REGISTERS_PER_VIEW;
    const int Kind = Index % REGISTERS_PER_VIEW;
    switch (Kind) {
      case OPTSR_CUR:
        *pValue = Stored(OPTSR) | (Busy() ? OPTSR_OPT_BUSY : 0) |
                  (changeError_ != 0 ? OPTSR_OPTCHANGEERR : 0);
        return true;
      case PRAR_CUR:
      case SCAR_CUR:
      case WPSN_CUR:
      case BOOT_CUR:
        *pValue = Stored(OptionOf(Kind, View));
        return true;
      case OPTSR_PRG:
      case PRAR_PRG:
      case SCAR_PRG:
      case WPSN_PRG:
      case BOOT_PRG:
        *pValue = prg_[OptionOf(Kind, View)];
        return true;
      case OPTCR:
        *pValue = registers_[OPTCR] | (swapped_ != 0 ? OPTCR_SWAP_BANK : 0);
        return true;
      default:
        *pValue = registers_[Index];
        return true;
    }
  }

  bool WriteRegister(int Index, uint32_t Size, uint32_t Value) override {
    const int View = Index / REGISTERS_PER_VIEW;
    const int Kind = Index % REGISTERS_PER_VIEW;
    if (Kind == OPTKEYR) {
      return TakeKey(&options_, Size, Value, OPTCR, OPTCR_OPTLOCK);
    }
    options_.Interrupt();
    if (Kind == KEYR) {
      return TakeKey(View == 0 ? &bank1_ : &bank2_, Size, Value, CR + View * REGISTERS_PER_VIEW,
                     CR_LOCK);
    }
    bank1_.Interrupt();
    bank2_.Interrupt();
    switch (Kind) {
      case OPTCR:
        WriteOptionControl(Value);
        break;
      case OPTSR_PRG:
      case PRAR_PRG:
      case SCAR_PRG:
      case WPSN_PRG:
      case BOOT_PRG:
        if ((registers_[OPTCR] & OPTCR_OPTLOCK) == 0 && !Busy()) {
          const int      Option = OptionOf(Kind, View);
          const uint32_t Mask   = aOptions[Option].Mask;
          prg_[Option]          = (prg_[Option] & ~Mask) | (Value & Mask);
        }
        break;
      case OPTCCR:
        changeError_ = (Value & OPTCCR_CLR_OPTCHANGEERR) != 0 ? 0 : changeError_;
        break;
      case CCR:
        registers_[SR + View * REGISTERS_PER_VIEW] &= ~Value;
        break;
      case CR:
        if ((registers_[Index] & CR_LOCK) == 0) {
          registers_.Write(Index, Value);
          if ((Value & CR_LOCK) != 0) {
            (View == 0 ? bank1_ : bank2_).Close();
          }
        }
        break;
      default:
        break;
    }
    return true;
  }

  // The option bytes are seen through the registers only.
  bool InOptionArea(uint32_t Address) const override {
    (void)Address;
    return false;
  }
  bool ReadOptionArea(uint32_t Address, uint32_t* pWord) override {
    (void)Address;
    (void)pWord;
    return false;
  }
  bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override {
    (void)Address;
    (void)Size;
    (void)Value;
    return false;
  }

  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) override {
    (void)pValue;
    if (Source.Row().Kind == SRAM) {
      return true;
    }
    const bool IsFlash = Source.Row().Kind == MAIN_FLASH;
    const int  Bank    = IsFlash && Address - FLASH_BASE >= BANK_BYTES;
    if (Level() != 0) {
      registers_[SR + Bank * REGISTERS_PER_VIEW] |= IsFlash ? SR_RDPERR : 0;
      return false;
    }
    if (IsFlash && IsHidden(Address)) {
      registers_[SR + Bank * REGISTERS_PER_VIEW] |= SR_RDPERR;
      return false;
    }
    return true;
  }

  // Programming and erasing of main flash is not modelled: the write is refused.
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    (void)Target;
    (void)Size;
    (void)Value;
    const int Bank = Address - FLASH_BASE >= BANK_BYTES;
    registers_[SR + Bank * REGISTERS_PER_VIEW] |= SR_WRPERR;
    return true;
  }

  // -- Protection: what is stored is in force at once.

  int  Level() const override { return LevelOf(Stored(OPTSR)); }
  int  StoredLevel() const override { return LevelOf(Stored(OPTSR)); }
  bool WatchdogByHardware() const override { return (Stored(OPTSR) & OPTSR_IWDG1_SW) == 0; }

  std::string Remarks() const override {
    return changeError_ != 0 ? "OPTCHANGEERR is set: a change was refused" : "";
  }

  bool Configure(const CREATE_REQUEST& Request, std::string* psError) override {
    const uint32_t NumSectors = 2 * SECTORS_PER_BANK;
    if (!Request.sMismatch.empty()) {
      *psError = "this device shows no complements of its option bytes";
      return false;
    }
    if (!CheckSectors(Request.Wrp, NumSectors, psError) ||
        !CheckSectors(Request.Pcrop, NumSectors, psError)) {
      return false;
    }
    const bool ByManual = owner_.Variant(H7_DELIVERED_BY_MANUAL) != 0;
    uint32_t   Optsr    = ByManual ? OPTSR_BY_MANUAL : aOptions[OPTSR].Word.Factory;
    if (Request.User) {
      Optsr = (Optsr & ~OPTSR_USER) | (*Request.User & OPTSR_USER);
    }
    const uint32_t aBytes[] = {0xAA, 0xBB, 0xCC};
    const uint32_t Rdp      = Request.Rdp ? *Request.Rdp & 0xFF : aBytes[Request.Level.value_or(0)];
    Optsr                   = (Optsr & ~0xFF00u) | Rdp << 8 | (Request.Secure ? OPTSR_SECURITY : 0);
    Store(OPTSR, Optsr);
    const uint32_t Wrp   = SectorMask(Request.Wrp, Request.WrpAll, NumSectors);
    const uint32_t Pcrop = SectorMask(Request.Pcrop, Request.PcropAll, NumSectors);
    for (int Bank = 0; Bank < 2; Bank++) {
      Store(WPSN1 + 3 * Bank, ~(Wrp >> (8 * Bank)) & 0xFF);
      uint32_t Area = 0x000000FF;
      if (!AreaOf(Pcrop >> (8 * Bank) & 0xFF, &Area)) {
        *psError = "the sectors of a bank must be one area";
        return false;
      }
      Store(PRAR1 + 3 * Bank, Area | (Request.PcropRdp.value_or(0) != 0 ? AREA_KEEP_OFF : 0));
      Area = ByManual ? SCAR_BY_MANUAL : aOptions[SCAR1].Word.Factory;
      if (Request.Secure && Bank == 0) {
        AreaOf(1, &Area);  // the first sector
        Area |= AREA_KEEP_OFF;
      }
      Store(SCAR1 + 3 * Bank, Area);
    }
    return true;
  }

 protected:
  void FinishPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE) {
      EraseForUnprotecting();
    } else {
      for (int i = 0; i < NUM_OPTIONS; i++) {
        Store(i, prg_[i]);
      }
    }
  }

  // The old option values are kept.
  void AbortPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE) {
      Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
      pFlash->EraseRange(pFlash->Row().Base, pFlash->Row().Bytes / 2);
    }
  }

 private:
  // Sectors in one piece as an area word; false when they are not. None leaves the word alone.
  static bool AreaOf(uint32_t Sectors, uint32_t* pArea) {
    if (Sectors == 0) {
      return true;
    }
    uint32_t First = 0;
    while ((Sectors >> First & 1) == 0) {
      First++;
    }
    uint32_t End = First;
    while ((Sectors >> End & 1) != 0) {
      End++;
    }
    const uint32_t Units = SECTOR_BYTES / AREA_UNIT;
    *pArea               = First * Units | (End * Units - 1) << 16;
    return Sectors >> End == 0;
  }

  // Which option a register of a view stands for: the banks' views change places when swapped.
  int OptionOf(int Kind, int View) const {
    const int Bank = swapped_ != 0 ? 1 - View : View;
    switch (Kind) {
      case PRAR_CUR:
      case PRAR_PRG:
        return PRAR1 + 3 * Bank;
      case SCAR_CUR:
      case SCAR_PRG:
        return SCAR1 + 3 * Bank;
      case WPSN_CUR:
      case WPSN_PRG:
        return WPSN1 + 3 * Bank;
      case BOOT_CUR:
      case BOOT_PRG:
        return BOOT;
      default:
        return OPTSR;
    }
  }

  bool TakeKey(KeyLock* pLock, uint32_t Size, uint32_t Key, int Register, uint32_t LockBit) {
    if (Size != 4) {
      pLock->Kill();
    }
    if (!pLock->WriteKey(Key)) {
      registers_[Register] |= LockBit;
      return false;
    }
    if (pLock->IsOpen()) {
      registers_[Register] &= ~LockBit;
    }
    return true;
  }

  void ResetRegisters() {
    registers_.ResetAll();
    bank1_.Reset();
    bank2_.Reset();
    options_.Reset();
    swapped_ = (Stored(OPTSR) & OPTSR_SWAP_BANK_OPT) != 0;
  }

  void ReloadPrg() {
    for (int i = 0; i < NUM_OPTIONS; i++) {
      prg_[i] = Stored(i);
    }
  }

  void WriteOptionControl(uint32_t Value) {
    if ((registers_[OPTCR] & OPTCR_OPTLOCK) != 0) {
      return;
    }
    registers_.Write(OPTCR, Value);
    if ((Value & OPTCR_OPTSTART) != 0 && !Busy()) {
      StartChange();
    }
    if ((Value & OPTCR_OPTLOCK) != 0) {
      options_.Close();
    }
  }

  void StartChange() {
    bool Differs = false;
    for (int i = 0; i < NUM_OPTIONS; i++) {
      Differs = Differs || prg_[i] != Stored(i);
    }
    if (!Differs) {
      return;
    }
    const char* sBroken = BrokenRule();
    if (sBroken != nullptr) {
      changeError_ = 1;
      owner_.Event(std::string("change refused: ") + sBroken);
      return;
    }
    const bool         Max = owner_.Variant(TIMING_MAX) != 0;
    std::vector<PHASE> Phases;
    if (Unprotects()) {
      Phases.push_back({MASS_ERASE, Max ? MASS_ERASE_MAX_US : MASS_ERASE_US});
    }
    Phases.push_back({OPTION_PROGRAM, Max ? OPTION_MAX_US : OPTION_US});
    Start(Phases);
  }

  bool Unprotects() const { return Level() == 1 && LevelOf(prg_[OPTSR]) == 0; }

  // NULL when the change is allowed.
  const char* BrokenRule() const {
    for (int Bank = 0; Bank < 2; Bank++) {
      const uint32_t OldPcrop = Stored(PRAR1 + 3 * Bank), NewPcrop = prg_[PRAR1 + 3 * Bank];
      const uint32_t OldSecure = Stored(SCAR1 + 3 * Bank), NewSecure = prg_[SCAR1 + 3 * Bank];
      const bool     WipesPcrop  = Unprotects() && ((OldPcrop | NewPcrop) & AREA_KEEP_OFF) != 0;
      const bool     WipesSecure = Unprotects() && ((OldSecure | NewSecure) & AREA_KEEP_OFF) != 0;
      if (!AreaCovers(NewPcrop, OldPcrop) && !WipesPcrop) {
        return "a PCROP area shrinks without being wiped";
      }
      if ((OldPcrop & ~NewPcrop & AREA_KEEP_OFF) != 0 && !Unprotects()) {
        return "DMEP cannot be cleared alone";
      }
      if (!SameBounds(OldSecure, NewSecure) && (AreaValid(OldSecure) || AreaValid(NewSecure)) &&
          (!WipesSecure || AreaValid(NewSecure))) {
        return "a secure area is changed by other than secure code";
      }
      if ((OldSecure & ~NewSecure & AREA_KEEP_OFF) != 0 && !Unprotects()) {
        return "DMES cannot be cleared alone";
      }
      if ((Stored(OPTSR) & ~prg_[OPTSR] & OPTSR_SECURITY) != 0 &&
          ((AreaValid(OldPcrop) && !WipesPcrop) || (AreaValid(OldSecure) && !WipesSecure))) {
        return "SECURITY cannot be cleared while a protected area is kept";
      }
    }
    return nullptr;
  }

  bool InArea(int Option, uint32_t Address) const {
    const uint32_t Offset = Address - FLASH_BASE;
    const int      Bank   = Offset >= BANK_BYTES;
    return AreaHolds(Stored(Option + 3 * Bank), Offset % BANK_BYTES / AREA_UNIT);
  }

  bool IsHidden(uint32_t Address) const { return InArea(PRAR1, Address) || InArea(SCAR1, Address); }

  // An area is spared unless its wipe bit is set, before or by this change.
  bool IsSpared(uint32_t Address) const {
    const int Bank = Address - FLASH_BASE >= BANK_BYTES;
    for (const int Option : {static_cast<int>(PRAR1), static_cast<int>(SCAR1)}) {
      const int Word = Option + 3 * Bank;
      if (((Stored(Word) | prg_[Word]) & AREA_KEEP_OFF) == 0 && InArea(Option, Address)) {
        return true;
      }
    }
    return false;
  }

  void EraseForUnprotecting() {
    Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
    for (uint32_t Offset = 0; Offset < 2 * BANK_BYTES; Offset += AREA_UNIT) {
      if (!IsSpared(FLASH_BASE + Offset)) {
        pFlash->EraseRange(FLASH_BASE + Offset, AREA_UNIT);
      }
    }
    owner_.EraseKind(BACKUP);
  }

  KeyLock  bank1_, bank2_, options_;
  uint32_t prg_[NUM_OPTIONS] = {};
  uint32_t changeError_      = 0;
  uint32_t swapped_          = 0;
};

// -- Devices -------------------------------------------------------------------------------------

const REGISTER aSystem[] = {
    {"DBGMCU_IDCODE", 0x5C001000, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0x5C001004, 0, 0x00700007, 0, 0, "DBGSLEEP_D1 0, DBGSTOP_D1 1, DBGSTBY_D1 2"},
    {"DBGMCU_APB3FZ1", 0x5C001034, 0, 0x00000040, 0, 0, "WWDG1 6"},
    {"DBGMCU_APB4FZ1", 0x5C001054, 0, 0x00050780, 0, 0, "WDGLSD1 18"},
};

const SYSTEM_BLOCK System = {aSystem, 0x5C001000, 0x5C001000, 0x5C0010FF, 0x5C001054,
                             18,      0,          0,          0,          512000};

std::unique_ptr<Controller> Make(Device& Owner, const DEVICE_ROW& Device) {
  (void)Device;
  return std::make_unique<ControllerH7>(Owner);
}

}  // namespace

const DEVICE_ROW aDevicesH7[NUM_DEVICES_H7] = {
    {"STM32H743",
     "H7, two banks, PCROP and secure areas, 2 MB flash",
     0x20036450,
     &System,
     {{"flash", FLASH_BASE, 2 * BANK_BYTES, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x38800000, 4 * KB, BACKUP, 0},
      {"backup", 0x58004050, 128, BACKUP, 0},
      {"sram", 0x20000000, 128 * KB, SRAM, 0}},
     Make},
};

}  // namespace sim
