// Flash controller of STM32L0 and L1: option bytes are words in the manner of data EEPROM, value in
// the low half and complement, which software has to form, in the high half. A word is erased and
// programmed by writing it. Reference manuals RM0367 (L0) and RM0038 (L1).

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

enum { ACR, PECR, PDKEYR, PEKEYR, PRGKEYR, OPTKEYR, SR, OPTR, WRPROT1, WRPROT2, WRPROT3, WRPROT4 };

const uint32_t PECR_PELOCK = 1u << 0, PECR_PRGLOCK = 1u << 1, PECR_OPTLOCK = 1u << 2,
               PECR_PROG = 1u << 3, PECR_DATA = 1u << 4, PECR_FIX = 1u << 8, PECR_ERASE = 1u << 9,
               PECR_OBL_LAUNCH = 1u << 18;
const uint32_t SR_BSY = 1u << 0, SR_EOP = 1u << 1, SR_ENDHV = 1u << 2, SR_READY = 1u << 3,
               SR_WRPERR = 1u << 8, SR_SIZERR = 1u << 10, SR_OPTVERR = 1u << 11,
               SR_RDERR = 1u << 13, SR_NOTZEROERR = 1u << 16;
const uint32_t OPTR_WPRMOD = 1u << 8, OPTR_WDG_SW = 1u << 20;

#define LOCK_FIELDS "PELOCK 0, PRGLOCK 1, OPTLOCK 2, PROG 3, DATA 4, FIX 8, ERASE 9, FPRG 10"

#define KEY_REGISTERS(Base)                               \
  {"FLASH_PDKEYR", (Base) + 0x08, 0, 0, 0, 0, ""},        \
      {"FLASH_PEKEYR", (Base) + 0x0C, 0, 0, 0, 0, ""},    \
      {"FLASH_PRGKEYR", (Base) + 0x10, 0, 0, 0, 0, ""}, { \
    "FLASH_OPTKEYR", (Base) + 0x14, 0, 0, 0, 0, ""        \
  }

const REGISTER aRegistersL0[] = {
    {"FLASH_ACR", 0x40022000, 0, 0x0000007B, 0, 0, "LATENCY 0, PRFTEN 1, SLEEP_PD 3, RUN_PD 4"},
    {"FLASH_PECR", 0x40022004, 0x00000007, 0x00838718, 0, 0x00000007,
     LOCK_FIELDS ", PARALLELBANK 15, EOPIE 16, ERRIE 17, OBL_LAUNCH 18, NZDISABLE 23"},
    KEY_REGISTERS(0x40022000),
    {"FLASH_SR", 0x40022018, 0x00000004, 0, 0x00032F02, 0,
     "BSY 0, EOP 1, ENDHV 2, READY 3, WRPERR 8, PGAERR 9, SIZERR 10, OPTVERR 11, RDERR 13, "
     "NOTZEROERR 16, FWWERR 17"},
    {"FLASH_OPTR", 0x4002201C, 0, 0, 0, 0,
     "RDPROT 7:0, WPRMOD 8, BOR_LEV 19:16, WDG_SW 20, nRST_STOP 21, nRST_STDBY 22, BFB2 23, "
     "nBOOT1 31"},
    {"FLASH_WRPROT1", 0x40022020, 0, 0, 0, 0, "WRPROT 31:0"},
    {"FLASH_WRPROT2", 0x40022080, 0, 0, 0, 0, "WRPROT 15:0"},
};

