// Flash controller of STM32F2, F4 and F7: option bytes are written as whole registers (OPTCR and,
// where they exist, OPTCR1 and OPTCR2) and take effect when OPTSTRT is set.
// Reference manuals RM0033 (F2), RM0090 (F4), RM0385, RM0410 and RM0431 (F7).

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

enum { ACR, KEYR, OPTKEYR, SR, CR, OPTCR, OPTCR1, OPTCR2 };

const uint32_t SR_EOP = 1u << 0, SR_WRPERR = 1u << 4, SR_PGPERR = 1u << 6, SR_PGSERR = 1u << 7,
               SR_RDERR = 1u << 8, SR_BSY = 1u << 16;
const uint32_t CR_PG = 1u << 0, CR_SER = 1u << 1, CR_MER = 1u << 2, CR_MER1 = 1u << 15,
               CR_STRT = 1u << 16, CR_EOPIE = 1u << 24, CR_LOCK = 1u << 31;
const uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTRT = 1u << 1, OPTCR_RDP = 0xFF00,
               OPTCR_SPRMOD = 1u << 31;
const uint32_t OPTCR_WDG_SW = 1u << 5;  // the independent watchdog's; F7 calls it IWDG_SW
const uint32_t OPTCR2_PCROP = 0xFF, OPTCR2_PCROP_RDP = 1u << 31;

#define COMMON_REGISTERS                                                                         \
  {"FLASH_ACR", 0x40023C00, 0, 0x00001F0F, 0, 0, "LATENCY 3:0, PRFTEN 8, ICEN 9, DCEN 10"},      \
      {"FLASH_KEYR", 0x40023C04, 0, 0, 0, 0, ""}, {"FLASH_OPTKEYR", 0x40023C08, 0, 0, 0, 0, ""}, \
      {"FLASH_SR",                                                                               \
       0x40023C0C,                                                                               \
       0,                                                                                        \
       0,                                                                                        \
       0x000001F3,                                                                               \
       0,                                                                                        \
       "EOP 0, OPERR 1, WRPERR 4, PGAERR 5, PGPERR 6, PGSERR 7, RDERR 8, BSY 16"},               \
  {                                                                                              \
    "FLASH_CR", 0x40023C10, 0x80000000, 0x030083FF, 0, CR_LOCK,                                  \
        "PG 0, SER 1, MER 2, SNB 7:3, PSIZE 9:8, MER1 15, STRT 16, EOPIE 24, ERRIE 25, LOCK 31"  \
  }

const REGISTER aRegistersOneBank[] = {
    COMMON_REGISTERS,
    {"FLASH_OPTCR", 0x40023C14, 0, 0, 0, 0,
     "OPTLOCK 0, OPTSTRT 1, BOR_LEV 3:2, WDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, "
     "nWRP 27:16"},
};

const REGISTER aRegistersTwoBanks[] = {
    COMMON_REGISTERS,
    {"FLASH_OPTCR", 0x40023C14, 0, 0, 0, 0,
     "OPTLOCK 0, OPTSTRT 1, BOR_LEV 3:2, BFB2 4, WDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, "
     "nWRP 27:16, DB1M 30, SPRMOD 31"},
    {"FLASH_OPTCR1", 0x40023C18, 0, 0, 0, 0, "nWRP12 27:16"},
};

// F7 names two watchdog bits and has boot addresses instead of a second bank's protection.
#define F7_OPTCR_FIELDS                                                                  \
  "BOR_LEV 3:2, WWDG_SW 4, IWDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, nWRP 23:16, " \
  "IWDG_STDBY 30, IWDG_STOP 31"
#define F76_OPTCR_FIELDS                                                                 \
  "BOR_LEV 3:2, WWDG_SW 4, IWDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, nWRP 27:16, " \
  "nDBOOT 28, nDBANK 29, IWDG_STDBY 30, IWDG_STOP 31"
#define F413_OPTCR_FIELDS \
  "BOR_LEV 3:2, WDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, nWRP 30:16, SPRMOD 31"

