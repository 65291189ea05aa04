// Flash controller of STM32F2, F4 and F7: option bytes are written as whole registers (OPTCR and,
// where they exist, OPTCR1 and OPTCR2) and take effect when OPTSTRT is set.
// Reference manuals RM0033 (F2), RM0090 (F4), RM0385, RM0410 and RM0431 (F7).

#include <algorithm>

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

// -- Registers -----------------------------------------------------------------------------------

// The option registers stand last; how many there are depends on the device.
enum { ACR, KEYR, OPTKEYR, SR, CR, OPTCR, OPTCR1, OPTCR2 };
const int MAX_OPTIONS = 3;

const uint32_t SR_EOP = 1u << 0, SR_OPERR = 1u << 1, SR_WRPERR = 1u << 4, SR_PGPERR = 1u << 6,
               SR_PGSERR = 1u << 7, SR_RDERR = 1u << 8, SR_BSY = 1u << 16;
const uint32_t CR_PG = 1u << 0, CR_SER = 1u << 1, CR_MER = 1u << 2, CR_MER1 = 1u << 15,
               CR_STRT = 1u << 16, CR_EOPIE = 1u << 24, CR_ERRIE = 1u << 25, CR_LOCK = 1u << 31;
const uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTRT = 1u << 1, OPTCR_RDP = 0xFF00,
               OPTCR_nDBANK = 1u << 29, OPTCR_SPRMOD = 1u << 31;
const uint32_t OPTCR_WDG_SW = 1u << 5;  // the independent watchdog's; F7 calls it IWDG_SW
const uint32_t OPTCR2_PCROP = 0xFF, OPTCR2_PCROP_RDP = 1u << 31;

// SR and CR differ: whether PCROP reads have a flag, what bit 7 is called, how many sectors there
// are to erase, and whether a second bank can be erased alone.
#define COMMON_REGISTERS(SrErrors, SrFields, CrBits, CrFields)                                   \
  {"FLASH_ACR",                                                                                  \
   0x40023C00,                                                                                   \
   0,                                                                                            \
   0x00001F0F,                                                                                   \
   0,                                                                                            \
   0,                                                                                            \
   "LATENCY 3:0, PRFTEN 8, ICEN 9, DCEN 10, ICRST 11, DCRST 12"},                                \
      {"FLASH_KEYR", 0x40023C04, 0, 0, 0, 0, ""}, {"FLASH_OPTKEYR", 0x40023C08, 0, 0, 0, 0, ""}, \
      {"FLASH_SR",                                                                               \
       0x40023C0C,                                                                               \
       0,                                                                                        \
       0,                                                                                        \
       SrErrors,                                                                                 \
       0,                                                                                        \
       "EOP 0, OPERR 1, WRPERR 4, PGAERR 5, PGPERR 6, " SrFields "BSY 16"},                      \
  {                                                                                              \
    "FLASH_CR", 0x40023C10, 0x80000000, CrBits, 0, CR_STRT | CR_LOCK,                            \
        "PG 0, SER 1, MER 2, " CrFields "PSIZE 9:8, STRT 16, EOPIE 24, ERRIE 25, LOCK 31"        \
  }

// Writable are the bits that are options. What is stored has the fields behind LOCK_FIELDS.
#define LOCK_FIELDS "OPTLOCK 0, OPTSTRT 1, "
#define OPTCR_REGISTER(Options, Fields)                                      \
  {                                                                          \
    "FLASH_OPTCR", 0x40023C14, 0, Options, 0, OPTCR_OPTLOCK | OPTCR_OPTSTRT, \
        LOCK_FIELDS "BOR_LEV 3:2, " Fields                                   \
  }
#define F4_USER_FIELDS "WDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, "
#define F7_USER_FIELDS "WWDG_SW 4, IWDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, "
#define F7_STOP_FIELDS "IWDG_STDBY 30, IWDG_STOP 31"
#define BOOT_REGISTER \
  { "FLASH_OPTCR1", 0x40023C18, 0, 0xFFFFFFFF, 0, 0, "BOOT_ADD0 15:0, BOOT_ADD1 31:16" }

const REGISTER aRegistersOneBank[] = {
    COMMON_REGISTERS(0xF3, "PGSERR 7, ", 0x0300037F, "SNB 6:3, "),
    OPTCR_REGISTER(0x0FFFFFEC, F4_USER_FIELDS "nWRP 27:16"),
};