const REGISTER aRegistersL1[] = {
    {"FLASH_ACR", 0x40023C00, 0, 0x0000001F, 0, 0, "LATENCY 0, PRFTEN 1, ACC64 2, SLEEP_PD 3"},
    {"FLASH_PECR", 0x40023C04, 0x00000007, 0x00038718, 0, 0x00000007,
     LOCK_FIELDS ", PARALLELBANK 15, EOPIE 16, ERRIE 17, OBL_LAUNCH 18"},
    KEY_REGISTERS(0x40023C00),
    {"FLASH_SR", 0x40023C18, 0x0000000C, 0, 0x00001F02, 0,
     "BSY 0, EOP 1, ENDHV 2, READY 3, WRPERR 8, PGAERR 9, SIZERR 10, OPTVERR 11, OPTVERRUSR 12"},
    {"FLASH_OBR", 0x40023C1C, 0, 0, 0, 0,
     "RDPRT 7:0, SPRMOD 8, BOR_LEV 19:16, WDG_SW 20, nRST_STOP 21, nRST_STDBY 22, nBFB2 23"},
    {"FLASH_WRPR1", 0x40023C20, 0, 0, 0, 0, "WRP 31:0"},
    {"FLASH_WRPR2", 0x40023C80, 0, 0, 0, 0, "WRP 31:0"},
    {"FLASH_WRPR3", 0x40023C84, 0, 0, 0, 0, "WRP 31:0"},
    {"FLASH_WRPR4", 0x40023C88, 0, 0, 0, 0, "WRP 31:0"},
};

// -- Devices' own --------------------------------------------------------------------------------

const uint32_t OPTION_BASE = 0x1FF80000;
enum { WORD_RDP, WORD_USER, WORD_WRP };

struct L0_ROW {
  const char*               sDevice;
  std::span<const REGISTER> Registers;
  bool                      IsL1;
  uint32_t                  User;  // as delivered
  const char*               sUserFields;
  uint32_t                  NumWrpWords;  // of 16 sectors each
  uint32_t                  NumSpare;     // words of the option page that mean nothing
  bool                      HasPcrop;
};

const char* const USER_L0 = "BOR_LEV 3:0, WDG_SW 4, nRST_STOP 5, nRST_STDBY 6, nBOOT1 15";
const char* const USER_L0_TWO_BANKS =
    "BOR_LEV 3:0, WDG_SW 4, nRST_STOP 5, nRST_STDBY 6, BFB2 7, nBOOT1 15";
const char* const USER_L1           = "BOR_LEV 3:0, WDG_SW 4, nRST_STOP 5, nRST_STDBY 6";
const char* const USER_L1_TWO_BANKS = "BOR_LEV 3:0, WDG_SW 4, nRST_STOP 5, nRST_STDBY 6, nBFB2 7";

const L0_ROW aRows[] = {
    {"STM32L053", aRegistersL0, false, 0x8070, USER_L0, 1, 2, true},
    {"STM32L073", aRegistersL0, false, 0x8070, USER_L0_TWO_BANKS, 3, 0, true},
    {"STM32L152", aRegistersL1, true, 0x0078, USER_L1, 2, 0, true},
    {"STM32L152xE", aRegistersL1, true, 0x00F8, USER_L1_TWO_BANKS, 8, 0, false},
};

const uint32_t SECTOR_BYTES     = 4096;
const uint32_t SECTORS_PER_WORD = 16;
const uint64_t WORD_PHASE_US = 3200, WORD_PHASE_MAX_US = 3940;
const uint64_t MASS_ERASE_US = 60000, MASS_ERASE_MAX_US = 100000;

const uint32_t PEKEY1 = 0x89ABCDEF, PEKEY2 = 0x02030405;
const uint32_t PRGKEY1 = 0x8C9DAEBF, PRGKEY2 = 0x13141516;
const uint32_t OPTKEY1 = 0xFBEAD9C8, OPTKEY2 = 0x24252627;

uint32_t Pair(uint32_t Value) {
  return (Value & 0xFFFF) | ~Value << 16;
}
bool Matches(uint32_t Word) {
  return ((Word ^ Word >> 16) & 0xFFFF) == 0xFFFF;
}

// The upper words of big devices lie apart.
uint32_t WrpAddress(uint32_t Index) {
  return OPTION_BASE + (Index < 6 ? 0x08 + 4 * Index : 0x80 + 4 * (Index - 6));
}