const char* const BOOT_FIELDS  = "BOOT_ADD0 15:0, BOOT_ADD1 31:16";
const char* const PCROP_FIELDS = "PCROP 7:0, PCROP_RDP 31";

const REGISTER aRegistersF72[] = {
    COMMON_REGISTERS,
    {"FLASH_OPTCR", 0x40023C14, 0, 0, 0, 0, "OPTLOCK 0, OPTSTRT 1, " F7_OPTCR_FIELDS},
    {"FLASH_OPTCR1", 0x40023C18, 0, 0, 0, 0, BOOT_FIELDS},
    {"FLASH_OPTCR2", 0x40023C1C, 0, 0, 0, 0, PCROP_FIELDS},
};

const REGISTER aRegistersF74[] = {
    COMMON_REGISTERS,
    {"FLASH_OPTCR", 0x40023C14, 0, 0, 0, 0, "OPTLOCK 0, OPTSTRT 1, " F7_OPTCR_FIELDS},
    {"FLASH_OPTCR1", 0x40023C18, 0, 0, 0, 0, BOOT_FIELDS},
};

const REGISTER aRegistersF76[] = {
    COMMON_REGISTERS,
    {"FLASH_OPTCR", 0x40023C14, 0, 0, 0, 0, "OPTLOCK 0, OPTSTRT 1, " F76_OPTCR_FIELDS},
    {"FLASH_OPTCR1", 0x40023C18, 0, 0, 0, 0, BOOT_FIELDS},
};

const REGISTER aRegistersF413[] = {
    COMMON_REGISTERS,
    {"FLASH_OPTCR", 0x40023C14, 0, 0, 0, 0, "OPTLOCK 0, OPTSTRT 1, " F413_OPTCR_FIELDS},
};

// -- Devices' own --------------------------------------------------------------------------------

// Where a device's write protection bits are: NumSectors0 in OPTCR from bit 16, the rest in OPTCR1.
struct F4_ROW {
  const char*               sDevice;
  std::span<const REGISTER> Registers;
  const char*               sFields;       // of the stored OPTCR
  uint32_t                  OptcrMask;     // option bits that exist
  uint32_t                  OptcrFactory;  // with the bits that do not exist as they read
  uint32_t                  Optcr1Mask    = 0;
  uint32_t                  Optcr1Factory = 0;
  const char*               sFields1      = "";
  uint32_t                  Optcr2Mask    = 0;
  uint32_t                  Optcr2Factory = 0;
  uint32_t                  NumSectors0   = 0;
  uint32_t                  NumSectors1   = 0;
  uint32_t                  UserMask      = 0;  // the bits of OPTCR that are user options
  bool                      HasSprmod     = false;
  bool                      HasBigSectors = false;  // twice the usual size
};

const char* const FIELDS_ONE_BANK =
    "BOR_LEV 3:2, WDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, nWRP 27:16";
const char* const FIELDS_TWO_BANKS =
    "BOR_LEV 3:2, BFB2 4, WDG_SW 5, nRST_STOP 6, nRST_STDBY 7, RDP 15:8, nWRP 27:16, DB1M 30, "
    "SPRMOD 31";