const REGISTER aRegistersF413[] = {
    COMMON_REGISTERS(0x1F3, "PGSERR 7, RDERR 8, ", 0x0300037F, "SNB 6:3, "),
    OPTCR_REGISTER(0xFFFFFFEC, F4_USER_FIELDS "nWRP 30:16, SPRMOD 31"),
};

const REGISTER aRegistersTwoBanks[] = {
    COMMON_REGISTERS(0x1F3, "PGSERR 7, RDERR 8, ", 0x030083FF, "SNB 7:3, MER1 15, "),
    OPTCR_REGISTER(0xCFFFFFFC, "BFB2 4, " F4_USER_FIELDS "nWRP 27:16, DB1M 30, SPRMOD 31"),
    {"FLASH_OPTCR1", 0x40023C18, 0, 0x0FFF0000, 0, 0, "nWRP12 27:16"},
};

const REGISTER aRegistersF72[] = {
    COMMON_REGISTERS(0x1F3, "ERSERR 7, RDERR 8, ", 0x0300037F, "SNB 6:3, "),
    OPTCR_REGISTER(0xC0FFFFFC, F7_USER_FIELDS "nWRP 23:16, " F7_STOP_FIELDS),
    BOOT_REGISTER,
    {"FLASH_OPTCR2", 0x40023C1C, 0, 0x800000FF, 0, 0, "PCROP 7:0, PCROP_RDP 31"},
};

const REGISTER aRegistersF74[] = {
    COMMON_REGISTERS(0xF3, "PGSERR 7, ", 0x0300037F, "SNB 6:3, "),
    OPTCR_REGISTER(0xC0FFFFFC, F7_USER_FIELDS "nWRP 23:16, " F7_STOP_FIELDS),
    BOOT_REGISTER,
};

const REGISTER aRegistersF76[] = {
    COMMON_REGISTERS(0xF3, "PGSERR 7, ", 0x030083FF, "SNB 7:3, MER2 15, "),
    OPTCR_REGISTER(0xFFFFFFFC, F7_USER_FIELDS "nWRP 27:16, nDBOOT 28, nDBANK 29, " F7_STOP_FIELDS),
    BOOT_REGISTER,
};

// Where the bus shows the stored options, for reading only; writing goes through the registers. A
// half-word of a register stands in a double word of its own, OPTCR2 as it is.
struct COPY_ROW {
  const char* sName;
  uint32_t    Address;
  int         Option;  // 0: OPTCR and so on; devices without that register have no such place
  uint32_t    Shift;
  uint32_t    Bits;
};

const COPY_ROW aCopiesF4[] = {
    {"OPTION_USER_RDP", 0x1FFFC000, 0, 0, 0xFFFF},
    {"OPTION_WRP", 0x1FFFC008, 0, 16, 0xFFFF},
    {"OPTION_BANK2", 0x1FFEC000, 1, 0, 0xFFFF},  // nothing in it
    {"OPTION_BANK2_WRP", 0x1FFEC008, 1, 16, 0xFFFF},
};

const COPY_ROW aCopiesF7[] = {
    {"OPTION_USER_RDP", 0x1FFF0000, 0, 0, 0xFFFF},  {"OPTION_WRP", 0x1FFF0008, 0, 16, 0xFFFF},
    {"OPTION_BOOT_ADD0", 0x1FFF0010, 1, 0, 0xFFFF}, {"OPTION_BOOT_ADD1", 0x1FFF0018, 1, 16, 0xFFFF},
    {"OPTION_PCROP", 0x1FFF0020, 2, 0, 0xFFFFFFFF},
};

// -- Devices' own --------------------------------------------------------------------------------

enum PCROP_KIND {
  NO_PCROP,
  BY_SPRMOD,  // the protection bits, read the other way round
  BY_OPTCR2   // bits of their own
};

// A bank has four small sectors, one of four times and the rest of eight times their size. The
// sectors' protection bits are in OPTCR from bit 16 on, those of a second bank in OPTCR1.
struct F4_ROW {
  const char*               sDevice;
  std::span<const REGISTER> Registers;
  std::span<const COPY_ROW> Copies;
  uint32_t                  aFactory[MAX_OPTIONS];  // with the bits that do not exist as they read
  uint32_t                  UserMask;               // the bits of OPTCR that are user options
  uint32_t                  NumBanks;
  uint32_t                  SectorsPerBank;
  uint32_t                  SmallKB;
  uint32_t                  NumBits;  // protection bits per bank
  PCROP_KIND                Pcrop;
  bool                      HasNdbank;  // with nDBANK 0: two banks, their sectors of half the size
};