std::vector<OPTION_WORD> OptionWords(const L0_ROW& Row) {
  static const char* const aWrpNames[]   = {"OPTION_WRP01",   "OPTION_WRP23",  "OPTION_WRP45",
                                            "OPTION_WRP67",   "OPTION_WRP89",  "OPTION_WRP1011",
                                            "OPTION_WRP1213", "OPTION_WRP1415"};
  static const char* const aSpareNames[] = {"OPTION_SPARE0", "OPTION_SPARE1"};
  std::vector<OPTION_WORD> Words         = {
              {"OPTION_RDP", OPTION_BASE, 0xFF5500AA,
       !Row.HasPcrop ? "RDP 7:0"
               : Row.IsL1    ? "RDP 7:0, SPRMOD 8"
                             : "RDP 7:0, WPRMOD 8"},
              {"OPTION_USER", OPTION_BASE + 4, Pair(Row.User), Row.sUserFields},
  };
  for (uint32_t i = 0; i < Row.NumWrpWords; i++) {
    Words.push_back({aWrpNames[i], WrpAddress(i), 0xFFFF0000, "WRP 15:0"});
  }
  for (uint32_t i = 0; i < Row.NumSpare; i++) {
    Words.push_back({aSpareNames[i], WrpAddress(Row.NumWrpWords + i), 0x00000000, ""});
  }
  return Words;
}

class ControllerL0 : public Controller {
 public:
  ControllerL0(Device& Owner, const L0_ROW& Row)
      : Controller(Owner, Row.Registers, OptionWords(Row)),
        row_(Row),
        flash_(PEKEY1, PEKEY2),
        program_(PRGKEY1, PRGKEY2),
        options_(OPTKEY1, OPTKEY2) {
    State("keys", &flash_.State);
    State("program_keys", &program_.State);
    State("option_keys", &options_.State);
    State("level", &level_);
  }

  void OnPowerOn() override {
    ResetRegisters();
    Load();
  }

  // A plain reset does not load the option bytes; what is loaded stays in force.
  void OnSystemReset() override {
    std::vector<uint32_t> Loaded;
    for (int i = OPTR; i < registers_.Count(); i++) {
      Loaded.push_back(registers_[i]);
    }
    ResetRegisters();
    for (int i = OPTR; i < registers_.Count(); i++) {
      registers_[i] = Loaded[static_cast<size_t>(i - OPTR)];
    }
    if (launched_) {
      launched_ = false;
      Load();
    }
  }

  // -- Bus

  bool ReadRegister(int Index, uint32_t Size, uint32_t* pValue) override {
    (void)Size;
    *pValue = registers_[Index];
    if (Index == SR && Busy()) {
      *pValue = (*pValue | SR_BSY) & ~(SR_ENDHV | SR_READY);
    }
    return true;
  }

  bool WriteRegister(int Index, uint32_t Size, uint32_t Value) override {
    (void)Size;
    switch (Index) {
      case PEKEYR:
        return TakeKey(&flash_, Value, PECR, PECR_PELOCK);
      case PRGKEYR:
        return (registers_[PECR] & PECR_PELOCK) != 0 ||
               TakeKey(&program_, Value, PECR, PECR_PRGLOCK);
      case OPTKEYR:
        return (registers_[PECR] & PECR_PELOCK) != 0 ||
               TakeKey(&options_, Value, PECR, PECR_OPTLOCK);
      case PECR:
        return WriteControl(Value);
      default:
        registers_.Write(Index, Value);
        return true;
    }
  }

  bool InOptionArea(uint32_t Address) const override { return IndexOfWord(Address) >= 0; }

  bool ReadOptionArea(uint32_t Address, uint32_t* pWord) override {
    const int Index = IndexOfWord(Address);
    *pWord =
        IsSpare(Index) && owner_.Variant(L0_SPARE_WORDS_WRITABLE) == 0 ? 0xFFFFFFFF : Stored(Index);
    return true;
  }

  bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override {
    if (!owner_.StallUntilReady()) {
      return false;
    }
    const int Index = IndexOfWord(Address);
    if ((registers_[PECR] & (PECR_PELOCK | PECR_OPTLOCK)) != 0) {
      registers_[SR] |= SR_WRPERR;
    } else if (Size != 4) {
      registers_[SR] |= SR_SIZERR;
    } else if (IsSpare(Index) && owner_.Variant(L0_SPARE_WORDS_WRITABLE) == 0) {
      registers_[SR] |= SR_WRPERR;
    } else if (Index == WORD_RDP) {
      WriteProtectionWord(Value);
    } else if (Index >= WORD_WRP && PcropLoaded() && (LoadedSectors(Index) & ~Value) != 0) {
      registers_[SR] |= SR_WRPERR;
      owner_.Event("write refused: PCROP sectors can be added and not taken away");
    } else {
      Start({ProgramPhase(Address, Stored(Index), Value)});
    }
    return true;
  }

  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    if (level_ != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    const bool     IsFlash = Target.Row().Kind == MAIN_FLASH;
    const uint32_t Locks   = IsFlash ? PECR_PELOCK | PECR_PRGLOCK : PECR_PELOCK;
    const uint32_t Request = PECR_ERASE | (IsFlash ? PECR_PROG : PECR_DATA);
    const bool     Erases  = (registers_[PECR] & Request) == Request;  // whatever is written
    if ((registers_[PECR] & Locks) != 0 || (IsFlash && SectorBit(Address))) {
      registers_[SR] |= SR_WRPERR;
    } else if (Erases && !IsFlash) {
      Start({{WORD_PROGRAM, WordPhaseUs(), Address & ~3u, 0}});
    } else if (!IsFlash) {
      const uint32_t Old = Target.WordAt(Address);
      Start({ProgramPhase(Address, Old, Merge(Old, Address, Size, Value))});
    } else if (Size != 4) {
      registers_[SR] |= SR_SIZERR;
    } else if (Erases) {
      Start({{PAGE_ERASE, WordPhaseUs(), Address & ~(PageBytes() - 1)}});
    } else if (Target.WordAt(Address) != 0) {
      registers_[SR] |= row_.IsL1 ? SR_WRPERR : SR_NOTZEROERR;
    } else {
      Start({{WORD_PROGRAM, WordPhaseUs(), Address, Value}});
    }
    return true;
  }

  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) override {
    if (Source.Row().Kind == SRAM) {
      return true;
    }
    if (level_ != 0) {
      return false;
    }
    if (Source.Row().Kind == MAIN_FLASH && PcropLoaded() && SectorBit(Address)) {
      registers_[SR] |= row_.IsL1 ? 0 : SR_RDERR;
      *pValue = 0;
      return !row_.IsL1;
    }
    return true;
  }

  // -- Protection

  int Level() const override { return static_cast<int>(level_); }
  int StoredLevel() const override {
    return Matches(Stored(WORD_RDP)) ? LevelOf(Stored(WORD_RDP)) : 1;
  }
  bool WatchdogByHardware() const override { return (registers_[OPTR] & OPTR_WDG_SW) == 0; }

  uint32_t Effective(int Index) const override {
    const uint32_t Word = Stored(Index);
    if (Matches(Word) || IsSpare(Index)) {
      return Word;
    }
    const uint32_t Protected = row_.IsL1 ? 0x0000 : 0xFFFF;
    const uint32_t Pcrop     = row_.HasPcrop ? OPTR_WPRMOD : 0;
    return Index == WORD_RDP ? 0xBB | Pcrop : Index == WORD_USER ? row_.User : Protected;
  }

  std::string Remarks() const override {
    for (int i = 0; i < static_cast<int>(words_.size()); i++) {
      if (!IsSpare(i) && !Matches(Stored(i))) {
        return "a complement does not match; the default is loaded for it (OPTVERR)";
      }
    }
    return StoredLevel() != Level() ? "the stored protection level is not loaded yet" : "";
  }

  bool Configure(const CREATE_REQUEST& Request, std::string* psError) override {
    const uint32_t NumSectors = row_.NumWrpWords * SECTORS_PER_WORD;
    const bool     Pcrop      = Request.PcropAll || !Request.Pcrop.empty();
    if (Request.Secure || Request.PcropRdp) {
      *psError =
          Request.Secure ? "this device has no secure area" : "this device has no PCROP_RDP bit";
      return false;
    }
    if (Pcrop && !row_.HasPcrop) {
      *psError = "this device has no PCROP";
      return false;
    }
    if (Pcrop && (Request.WrpAll || !Request.Wrp.empty())) {
      *psError = "the sector bits are either write protection or PCROP, not both";
      return false;
    }
    if (!CheckSectors(Request.Wrp, NumSectors, psError) ||
        !CheckSectors(Request.Pcrop, NumSectors, psError)) {
      return false;
    }
    const uint32_t aBytes[] = {0xAA, 0xBB, 0xCC};
    const uint32_t Rdp      = Request.Rdp ? *Request.Rdp & 0xFF : aBytes[Request.Level.value_or(0)];
    Store(WORD_RDP,
          Pair(Rdp | (Pcrop ? OPTR_WPRMOD : 0)) ^ (Request.sMismatch == "rdp" ? 0x00010000u : 0));
    Store(WORD_USER,
          Pair(Request.User.value_or(row_.User)) ^ (Request.sMismatch == "user" ? 0x00010000u : 0));
    const std::vector<uint32_t>& Sectors = Pcrop ? Request.Pcrop : Request.Wrp;
    const bool                   All     = Pcrop ? Request.PcropAll : Request.WrpAll;
    std::vector<uint32_t>        Bits(row_.NumWrpWords, All ? 0xFFFF : 0);
    for (const uint32_t Sector : Sectors) {
      Bits[Sector / SECTORS_PER_WORD] |= 1u << Sector % SECTORS_PER_WORD;
    }
    for (uint32_t i = 0; i < row_.NumWrpWords; i++) {
      Store(static_cast<int>(WORD_WRP + i), Pair(Bits[i]));
    }
    return true;
  }

 protected:
  void FinishPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE) {
      owner_.EraseKind(MAIN_FLASH);
      owner_.EraseKind(EEPROM);
      // On L1 this takes the other option words along, on L0 it does not.
      for (int i = WORD_USER; i < static_cast<int>(words_.size()) && row_.IsL1; i++) {
        Store(i, 0);
      }
    } else if (Phase.Kind == PAGE_ERASE) {
      owner_.FindMemory(MAIN_FLASH)->EraseRange(Phase.Argument, PageBytes());
    } else {
      SetWord(Phase.Argument, Phase.Value);
    }
    registers_[SR] |= SR_EOP;
  }

  void AbortPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE) {
      Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
      pFlash->EraseRange(pFlash->Row().Base, pFlash->Row().Bytes / 2);
    } else if (Phase.Kind == PAGE_ERASE) {
      owner_.FindMemory(MAIN_FLASH)->EraseRange(Phase.Argument, PageBytes());
    } else {
      SetWord(Phase.Argument, 0);  // erased, and programming did not come to its end
    }
  }

 private:
  static int LevelOf(uint32_t Word) {
    const uint32_t Bytes = Word & 0x00FF00FF;
    return Bytes == 0x005500AA ? 0 : Bytes == 0x003300CC ? 2 : 1;
  }

  uint32_t PageBytes() const { return row_.IsL1 ? 256 : 128; }

  uint64_t WordPhaseUs() const {
    return owner_.Variant(TIMING_MAX) ? WORD_PHASE_MAX_US : WORD_PHASE_US;
  }

  bool IsSpare(int Index) const { return Index >= static_cast<int>(WORD_WRP + row_.NumWrpWords); }

  void ResetRegisters() {
    registers_.ResetAll();
    flash_.Reset();
    program_.Reset();
    options_.Reset();
  }

  bool WriteControl(uint32_t Value) {
    if (row_.IsL1 && Busy()) {
      return true;  // changes only while idle
    }
    if ((registers_[PECR] & PECR_PELOCK) != 0) {
      return true;
    }
    registers_.Write(PECR, Value);
    if ((Value & PECR_PELOCK) != 0) {
      registers_[PECR] |= PECR_PRGLOCK | PECR_OPTLOCK;
      flash_.Close();
    }
    if ((registers_[PECR] & PECR_PRGLOCK) != 0) {
      program_.Close();
    }
    if ((registers_[PECR] & PECR_OPTLOCK) != 0) {
      options_.Close();
    }
    if ((Value & PECR_OBL_LAUNCH) != 0) {
      launched_ = true;
      owner_.SystemReset(false, "OBL_LAUNCH");
      return owner_.Variant(OBL_TRANSFER_FAILS) == 0;
    }
    return true;
  }

  // Erase and program, in option words and EEPROM; unless FIX asks for it, the erase is left out
  // where there is nothing to erase.
  PHASE ProgramPhase(uint32_t Address, uint32_t Old, uint32_t Value) const {
    const bool Erase = Old != 0 || (registers_[PECR] & PECR_FIX) != 0;
    return {WORD_PROGRAM, (Erase ? 2 : 1) * WordPhaseUs(), Address, Value};
  }

  void WriteProtectionWord(uint32_t Value) {
    const bool MakesLevel0 = LevelOf(Value) == 0;
    const bool LiftsPcrop  = level_ == 0 && PcropLoaded() && (Value & OPTR_WPRMOD) == 0;
    if (LiftsPcrop && (MakesLevel0 || owner_.Variant(L0_L1_REFUSE_PCROP_CLEAR) != 0)) {
      registers_[SR] |= SR_WRPERR;
      owner_.Event("write refused: PCROP can be lifted from level 1 to level 0 only");
      return;
    }
    const bool         Erratum = row_.IsL1 && owner_.Variant(L1_ERRATUM_MASS_ERASE) != 0;
    std::vector<PHASE> Phases;
    if (MakesLevel0 && (level_ == 1 || Erratum)) {
      Phases.push_back(
          {MASS_ERASE, owner_.Variant(TIMING_MAX) ? MASS_ERASE_MAX_US : MASS_ERASE_US});
      // This erase takes the flag with it, whatever is written.
      Value = row_.HasPcrop ? (Value & ~OPTR_WPRMOD) | OPTR_WPRMOD << 16 : Value;
    }
    Phases.push_back(ProgramPhase(OPTION_BASE, Stored(WORD_RDP), Value));
    Start(Phases);
  }

  void SetWord(uint32_t Address, uint32_t Value) {
    const int Index = IndexOfWord(Address);
    if (Index >= 0) {
      Store(Index, Value);
      return;
    }
    for (Memory& Each : owner_.Memories()) {
      if (Each.Contains(Address)) {
        Each.WordAt(Address) = Value;
      }
    }
  }

  void Load() {
    bool Mismatch = false;
    for (int i = 0; i < static_cast<int>(words_.size()); i++) {
      Mismatch = Mismatch || (!IsSpare(i) && !Matches(Stored(i)));
    }
    const uint32_t Rdp = Effective(WORD_RDP);
    level_             = static_cast<uint32_t>(StoredLevel());
    registers_[OPTR]   = (Rdp & (row_.HasPcrop ? 0x1FFu : 0xFFu)) | Effective(WORD_USER) << 16;
    for (uint32_t i = 0; i < row_.NumWrpWords; i++) {
      uint32_t&      Register = registers_[static_cast<int>(WRPROT1 + i / 2)];
      const uint32_t Half     = Effective(static_cast<int>(WORD_WRP + i)) & 0xFFFF;
      Register                = i % 2 == 0 ? Half : (Register & 0xFFFF) | Half << 16;
    }
    registers_[SR] |= Mismatch ? SR_OPTVERR : 0;
  }

  bool PcropLoaded() const { return row_.HasPcrop && (registers_[OPTR] & OPTR_WPRMOD) != 0; }

  // What is loaded of a word of sector bits.
  uint32_t LoadedSectors(int Index) const {
    const int Half = Index - WORD_WRP;
    return IsSpare(Index) ? 0 : registers_[WRPROT1 + Half / 2] >> 16 * (Half % 2) & 0xFFFF;
  }

  // Whether the sector is write-protected or, where PCROP is loaded, execute-only.
  bool SectorBit(uint32_t Address) const {
    const uint32_t Sector = (Address - 0x08000000) / SECTOR_BYTES;
    const uint32_t Word   = Sector / 32;
    return static_cast<int>(WRPROT1 + Word) < registers_.Count() &&
           (registers_[static_cast<int>(WRPROT1 + Word)] >> Sector % 32 & 1) != 0;
  }

  const L0_ROW& row_;
  KeyLock       flash_, program_, options_;
  uint32_t      level_    = 0;
  bool          launched_ = false;
};