const F4_ROW aRows[] = {
    {.sDevice      = "STM32F207",
     .Registers    = aRegistersOneBank,
     .sFields      = FIELDS_ONE_BANK,
     .OptcrMask    = 0x0FFFFFEC,
     .OptcrFactory = 0x0FFFAAED,
     .NumSectors0  = 12,
     .UserMask     = 0x000000EC},
    {.sDevice      = "STM32F407",
     .Registers    = aRegistersOneBank,
     .sFields      = FIELDS_ONE_BANK,
     .OptcrMask    = 0x0FFFFFEC,
     .OptcrFactory = 0x0FFFAAED,
     .NumSectors0  = 12,
     .UserMask     = 0x000000EC},
    // Fifteen protection bits, the last one for two sectors.
    {.sDevice      = "STM32F413",
     .Registers    = aRegistersF413,
     .sFields      = F413_OPTCR_FIELDS,
     .OptcrMask    = 0xFFFFFFEC,
     .OptcrFactory = 0x7FFFAAED,
     .NumSectors0  = 15,
     .UserMask     = 0x000000EC,
     .HasSprmod    = true},
    {.sDevice       = "STM32F429",
     .Registers     = aRegistersTwoBanks,
     .sFields       = FIELDS_TWO_BANKS,
     .OptcrMask     = 0xCFFFFFFC,
     .OptcrFactory  = 0x0FFFAAED,
     .Optcr1Mask    = 0x0FFF0000,
     .Optcr1Factory = 0x0FFF0000,
     .sFields1      = "nWRP12 27:16",
     .NumSectors0   = 12,
     .NumSectors1   = 12,
     .UserMask      = 0x400000FC,
     .HasSprmod     = true},
    {.sDevice       = "STM32F469",
     .Registers     = aRegistersTwoBanks,
     .sFields       = FIELDS_TWO_BANKS,
     .OptcrMask     = 0xCFFFFFFC,
     .OptcrFactory  = 0x0FFFAAED,
     .Optcr1Mask    = 0x0FFF0000,
     .Optcr1Factory = 0x0FFF0000,
     .sFields1      = "nWRP12 27:16",
     .NumSectors0   = 12,
     .NumSectors1   = 12,
     .UserMask      = 0x400000FC,
     .HasSprmod     = true},
    {.sDevice       = "STM32F723",
     .Registers     = aRegistersF72,
     .sFields       = F7_OPTCR_FIELDS,
     .OptcrMask     = 0xC0FFFFFC,
     .OptcrFactory  = 0xC0FFAAFD,
     .Optcr1Mask    = 0xFFFFFFFF,
     .Optcr1Factory = 0x00400080,
     .sFields1      = BOOT_FIELDS,
     .Optcr2Mask    = 0x800000FF,
     .Optcr2Factory = 0x80000000,
     .NumSectors0   = 8,
     .UserMask      = 0xC00000FC},
    {.sDevice       = "STM32F746",
     .Registers     = aRegistersF74,
     .sFields       = F7_OPTCR_FIELDS,
     .OptcrMask     = 0xC0FFFFFC,
     .OptcrFactory  = 0xC0FFAAFD,
     .Optcr1Mask    = 0xFFFFFFFF,
     .Optcr1Factory = 0x00400080,
     .sFields1      = BOOT_FIELDS,
     .NumSectors0   = 8,
     .UserMask      = 0xC00000FC,
     .HasBigSectors = true},
    {.sDevice       = "STM32F767",
     .Registers     = aRegistersF76,
     .sFields       = F76_OPTCR_FIELDS,
     .OptcrMask     = 0xFFFFFFFC,
     .OptcrFactory  = 0xFFFFAAFD,
     .Optcr1Mask    = 0xFFFFFFFF,
     .Optcr1Factory = 0x00400080,
     .sFields1      = BOOT_FIELDS,
     .NumSectors0   = 12,
     .UserMask      = 0xF00000FC,
     .HasBigSectors = true},
};