// F413 has fifteen protection bits, the last one for two sectors.
// clang-format off
const F4_ROW aRows[] = {
    // device      registers           memory     as delivered; user options
    //                                            banks, sectors, KB, bits, PCROP, nDBANK
    {"STM32F207", aRegistersOneBank,  aCopiesF4, {0x0FFFAAED}, 0x000000EC,
                                                  1, 12, 16, 12, NO_PCROP,  false},
    {"STM32F407", aRegistersOneBank,  aCopiesF4, {0x0FFFAAED}, 0x000000EC,
                                                  1, 12, 16, 12, NO_PCROP,  false},
    {"STM32F413", aRegistersF413,     aCopiesF4, {0x7FFFAAED}, 0x000000EC,
                                                  1, 16, 16, 15, BY_SPRMOD, false},
    {"STM32F429", aRegistersTwoBanks, aCopiesF4, {0x0FFFAAED, 0x0FFF0000}, 0x400000FC,
                                                  2, 12, 16, 12, BY_SPRMOD, false},
    {"STM32F469", aRegistersTwoBanks, aCopiesF4, {0x0FFFAAED, 0x0FFF0000}, 0x400000FC,
                                                  2, 12, 16, 12, BY_SPRMOD, false},
    {"STM32F723", aRegistersF72,      aCopiesF7, {0xC0FFAAFD, 0x00400080, 0x80000000}, 0xC00000FC,
                                                  1, 8,  16, 8,  BY_OPTCR2, false},
    {"STM32F746", aRegistersF74,      aCopiesF7, {0xC0FFAAFD, 0x00400080}, 0xC00000FC,
                                                  1, 8,  32, 8,  NO_PCROP,  false},
    {"STM32F767", aRegistersF76,      aCopiesF7, {0xFFFFAAFD, 0x00400080}, 0xF00000FC,
                                                  1, 12, 32, 12, NO_PCROP,  true},
};
// clang-format on

// Times by PSIZE: x8, x16, x32, x64.
const uint64_t aMassEraseUs[4]    = {16000000, 11000000, 8000000, 8000000};
const uint64_t aMassEraseMaxUs[4] = {32000000, 22000000, 16000000, 16000000};
const uint64_t OPTION_ERASE_US = 250000, OPTION_ERASE_MAX_US = 500000;
const uint64_t OPTION_PROGRAM_US = 150000, OPTION_PROGRAM_MAX_US = 300000;
const uint64_t SECTOR_ERASE_US = 1000000, SECTOR_ERASE_MAX_US = 4000000;
const uint64_t PROGRAM_US = 16, PROGRAM_MAX_US = 100;

const uint32_t KEY1 = 0x45670123, KEY2 = 0xCDEF89AB;
const uint32_t OPTKEY1 = 0x08192A3B, OPTKEY2 = 0x4C5D6E7F;

const uint32_t KB = 1024;

std::vector<OPTION_WORD> OptionWords(const F4_ROW& Row) {
  std::vector<OPTION_WORD> Words;
  for (size_t i = OPTCR; i < Row.Registers.size(); i++) {
    const REGISTER& Register = Row.Registers[i];
    const bool      IsOptcr  = i == OPTCR;
    // OPTLOCK and OPTSTRT are of the register only.
    Words.push_back({Register.sName + sizeof("FLASH_") - 1, 0,
                     Row.aFactory[i - OPTCR] & ~Register.SetOnly,
                     Register.sFields + (IsOptcr ? sizeof(LOCK_FIELDS) - 1 : 0)});
  }
  return Words;
}

int LevelOf(uint32_t Optcr) {
  const uint32_t Rdp = (Optcr & OPTCR_RDP) >> 8;
  return Rdp == 0xAA ? 0 : Rdp == 0xCC ? 2 : 1;
}