// -- Devices -------------------------------------------------------------------------------------

const REGISTER aSystemL0[] = {
    {"DBGMCU_IDCODE", 0x40015800, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0x40015804, 0, 0x00000007, 0, 0, "DBG_SLEEP 0, DBG_STOP 1, DBG_STANDBY 2"},
    {"DBGMCU_APB1_FZ", 0x40015808, 0, 0x80601C11, 0, 0, "DBG_WWDG_STOP 11, DBG_IWDG_STOP 12"},
    {"RCC_APB2ENR", 0x40021034, 0, 0x004052A5, 0, 0, "SYSCFGEN 0, DBGEN 22"},
};

const REGISTER aSystemL1[] = {
    {"DBGMCU_IDCODE", 0xE0042000, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0xE0042004, 0, 0x000000E7, 0, 0, "DBG_SLEEP 0, DBG_STOP 1, DBG_STANDBY 2"},
    {"DBGMCU_APB1_FZ", 0xE0042008, 0, 0x00601C3F, 0, 0, "DBG_WWDG_STOP 11, DBG_IWDG_STOP 12"},
};

const SYSTEM_BLOCK SystemL0 = {aSystemL0, 0x40015800, 0x40015800, 0x400158FF, 0x40015808,
                               12,        0x40021034, 22,         0,          443000};