// Erase times by PSIZE: x8, x16, x32, x64.
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
  // OPTLOCK and OPTSTRT are of the register only.
  std::vector<OPTION_WORD> Words = {
      {"OPTCR", 0, Row.OptcrFactory & ~(OPTCR_OPTLOCK | OPTCR_OPTSTRT), Row.sFields}};
  if (Row.Optcr1Mask != 0) {
    Words.push_back({"OPTCR1", 0, Row.Optcr1Factory, Row.sFields1});
  }
  if (Row.Optcr2Mask != 0) {
    Words.push_back({"OPTCR2", 0, Row.Optcr2Factory, PCROP_FIELDS});
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
      case KEYR:
        if (!flash_.WriteKey(Value)) {
          return false;
        }
        if (flash_.IsOpen()) {
          registers_[CR] &= ~CR_LOCK;
        }
        return true;
      case OPTKEYR:
        if (!options_.WriteKey(Value)) {
          return owner_.Variant(F4_OPTKEY_BUS_ERROR) == 0;
        }
        if (options_.IsOpen()) {
          registers_[OPTCR] &= ~OPTCR_OPTLOCK;
        }
        return true;
      case CR:
        return owner_.StallUntilReady() && WriteControl(Value);
      case OPTCR:
      case OPTCR1:
      case OPTCR2:
        return owner_.StallUntilReady() && WriteOptions(Index, Value);
      default:
        registers_.Write(Index, Value);
        return true;
    }
  }

  // The option bytes' place in memory is not modelled; the registers hold all there is.
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
    if (Source.Row().Kind == SRAM) {
      return true;
    }
    if (Level() != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    if (Source.Row().Kind == MAIN_FLASH && IsExecuteOnly(SectorOf(Address))) {
      registers_[SR] |= SR_RDERR;
      *pValue = 0;
    }
    return true;
  }

  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    if (Level() != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    if ((registers_[CR] & (CR_PG | CR_LOCK)) != CR_PG) {
      registers_[SR] |= (registers_[CR] & CR_LOCK) != 0 ? 0 : SR_PGSERR;
      return true;
    }
    const uint32_t Psize = registers_[CR] >> 8 & 3;
    if (Size != 1u << Psize) {
      registers_[SR] |= SR_PGPERR;
      return true;
    }
    const uint32_t Sector = SectorOf(Address);
    if (IsProtected(Sector)) {
      registers_[SR] |= SR_WRPERR;
      return true;
    }
    const uint32_t Shift = 8 * (Address % 4);
    const uint32_t Mask  = Size == 4 ? ~0u : ((1u << (8 * Size)) - 1) << Shift;
    (void)Target;
    Start({{WORD_PROGRAM, owner_.Variant(TIMING_MAX) ? PROGRAM_MAX_US : PROGRAM_US, Address & ~3u,
            (Value << Shift & Mask) | ~Mask}});
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
    const uint32_t NumSectors = row_.NumSectors0 + row_.NumSectors1;
    if (Request.Secure || !Request.sMismatch.empty()) {
      *psError = Request.Secure ? "this device has no secure area"
                                : "this device shows no complements of its option bytes";
      return false;
    }
    const bool Pcrop = Request.PcropAll || !Request.Pcrop.empty();
    if (Pcrop && !row_.HasSprmod && row_.Optcr2Mask == 0) {
      *psError = "this device has no PCROP";
      return false;
    }
    if (Request.PcropRdp && row_.Optcr2Mask == 0) {
      *psError = "this device has no PCROP_RDP bit";
      return false;
    }
    if (Pcrop && row_.HasSprmod && (Request.WrpAll || !Request.Wrp.empty())) {
      *psError = "the sector bits are either write protection or PCROP, not both";
      return false;
    }
    if (!CheckSectors(Request.Wrp, NumSectors, psError) ||
        !CheckSectors(Request.Pcrop, NumSectors, psError)) {
      return false;
    }
    uint32_t Optcr = Stored(0);
    if (Request.User) {
      Optcr = (Optcr & ~row_.UserMask) | (*Request.User & row_.UserMask);
    }
    if (Request.Level || Request.Rdp) {
      const uint32_t aBytes[] = {0xAA, 0xBB, 0xCC};
      const uint32_t Rdp      = Request.Rdp ? *Request.Rdp & 0xFF : aBytes[*Request.Level];
      Optcr                   = (Optcr & ~OPTCR_RDP) | Rdp << 8;
    }
    // A sector's bit: 0 protects it, or with SPRMOD 1 makes it execute-only.
    const uint32_t Bits0 = ((1u << row_.NumSectors0) - 1) << 16;
    const uint32_t Bits1 = ((1u << row_.NumSectors1) - 1) << 16;
    const uint64_t Wrp   = SectorBits(Request.Wrp, Request.WrpAll);
    const uint64_t Exec  = SectorBits(Request.Pcrop, Request.PcropAll);
    const uint64_t Bits  = Pcrop && row_.HasSprmod ? Exec : ~Wrp;
    Optcr                = (Optcr & ~Bits0) | (static_cast<uint32_t>(Bits << 16) & Bits0);
    if (Pcrop && row_.HasSprmod) {
      Optcr |= OPTCR_SPRMOD;
    }
    Store(0, Optcr);
    if (row_.NumSectors1 != 0) {
      Store(1,
            (Stored(1) & ~Bits1) | (static_cast<uint32_t>(Bits >> row_.NumSectors0 << 16) & Bits1));
    }
    if (row_.Optcr2Mask != 0) {
      const uint32_t PcropRdp = Request.PcropRdp.value_or(1) != 0 ? OPTCR2_PCROP_RDP : 0;
      Store(2, (static_cast<uint32_t>(Exec) & OPTCR2_PCROP) | PcropRdp);
    }
    return true;
  }

 protected:
  void FinishPhase(const PHASE& Phase) override {
    Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
    switch (Phase.Kind) {
      case MASS_ERASE:
        if (Phase.Argument == UNPROTECT) {
          EraseForUnprotecting();
        } else {
          pFlash->Erase();
        }
        break;
      case PAGE_ERASE:
        pFlash->EraseRange(SectorBase(Phase.Argument), SectorBytes(Phase.Argument));
        break;
      case OPTION_ERASE:
        EraseOptions();
        return;  // programming follows
      case OPTION_PROGRAM:
        for (int i = 0; i < static_cast<int>(words_.size()); i++) {
          Store(i, toProgram_[i]);
        }
        registers_[OPTCR] &= ~OPTCR_OPTSTRT;
        Load();
        break;
      default:
        pFlash->WordAt(Phase.Argument) &= Phase.Value;
        break;
    }
    registers_[CR] &= ~CR_STRT;
    if ((registers_[CR] & CR_EOPIE) != 0) {
      registers_[SR] |= SR_EOP;
    }
  }

  void AbortPhase(const PHASE& Phase) override {
    Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
    switch (Phase.Kind) {
      case MASS_ERASE:
        // The options come behind the flash, so these are as they were.
        pFlash->EraseRange(pFlash->Row().Base, pFlash->Row().Bytes / 2);
        break;
      case PAGE_ERASE:
        FinishPhase(Phase);
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
  enum { PLAIN, UNPROTECT };

  static uint64_t SectorBits(const std::vector<uint32_t>& Sectors, bool All) {
    uint64_t Bits = All ? ~0ull : 0;
    for (const uint32_t Sector : Sectors) {
      Bits |= 1ull << Sector;
    }
    return Bits;
  }

  // The registers follow the stored options, with OPTLOCK as it is.
  void Load() {
    const uint32_t Lock = options_.IsOpen() ? 0 : OPTCR_OPTLOCK;
    registers_[OPTCR]   = Stored(0) | Lock;
    for (int i = 1; i < static_cast<int>(words_.size()); i++) {
      registers_[OPTCR + i] = Stored(i);
    }
  }

  uint32_t Mask(int Word) const {
    return Word == 0 ? row_.OptcrMask : Word == 1 ? row_.Optcr1Mask : row_.Optcr2Mask;
  }

  bool WriteOptions(int Index, uint32_t Value) {
    if ((registers_[OPTCR] & OPTCR_OPTLOCK) != 0) {
      return true;
    }
    const uint32_t Writable = Mask(Index - OPTCR);
    registers_[Index]       = (registers_[Index] & ~Writable) | (Value & Writable);
    if (Index != OPTCR) {
      return true;
    }
    if ((Value & OPTCR_OPTSTRT) != 0) {
      StartOptions();
    }
    if ((Value & OPTCR_OPTLOCK) != 0) {
      registers_[OPTCR] |= OPTCR_OPTLOCK;
      options_.Close();
    }
    return true;
  }

  void StartOptions() {
    for (int i = 0; i < static_cast<int>(words_.size()); i++) {
      toProgram_[i] = registers_[OPTCR + i] & ~(i == 0 ? OPTCR_OPTLOCK | OPTCR_OPTSTRT : 0);
    }
    const bool Unprotects = Level() == 1 && LevelOf(toProgram_[0]) == 0;
    if (!Unprotects && LiftsPcrop()) {
      registers_[SR] |= SR_WRPERR;
      owner_.Event("change refused: PCROP can be lifted from level 1 to level 0 only");
      return;
    }
    if (row_.Optcr2Mask != 0 && !(Unprotects && (Stored(2) & OPTCR2_PCROP_RDP) != 0)) {
      toProgram_[2] |= Stored(2);  // PCROP bits of F72x can be set and not cleared
    } else if (row_.Optcr2Mask != 0) {
      toProgram_[2] = row_.Optcr2Factory;
    }
    registers_[OPTCR] |= OPTCR_OPTSTRT;
    const bool         Max = owner_.Variant(TIMING_MAX) != 0;
    std::vector<PHASE> Phases;
    if (Unprotects) {
      const uint32_t Psize = registers_[CR] >> 8 & 3;
      Phases.push_back({MASS_ERASE, (Max ? aMassEraseMaxUs : aMassEraseUs)[Psize], UNPROTECT});
    }
    Phases.push_back({OPTION_ERASE, Max ? OPTION_ERASE_MAX_US : OPTION_ERASE_US});
    Phases.push_back({OPTION_PROGRAM, Max ? OPTION_PROGRAM_MAX_US : OPTION_PROGRAM_US});
    Start(Phases);
  }

  // SPRMOD going to 0, or a sector leaving PCROP while SPRMOD stays.
  bool LiftsPcrop() const {
    if (!row_.HasSprmod || (Stored(0) & OPTCR_SPRMOD) == 0) {
      return false;
    }
    if ((toProgram_[0] & OPTCR_SPRMOD) == 0) {
      return true;
    }
    const uint32_t Bits0 = ((1u << row_.NumSectors0) - 1) << 16;
    return (Stored(0) & ~toProgram_[0] & Bits0) != 0 ||
           (row_.NumSectors1 != 0 && (Stored(1) & ~toProgram_[1] & row_.Optcr1Mask) != 0);
  }

  void EraseOptions() {
    for (int i = 0; i < static_cast<int>(words_.size()); i++) {
      const uint32_t Factory   = i == 0   ? row_.OptcrFactory
                                 : i == 1 ? row_.Optcr1Factory
                                          : row_.Optcr2Factory;
      const uint32_t Registers = i == 0 ? OPTCR_OPTLOCK | OPTCR_OPTSTRT : 0;
      Store(i, (Mask(i) | (Factory & ~Mask(i))) & ~Registers);
    }
  }

  // Write protection does not stop this erase. PCROP sectors of F72x survive it unless PCROP_RDP.
  void EraseForUnprotecting() {
    Memory*        pFlash = owner_.FindMemory(MAIN_FLASH);
    const uint32_t Keep =
        row_.Optcr2Mask != 0 && (Stored(2) & OPTCR2_PCROP_RDP) == 0 ? Stored(2) & OPTCR2_PCROP : 0;
    if (Keep == 0) {
      pFlash->Erase();
    } else {
      for (uint32_t Sector = 0; Sector < row_.NumSectors0; Sector++) {
        if ((Keep & (1u << Sector)) == 0) {
          pFlash->EraseRange(SectorBase(Sector), SectorBytes(Sector));
        }
      }
    }
    owner_.EraseKind(BACKUP);
  }

  bool WriteControl(uint32_t Value) {
    if ((registers_[CR] & CR_LOCK) != 0) {
      return true;
    }
    registers_.Write(CR, Value);
    if ((Value & CR_LOCK) != 0) {
      flash_.Close();
    }
    if ((Value & CR_STRT) != 0) {
      StartErase();
    }
    return true;
  }

  void StartErase() {
    const uint32_t Control = registers_[CR];
    const bool     Max     = owner_.Variant(TIMING_MAX) != 0;
    if (Level() != 0) {
      registers_[SR] |= SR_WRPERR;
    } else if ((Control & (CR_MER | CR_MER1)) != 0) {
      for (uint32_t Sector = 0; Sector < row_.NumSectors0 + row_.NumSectors1; Sector++) {
        if (IsProtected(Sector)) {
          registers_[SR] |= SR_WRPERR;
          return;
        }
      }
      registers_[CR] |= CR_STRT;
      Start({{MASS_ERASE, (Max ? aMassEraseMaxUs : aMassEraseUs)[Control >> 8 & 3], PLAIN}});
    } else if ((Control & CR_SER) != 0) {
      // Numbers of the second bank start at 16.
      const uint32_t Number = Control >> 3 & 31;
      const uint32_t Sector = Number >= 16 ? Number - 16 + row_.NumSectors0 : Number;
      if (Sector >= row_.NumSectors0 + row_.NumSectors1 || IsProtected(Sector)) {
        registers_[SR] |= SR_WRPERR;
        return;
      }
      registers_[CR] |= CR_STRT;
      Start({{PAGE_ERASE, Max ? SECTOR_ERASE_MAX_US : SECTOR_ERASE_US, Sector}});
    }
  }

  // -- Sectors: four of 16 KB (32 KB on F74x to F77x), one of 64, the rest of 128 KB, per bank.

  uint32_t SmallBytes() const { return row_.HasBigSectors ? 32 * KB : 16 * KB; }

  uint32_t SectorBytes(uint32_t Sector) const {
    const uint32_t InBank = Sector % row_.NumSectors0;
    return (InBank < 4 ? 1 : InBank == 4 ? 4 : 8) * SmallBytes();
  }

  uint32_t SectorBase(uint32_t Sector) const {
    const Memory*  pFlash = owner_.FindMemory(MAIN_FLASH);
    const uint32_t Bank   = Sector / row_.NumSectors0;
    uint32_t       Base   = pFlash->Row().Base + Bank * (pFlash->Row().Bytes / 2);
    for (uint32_t i = Bank * row_.NumSectors0; i < Sector; i++) {
      Base += SectorBytes(i);
    }
    return Base;
  }

  uint32_t SectorOf(uint32_t Address) const {
    uint32_t Sector = 0;
    while (Sector + 1 < row_.NumSectors0 + row_.NumSectors1 && Address >= SectorBase(Sector + 1)) {
      Sector++;
    }
    return Sector;
  }

  uint32_t SectorBit(uint32_t Sector) const {
    const bool     Second = Sector >= row_.NumSectors0;
    const uint32_t Word   = Second ? Stored(1) : Stored(0);
    return Word >> (16 + (Second ? Sector - row_.NumSectors0 : Sector)) & 1;
  }

  bool IsExecuteOnly(uint32_t Sector) const {
    if (row_.Optcr2Mask != 0) {
      return (Stored(2) & OPTCR2_PCROP & (1u << Sector)) != 0;
    }
    return row_.HasSprmod && (Stored(0) & OPTCR_SPRMOD) != 0 && SectorBit(Sector) == 1;
  }

  bool IsProtected(uint32_t Sector) const {
    if (IsExecuteOnly(Sector)) {
      return true;
    }
    const bool Sprmod = row_.HasSprmod && (Stored(0) & OPTCR_SPRMOD) != 0;
    return !Sprmod && SectorBit(Sector) == 0;
  }

  const F4_ROW& row_;
  KeyLock       flash_, options_;
  uint32_t      loaded_       = 0;  // OPTCR as of the last reset
  uint32_t      toProgram_[3] = {};
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