class ControllerF4 : public Controller {
 public:
  ControllerF4(Device& Owner, const F4_ROW& Row)
      : Controller(Owner, Row.Registers, OptionWords(Row)),
        row_(Row),
        flash_(KEY1, KEY2),
        options_(OPTKEY1, OPTKEY2) {
    State("keys", &flash_.State);
    State("option_keys", &options_.State);
    State("loaded", &loaded_);
    State("to_program_0", &toProgram_[0]);
    State("to_program_1", &toProgram_[1]);
    State("to_program_2", &toProgram_[2]);
    for (const COPY_ROW& Copy : row_.Copies) {
      if (Copy.Option < NumOptions()) {
        wordRows_.push_back({Copy.sName, Copy.Address, 0, 0, 0, 0, ""});
      }
    }
  }

  void OnPowerOn() override { OnSystemReset(); }

  void OnSystemReset() override {
    registers_.ResetAll();
    flash_.Reset();
    options_.Reset();
    loaded_ = Stored(0);
    Load();
  }

  // -- Bus

  bool ReadRegister(int Index, uint32_t Size, uint32_t* pValue) override {
    (void)Size;
    *pValue = registers_[Index] | (Index == SR && Busy() ? SR_BSY : 0);
    return true;
  }

  bool WriteRegister(int Index, uint32_t Size, uint32_t Value) override {
    (void)Size;
    switch (Index) {
      case ACR:
      case SR:
        registers_.Write(Index, Value);
        return true;
      case KEYR:
        return TakeKey(&flash_, Value, CR, CR_LOCK);
      case OPTKEYR:
        return TakeKey(&options_, Value, OPTCR, OPTCR_OPTLOCK) ||
               owner_.Variant(F4_OPTKEY_BUS_ERROR) == 0;
      case CR:
        return owner_.StallUntilReady() && WriteControl(Value);
      default:
        return owner_.StallUntilReady() && WriteOption(Index, Value);
    }
  }

  bool InOptionArea(uint32_t Address) const override { return FindCopy(Address) != nullptr; }