const SYSTEM_BLOCK SystemL1 = {aSystemL1, 0xE0042000, 0xE0042000, 0xE00420FF, 0xE0042008,
                               12,        0,          0,          0,          443000};

std::unique_ptr<Controller> Make(Device& Owner, const DEVICE_ROW& Device) {
  return std::make_unique<ControllerL0>(Owner, RowNamed(aRows, Device.sName));
}

const uint32_t KB = 1024;

}  // namespace

// Erased flash and EEPROM of these families read as zeros.
const DEVICE_ROW aDevicesL0[NUM_DEVICES_L0] = {
    {"STM32L053",
     "L0 category 3, 64 KB flash",
     0x10386417,
     &SystemL0,
     {{"flash", 0x08000000, 64 * KB, MAIN_FLASH, 0},
      {"eeprom", 0x08080000, 2 * KB, EEPROM, 0},
      {"sram", 0x20000000, 8 * KB, SRAM, 0}},
     Make},
    {"STM32L073",
     "L0 category 5, 192 KB flash",
     0x20086447,
     &SystemL0,
     {{"flash", 0x08000000, 192 * KB, MAIN_FLASH, 0},
      {"eeprom", 0x08080000, 6 * KB, EEPROM, 0},
      {"sram", 0x20000000, 20 * KB, SRAM, 0}},
     Make},
    {"STM32L152",
     "L1 category 2, 128 KB flash",
     0x10186429,
     &SystemL1,
     {{"flash", 0x08000000, 128 * KB, MAIN_FLASH, 0},
      {"eeprom", 0x08080000, 4 * KB, EEPROM, 0},
      {"sram", 0x20000000, 16 * KB, SRAM, 0}},
     Make},
    {"STM32L152xE",
     "L1 category 5 with two banks, 512 KB flash",
     0x10006437,
     &SystemL1,
     {{"flash", 0x08000000, 512 * KB, MAIN_FLASH, 0},
      {"eeprom", 0x08080000, 16 * KB, EEPROM, 0},
      {"sram", 0x20000000, 80 * KB, SRAM, 0}},
     Make},
};

}  // namespace sim