  // Bits that hold no option read as ones, as they do in an erased word.
  bool ReadOptionArea(uint32_t Address, uint32_t* pWord) override {
    if (Level() != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    const COPY_ROW& Copy    = *FindCopy(Address);
    const uint32_t  Options = Stored(Copy.Option) | ~OptionMask(Copy.Option);
    *pWord = Address == Copy.Address ? Options >> Copy.Shift | ~Copy.Bits : 0xFFFFFFFF;
    return true;
  }

  bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override {
    (void)Address;
    (void)Size;
    (void)Value;
    if (Level() != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    if ((registers_[CR] & CR_LOCK) == 0) {
      SetError(SR_WRPERR);
    }
    return true;
  }

  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) override {
    if (Source.Row().Kind == SRAM) {
      return true;
    }
    if (Level() != 0) {
      return false;
    }
    if (Source.Row().Kind == MAIN_FLASH && IsExecuteOnly(SectorOf(Address))) {
      SetError(SR_RDERR);
      *pValue = 0;
    }
    return true;
  }

  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    (void)Target;
    if (Level() != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    if ((registers_[CR] & CR_LOCK) != 0) {
      return true;
    }
    const uint32_t Psize = registers_[CR] >> 8 & 3;
    if ((registers_[CR] & CR_PG) == 0) {
      SetError(SR_PGSERR);
    } else if (Size != 1u << Psize) {
      SetError(SR_PGPERR);
    } else if (IsProtected(SectorOf(Address))) {
      SetError(SR_WRPERR);
    } else {
      Start({{WORD_PROGRAM, owner_.Variant(TIMING_MAX) ? PROGRAM_MAX_US : PROGRAM_US, Address & ~3u,
              Merge(0xFFFFFFFF, Address, Size, Value)}});
    }
    return true;
  }

  // -- Protection

  int Level() const override {
    return LevelOf(owner_.Variant(F4_LEVEL_AT_ONCE) != 0 ? Stored(0) : loaded_);
  }
  int  StoredLevel() const override { return LevelOf(Stored(0)); }
  bool WatchdogByHardware() const override { return (loaded_ & OPTCR_WDG_SW) == 0; }

  std::string Remarks() const override {
    if (LevelOf(Stored(0)) != Level()) {
      return "the stored protection level is in force after the next reset";
    }
    return "";
  }

  bool Configure(const CREATE_REQUEST& Request, std::string* psError) override {
    const uint32_t NumBits = NumOwnBits();
    if (Request.Secure || !Request.sMismatch.empty()) {
      *psError = Request.Secure ? "this device has no secure area"
                                : "this device shows no complements of its option bytes";
      return false;
    }
    const bool Pcrop = Request.PcropAll || !Request.Pcrop.empty();
    if (Pcrop && row_.Pcrop == NO_PCROP) {
      *psError = "this device has no PCROP";
      return false;
    }
    if (Request.PcropRdp && row_.Pcrop != BY_OPTCR2) {
      *psError = "this device has no PCROP_RDP bit";
      return false;
    }
    if (Pcrop && row_.Pcrop == BY_SPRMOD && (Request.WrpAll || !Request.Wrp.empty())) {
      *psError = "the sector bits are either write protection or PCROP, not both";
      return false;
    }
    if (!CheckSectors(Request.Wrp, NumBits, psError) ||
        !CheckSectors(Request.Pcrop, NumBits, psError)) {
      return false;
    }
    uint32_t aOptions[MAX_OPTIONS] = {};
    for (int i = 0; i < NumOptions(); i++) {
      aOptions[i] = Stored(i);
    }
    if (Request.User) {
      aOptions[0] = (aOptions[0] & ~row_.UserMask) | (*Request.User & row_.UserMask);
    }
    if (Request.Level || Request.Rdp) {
      const uint32_t aBytes[] = {0xAA, 0xBB, 0xCC};
      const uint32_t Rdp      = Request.Rdp ? *Request.Rdp & 0xFF : aBytes[*Request.Level];
      aOptions[0]             = (aOptions[0] & ~OPTCR_RDP) | Rdp << 8;
    }
    // A sector's bit: 0 protects it, or with SPRMOD 1 makes it execute-only.
    const uint32_t Exec = SectorMask(Request.Pcrop, Request.PcropAll, NumBits);
    if (Pcrop && row_.Pcrop == BY_SPRMOD) {
      aOptions[0] |= OPTCR_SPRMOD;
      SetBits(aOptions, Exec);
    } else {
      SetBits(aOptions, ~SectorMask(Request.Wrp, Request.WrpAll, NumBits));
    }
    if (row_.Pcrop == BY_OPTCR2) {
      const uint32_t PcropRdp = Request.PcropRdp.value_or(1) != 0 ? OPTCR2_PCROP_RDP : 0;
      aOptions[2]             = (Exec & OPTCR2_PCROP) | PcropRdp;
    }
    for (int i = 0; i < NumOptions(); i++) {
      Store(i, aOptions[i]);
    }
    return true;
  }

 protected:
  void FinishPhase(const PHASE& Phase) override {
    switch (Phase.Kind) {
      case MASS_ERASE:
        EraseSectors(Phase.Argument, NumSectors());
        if (Phase.Argument == UNPROTECT) {
          owner_.EraseKind(BACKUP);
        }
        break;
      case PAGE_ERASE:
        EraseSector(Phase.Argument);
        break;
      case OPTION_ERASE:
        EraseOptions();
        return;  // programming follows
      case OPTION_PROGRAM:
        for (int i = 0; i < NumOptions(); i++) {
          Store(i, toProgram_[i]);
        }
        Load();  // OPTSTRT goes with it
        break;
      default:
        owner_.FindMemory(MAIN_FLASH)->WordAt(Phase.Argument) &= Phase.Value;
        break;
    }
    registers_[CR] &= ~CR_STRT;
    if ((registers_[CR] & CR_EOPIE) != 0) {
      registers_[SR] |= SR_EOP;
    }
  }

  void AbortPhase(const PHASE& Phase) override {
    switch (Phase.Kind) {
      case MASS_ERASE:
        // The options come behind the flash, so these are as they were.
        EraseSectors(Phase.Argument, NumSectors() / 2);
        break;
      case PAGE_ERASE:
        EraseSector(Phase.Argument);
        break;
      case OPTION_ERASE:
      case OPTION_PROGRAM:
        EraseOptions();
        break;
      default:
        break;
    }
  }

 private:
  // What a mass erase takes.
  enum { BANK1 = 1, BANK2 = 2, UNPROTECT = 4 };

  int      NumOptions() const { return static_cast<int>(words_.size()); }
  uint32_t OptionMask(int Option) const { return registers_.Row(OPTCR + Option).Writable; }

  const COPY_ROW* FindCopy(uint32_t Address) const {
    for (const COPY_ROW& Copy : row_.Copies) {
      if (Copy.Option < NumOptions() && (Address & ~7u) == Copy.Address) {
        return &Copy;
      }
    }
    return nullptr;
  }

  // Flags of what could not be done; OPERR tells of any of them where that interrupt is enabled.
  void SetError(uint32_t Flags) {
    registers_[SR] |= Flags | ((registers_[CR] & CR_ERRIE) != 0 ? SR_OPERR : 0);
  }

  // -- Options

  // The registers follow the stored options, with OPTLOCK as it is.
  void Load() {
    for (int i = 0; i < NumOptions(); i++) {
      registers_[OPTCR + i] = Stored(i);
    }
    registers_[OPTCR] |= options_.IsOpen() ? 0 : OPTCR_OPTLOCK;
  }

  bool WriteOption(int Index, uint32_t Value) {
    if ((registers_[OPTCR] & OPTCR_OPTLOCK) != 0) {
      return true;
    }
    registers_.Write(Index, Value);
    if (Index == OPTCR && (Value & OPTCR_OPTLOCK) != 0) {
      options_.Close();
    }
    if (Index == OPTCR && (Value & OPTCR_OPTSTRT) != 0) {
      StartOptions();
    }
    return true;
  }

  void StartOptions() {
    for (int i = 0; i < NumOptions(); i++) {
      toProgram_[i] = registers_[OPTCR + i] & ~registers_.Row(OPTCR + i).SetOnly;
    }
    const bool Unprotects = Level() == 1 && LevelOf(toProgram_[0]) == 0;
    if (!Unprotects && LiftsPcrop()) {
      registers_[OPTCR] &= ~OPTCR_OPTSTRT;
      SetError(SR_WRPERR);
      owner_.Event("change refused: PCROP can be lifted from level 1 to level 0 only");
      return;
    }
    if (row_.Pcrop == BY_OPTCR2) {
      // These bits can be set and not cleared, but for unprotecting with PCROP_RDP.
      const bool Wipes = Unprotects && (Stored(2) & OPTCR2_PCROP_RDP) != 0;
      toProgram_[2]    = Wipes ? row_.aFactory[2] : toProgram_[2] | Stored(2);
    }
    const bool         Max = owner_.Variant(TIMING_MAX) != 0;
    std::vector<PHASE> Phases;
    if (Unprotects) {
      Phases.push_back({MASS_ERASE, MassEraseUs(), UNPROTECT});
    }
    Phases.push_back({OPTION_ERASE, Max ? OPTION_ERASE_MAX_US : OPTION_ERASE_US});
    Phases.push_back({OPTION_PROGRAM, Max ? OPTION_PROGRAM_MAX_US : OPTION_PROGRAM_US});
    Start(Phases);
  }

  // SPRMOD going to 0, or a sector leaving PCROP while SPRMOD stays.
  bool LiftsPcrop() const {
    return IsSprmod() && ((toProgram_[0] & OPTCR_SPRMOD) == 0 ||
                          (StoredBits() & ~BitsOf(toProgram_[0], toProgram_[1])) != 0);
  }

  void EraseOptions() {
    for (int i = 0; i < NumOptions(); i++) {
      Store(i, words_[static_cast<size_t>(i)].Factory | OptionMask(i));
    }
  }

  // -- Main flash

  bool WriteControl(uint32_t Value) {
    if ((registers_[CR] & CR_LOCK) != 0) {
      return true;
    }
    registers_.Write(CR, Value);
    if ((Value & CR_LOCK) != 0) {
      flash_.Close();
    }
    if ((Value & CR_STRT) != 0 && !StartErase()) {
      registers_[CR] &= ~CR_STRT;
    }
    return true;
  }

  // False when nothing was started.
  bool StartErase() {
    const uint32_t Control = registers_[CR];
    uint32_t       Banks   = (Control & CR_MER) != 0 ? BANK1 : 0;
    Banks |= (Control & CR_MER1) != 0 && NumBanks() == 2 ? BANK2 : 0;
    const uint32_t Sector = SectorNumbered(Control >> 3 & 31);
    if (Banks == 0 && (Control & CR_SER) == 0) {
      return false;
    }
    bool Refused = Level() != 0 || (Banks == 0 && Sector >= NumSectors());
    for (uint32_t i = 0; i < NumSectors() && !Refused; i++) {
      Refused = (Banks != 0 ? IsInBanks(i, Banks) : i == Sector) && IsProtected(i);
    }
    if (Refused) {
      SetError(SR_WRPERR);
    } else if (Banks != 0) {
      Start({{MASS_ERASE, MassEraseUs(), Banks}});
    } else {
      Start({{PAGE_ERASE, owner_.Variant(TIMING_MAX) ? SECTOR_ERASE_MAX_US : SECTOR_ERASE_US,
              Sector}});
    }
    return !Refused;
  }

  uint64_t MassEraseUs() const {
    const uint32_t Psize = registers_[CR] >> 8 & 3;
    return (owner_.Variant(TIMING_MAX) != 0 ? aMassEraseMaxUs : aMassEraseUs)[Psize];
  }

  // Of the first so many sectors those that a mass erase takes. Write protection does not stop
  // unprotecting; PCROP sectors of F72x survive it unless PCROP_RDP.
  void EraseSectors(uint32_t What, uint32_t NumFirst) {
    const bool     Unprotects = What == UNPROTECT;
    const bool     Keeps      = row_.Pcrop == BY_OPTCR2 && (Stored(2) & OPTCR2_PCROP_RDP) == 0;
    const uint32_t Kept       = Keeps ? Stored(2) & OPTCR2_PCROP : 0;
    for (uint32_t Sector = 0; Sector < NumFirst; Sector++) {
      if (Unprotects ? (Kept >> Sector & 1) == 0 : IsInBanks(Sector, What)) {
        EraseSector(Sector);
      }
    }
  }

  void EraseSector(uint32_t Sector) {
    if (Sector < NumSectors()) {
      owner_.FindMemory(MAIN_FLASH)->EraseRange(SectorBase(Sector), SectorBytes(Sector));
    }
  }

  // -- Sectors

  bool     IsDualByOption() const { return row_.HasNdbank && (loaded_ & OPTCR_nDBANK) == 0; }
  uint32_t NumBanks() const { return IsDualByOption() ? 2 : row_.NumBanks; }
  uint32_t NumSectors() const { return NumBanks() * row_.SectorsPerBank; }

  bool IsInBanks(uint32_t Sector, uint32_t Banks) const {
    return NumBanks() == 1 || (Banks >> (Sector / row_.SectorsPerBank) & 1) != 0;
  }

  // What SNB means: numbers of the second bank start at 16, those between are of no sector.
  uint32_t SectorNumbered(uint32_t Number) const {
    if (NumBanks() == 1 || Number < row_.SectorsPerBank) {
      return Number;
    }
    return Number < 16 ? NumSectors() : Number - 16 + row_.SectorsPerBank;
  }

  uint32_t SectorBytes(uint32_t Sector) const {
    const uint32_t InBank = Sector % row_.SectorsPerBank;
    const uint32_t Small  = row_.SmallKB * KB / (IsDualByOption() ? 2 : 1);
    return (InBank < 4 ? 1 : InBank == 4 ? 4 : 8) * Small;
  }

  uint32_t SectorBase(uint32_t Sector) const {
    uint32_t Base = owner_.FindMemory(MAIN_FLASH)->Row().Base;
    for (uint32_t i = 0; i < Sector; i++) {
      Base += SectorBytes(i);
    }
    return Base;
  }

  uint32_t SectorOf(uint32_t Address) const {
    uint32_t Sector = 0;
    while (Sector + 1 < NumSectors() && Address >= SectorBase(Sector + 1)) {
      Sector++;
    }
    return Sector;
  }

  // -- Protection bits: those of OPTCR, and above them those of a second bank in OPTCR1.

  uint32_t NumOwnBits() const { return row_.NumBanks * row_.NumBits; }

  uint32_t BitsOf(uint32_t Optcr, uint32_t Optcr1) const {
    const uint32_t OfBank = (1u << row_.NumBits) - 1;
    const uint32_t Second = row_.NumBanks == 2 ? Optcr1 >> 16 & OfBank : 0;
    return (Optcr >> 16 & OfBank) | Second << row_.NumBits;
  }

  void SetBits(uint32_t* pOptions, uint32_t Bits) const {
    const uint32_t OfBank = (1u << row_.NumBits) - 1;
    for (uint32_t Bank = 0; Bank < row_.NumBanks; Bank++) {
      const uint32_t Own = Bits >> (Bank * row_.NumBits) & OfBank;
      pOptions[Bank]     = (pOptions[Bank] & ~(OfBank << 16)) | Own << 16;
    }
  }

  uint32_t StoredBits() const { return BitsOf(Stored(0), row_.NumBanks == 2 ? Stored(1) : 0); }

  // Two sectors share a bit: the last two of F413, each two of F76x with two banks.
  uint32_t BitOf(uint32_t Sector) const {
    return std::min(IsDualByOption() ? Sector / 2 : Sector, NumOwnBits() - 1);
  }

  bool IsSprmod() const { return row_.Pcrop == BY_SPRMOD && (Stored(0) & OPTCR_SPRMOD) != 0; }

  bool IsExecuteOnly(uint32_t Sector) const {
    const uint32_t Exec = row_.Pcrop == BY_OPTCR2 ? Stored(2) & OPTCR2_PCROP
                          : IsSprmod()            ? StoredBits()
                                                  : 0;
    return (Exec >> BitOf(Sector) & 1) != 0;
  }

  bool IsProtected(uint32_t Sector) const {
    return IsExecuteOnly(Sector) || (!IsSprmod() && (StoredBits() >> BitOf(Sector) & 1) == 0);
  }

  const F4_ROW& row_;
  KeyLock       flash_, options_;
  uint32_t      loaded_                 = 0;  // OPTCR as of the last reset
  uint32_t      toProgram_[MAX_OPTIONS] = {};
};

// -- Devices -------------------------------------------------------------------------------------

const REGISTER aSystem[] = {
    {"DBGMCU_IDCODE", 0xE0042000, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0xE0042004, 0, 0x000000E7, 0, 0, "DBG_SLEEP 0, DBG_STOP 1, DBG_STANDBY 2"},
    {"DBGMCU_APB1_FZ", 0xE0042008, 0, 0x06E01DFF, 0, 0, "DBG_WWDG_STOP 11, DBG_IWDG_STOP 12"},
    {"DBGMCU_APB2_FZ", 0xE004200C, 0, 0x00070003, 0, 0, ""},
    {"RCC_CR", 0x40023800, 0x00000083, 0x050D00F9, 0, 0,
     "HSION 0, HSIRDY 1, HSITRIM 7:3, HSICAL 15:8, HSEON 16, PLLON 24"},
};

const SYSTEM_BLOCK System = {aSystem, 0xE0042000, 0xE0042000, 0xE00420FF, 0xE0042008,
                             12,      0,          0,          0x40023800, 512000};

std::unique_ptr<Controller> Make(Device& Owner, const DEVICE_ROW& Device) {
  return std::make_unique<ControllerF4>(Owner, RowNamed(aRows, Device.sName));
}

}  // namespace

const DEVICE_ROW aDevicesF4[NUM_DEVICES_F4] = {
    {"STM32F207",
     "F2, 1 MB flash",
     0x20036411,
     &System,
     {{"flash", 0x08000000, 1024 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 128 * KB, SRAM, 0}},
     Make},
    {"STM32F407",
     "F4 with one bank, 1 MB flash",
     0x10076413,
     &System,
     {{"flash", 0x08000000, 1024 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 128 * KB, SRAM, 0}},
     Make},
    {"STM32F413",
     "F4 with 15 protection bits, 1.5 MB flash",
     0x10006463,
     &System,
     {{"flash", 0x08000000, 1536 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 256 * KB, SRAM, 0}},
     Make},
    {"STM32F429",
     "F4 with two banks and PCROP, 2 MB flash",
     0x20036419,
     &System,
     {{"flash", 0x08000000, 2048 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 192 * KB, SRAM, 0}},
     Make},
    {"STM32F469",
     "F4 with two banks and PCROP, 2 MB flash",
     0x10006434,
     &System,
     {{"flash", 0x08000000, 2048 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 320 * KB, SRAM, 0}},
     Make},
    {"STM32F723",
     "F7 with PCROP, 512 KB flash",
     0x10006452,
     &System,
     {{"flash", 0x08000000, 512 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 256 * KB, SRAM, 0}},
     Make},
    {"STM32F746",
     "F7, 1 MB flash",
     0x10016449,
     &System,
     {{"flash", 0x08000000, 1024 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 320 * KB, SRAM, 0}},
     Make},
    {"STM32F767",
     "F7, 2 MB flash",
     0x10016451,
     &System,
     {{"flash", 0x08000000, 2048 * KB, MAIN_FLASH, 0xFFFFFFFF},
      {"backup_sram", 0x40024000, 4 * KB, BACKUP, 0},
      {"sram", 0x20000000, 512 * KB, SRAM, 0}},
     Make},
};

}  // namespace sim
