// Flash controller of STM32F0, F1 and F3: half-word programming, option bytes stored with their
// complements in a block of 16 bytes at 0x1FFFF800, loaded into OBR and WRPR.
// Reference manuals RM0091 (F0), PM0075 and RM0008 (F1), RM0316 (F3).

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

enum { ACR, KEYR, OPTKEYR, SR, CR, AR, OBR, WRPR };

const uint32_t SR_BSY = 1u << 0, SR_PGERR = 1u << 2, SR_WRPRTERR = 1u << 4, SR_EOP = 1u << 5;
const uint32_t CR_PG = 1u << 0, CR_PER = 1u << 1, CR_MER = 1u << 2, CR_OPTPG = 1u << 4,
               CR_OPTER = 1u << 5, CR_STRT = 1u << 6, CR_LOCK = 1u << 7, CR_OPTWRE = 1u << 9,
               CR_OBL_LAUNCH = 1u << 13;
const uint32_t RCC_CR_HSION  = 1u << 0;
const uint32_t OBR_OPTERR = 1u << 0, OBR_RDPRT_F1 = 1u << 1, OBR_LEVEL1 = 1u << 1,
               OBR_LEVEL2 = 3u << 1, OBR_WDG_SW_F1 = 1u << 2, OBR_WDG_SW = 1u << 8;

#define CR_FIELDS \
  "PG 0, PER 1, MER 2, OPTPG 4, OPTER 5, STRT 6, LOCK 7, OPTWRE 9, ERRIE 10, EOPIE 12"

// What the families have in common. Of PRFTBE and PRFTBS only the former takes a write.
constexpr REGISTER AcrRow = {
    "FLASH_ACR", 0x40022000, 0x00000030, 0x00000017, 0, 0, "LATENCY 2:0, PRFTBE 4, PRFTBS 5"};
constexpr REGISTER KeyrRow    = {"FLASH_KEYR", 0x40022004, 0, 0, 0, 0, ""};
constexpr REGISTER OptkeyrRow = {"FLASH_OPTKEYR", 0x40022008, 0, 0, 0, 0, ""};
constexpr REGISTER SrRow      = {"FLASH_SR",
                                 0x4002200C,
                                 0,
                                 0,
                                 SR_PGERR | SR_WRPRTERR | SR_EOP,
                                 0,
                                 "BSY 0, PGERR 2, WRPRTERR 4, EOP 5"};
constexpr REGISTER ArRow      = {"FLASH_AR", 0x40022014, 0, 0xFFFFFFFF, 0, 0, ""};
constexpr REGISTER WrprRow    = {"FLASH_WRPR", 0x40022020, 0xFFFFFFFF, 0, 0, 0, "WRP 31:0"};

// Of CR software can set LOCK and not clear it, clear OPTWRE and not set it (handled apart, as is
// STRT), and write the others.
const REGISTER aRegistersF1[] = {
    AcrRow,
    KeyrRow,
    OptkeyrRow,
    SrRow,
    {"FLASH_CR", 0x40022010, 0x00000080, 0x00001437, 0, CR_LOCK, CR_FIELDS},
    ArRow,
    {"FLASH_OBR", 0x4002201C, 0, 0, 0, 0,
     "OPTERR 0, RDPRT 1, WDG_SW 2, nRST_STOP 3, nRST_STDBY 4, DATA0 17:10, DATA1 25:18"},
    WrprRow,
};

const REGISTER aRegistersF0F3[] = {
    AcrRow,
    KeyrRow,
    OptkeyrRow,
    SrRow,
    {"FLASH_CR", 0x40022010, 0x00000080, 0x00001437, 0, CR_LOCK, CR_FIELDS ", OBL_LAUNCH 13"},
    ArRow,
    {"FLASH_OBR", 0x4002201C, 0, 0, 0, 0,
     "OPTERR 0, RDPRT 2:1, WDG_SW 8, nRST_STOP 9, nRST_STDBY 10, nBOOT1 12, VDDA_MONITOR 13, "
     "RAM_PARITY_CHECK 14, DATA0 23:16, DATA1 31:24"},
    WrprRow,
};

// -- Option block --------------------------------------------------------------------------------

const uint32_t OPTION_BASE = 0x1FFFF800, OPTION_BYTES = 16;
enum { WORD_RDP_USER, WORD_DATA, WORD_WRP01, WORD_WRP23 };

const char* const USER_FIELDS_F1 = "RDP 7:0, WDG_SW 16, nRST_STOP 17, nRST_STDBY 18";
const char* const USER_FIELDS_F0F3 =
    "RDP 7:0, WDG_SW 16, nRST_STOP 17, nRST_STDBY 18, nBOOT1 20, VDDA_MONITOR 21, "
    "RAM_PARITY_CHECK 22";

enum LOADING { LOAD_ON_RESET, LOAD_ON_OBL, LOAD_ON_BOTH };

struct F1_ROW {
  const char*               sDevice;
  std::span<const REGISTER> Registers;
  const char*               sUserFields;
  uint32_t                  FactoryRdpWord;
  uint32_t                  RdpOff;  // this value of the RDP byte, and no other, is level 0
  bool                      HasLevel2;
  bool                      WordAccessOnly;  // registers fault on bytes and half-words
  LOADING                   Loading;
  uint32_t                  NumWrpBits;
  uint32_t                  PageBytes;
};

const F1_ROW aRows[] = {
    {"STM32F051", aRegistersF0F3, USER_FIELDS_F0F3, 0x00FF55AA, 0xAA, true, true, LOAD_ON_OBL, 16,
     1024},
    {"STM32F103", aRegistersF1, USER_FIELDS_F1, 0x00FF5AA5, 0xA5, false, false, LOAD_ON_RESET, 32,
     1024},
    {"STM32F303", aRegistersF0F3, USER_FIELDS_F0F3, 0x00FF55AA, 0xAA, true, true, LOAD_ON_BOTH, 32,
     2048},
};

// What a bit of WRPR protects; the last one also protects all that lies behind.
const uint32_t WRP_BIT_BYTES = 4096;

const uint64_t PROGRAM_US = 53, PROGRAM_MAX_US = 70;
const uint64_t ERASE_US = 20000, ERASE_MAX_US = 40000;

const uint32_t KEY1 = 0x45670123, KEY2 = 0xCDEF89AB;

std::vector<OPTION_WORD> OptionWords(const F1_ROW& Row) {
  std::vector<OPTION_WORD> Words = {
      {"OPTION_RDP_USER", OPTION_BASE, Row.FactoryRdpWord, Row.sUserFields},
      {"OPTION_DATA", OPTION_BASE + 4, 0x00FF00FF, "DATA0 7:0, DATA1 23:16"},
      {"OPTION_WRP01", OPTION_BASE + 8, 0x00FF00FF, "WRP0 7:0, WRP1 23:16"},
  };
  // Where there are no sectors for them, these bytes mean nothing and are delivered erased.
  if (Row.NumWrpBits > 16) {
    Words.push_back({"OPTION_WRP23", OPTION_BASE + 12, 0x00FF00FF, "WRP2 7:0, WRP3 23:16"});
  } else {
    Words.push_back({"OPTION_SPARE", OPTION_BASE + 12, 0xFFFFFFFF, ""});
  }
  return Words;
}

class ControllerF1 : public Controller {
 public:
  ControllerF1(Device& Owner, const F1_ROW& Row)
      : Controller(Owner, Row.Registers, OptionWords(Row)),
        row_(Row),
        flash_(KEY1, KEY2),
        options_(KEY1, KEY2) {
    State("keys", &flash_.State);
    State("option_keys", &options_.State);
    State("level", &level_);
    State("unreadable_until_power_on", &unreadable_);
  }

  void OnPowerOn() override {
    unreadable_ = 0;
    ResetRegisters();
    Load();
  }

  void OnSystemReset() override {
    const uint32_t Obr  = registers_[OBR];
    const uint32_t Wrpr = registers_[WRPR];
    ResetRegisters();
    const bool Reload = row_.Loading == LOAD_ON_RESET ||
                        (row_.Loading == LOAD_ON_BOTH && owner_.Variant(F3_LOAD_ON_RESET) != 0);
    if (Reload || launched_) {
      Load();
    } else {
      registers_[OBR]  = Obr;
      registers_[WRPR] = Wrpr;
    }
    launched_ = false;
  }

  // -- Bus

  bool ReadRegister(int Index, uint32_t Size, uint32_t* pValue) override {
    if (row_.WordAccessOnly && Size != 4) {
      return false;
    }
    *pValue = registers_[Index] | (Index == SR && Busy() ? SR_BSY : 0);
    return true;
  }

  bool WriteRegister(int Index, uint32_t Size, uint32_t Value) override {
    if (row_.WordAccessOnly && Size != 4) {
      return false;
    }
    if (Busy()) {
      return true;  // no register takes a write while an operation runs
    }
    switch (Index) {
      case KEYR:
        return TakeKey(&flash_, Value, CR, CR_LOCK);
      case OPTKEYR:
        if ((registers_[CR] & CR_LOCK) != 0) {
          return true;  // counts only behind an open LOCK
        }
        if (!options_.WriteKey(Value)) {
          return false;
        }
        if (options_.IsOpen()) {
          registers_[CR] |= CR_OPTWRE;
        }
        return true;
      case CR:
        return WriteControl(Value);
      default:
        registers_.Write(Index, Value);
        return true;
    }
  }

  bool InOptionArea(uint32_t Address) const override {
    return Address - OPTION_BASE < OPTION_BYTES;
  }

  // Readable at every level.
  bool ReadOptionArea(uint32_t Address, uint32_t* pWord) override {
    *pWord = Stored(static_cast<int>((Address - OPTION_BASE) / 4));
    return true;
  }

  bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override {
    if (!owner_.StallUntilReady()) {
      return false;
    }
    const uint32_t Needed = CR_OPTPG | CR_OPTWRE;
    if ((registers_[CR] & Needed) != Needed) {
      registers_[SR] |= SR_WRPRTERR;
      return true;
    }
    if (Size != 2) {
      return false;
    }
    const uint32_t Shift = 8 * (Address % 4);
    const int      Index = static_cast<int>((Address - OPTION_BASE) / 4);
    if (((Stored(Index) >> Shift) & 0xFFFF) != 0xFFFF) {
      registers_[SR] |= SR_PGERR | SR_WRPRTERR;
      return true;
    }
    // Taking the protection away costs the flash, however the byte came to be erased.
    std::vector<PHASE> Phases;
    if (Address == OPTION_BASE && (Value & 0xFF) == row_.RdpOff && level_ != 0) {
      Phases.push_back({MASS_ERASE, EraseUs(), UNPROTECT});
    }
    Phases.push_back({WORD_PROGRAM, ProgramUs(), Address, Value});
    Begin(Phases);
    return true;
  }

  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    if (!owner_.StallUntilReady() || Size != 2) {
      return false;
    }
    if ((registers_[CR] & (CR_PG | CR_LOCK)) != CR_PG) {
      return true;
    }
    const uint32_t Old = (Target.WordAt(Address) >> (8 * (Address % 4))) & 0xFFFF;
    if (level_ != 0 || (Old != 0xFFFF && (Value & 0xFFFF) != 0)) {
      registers_[SR] |= SR_PGERR;
    } else if (PageIsProtected(Address)) {
      registers_[SR] |= SR_WRPRTERR;
    } else {
      Begin({{WORD_PROGRAM, ProgramUs(), Address, Value}});
    }
    return true;
  }

  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) override {
    (void)Address;
    (void)pValue;
    return Source.Row().Kind == SRAM || (level_ == 0 && unreadable_ == 0);
  }

  // -- Protection

  int  Level() const override { return static_cast<int>(level_); }
  int  StoredLevel() const override { return LevelOf(Stored(WORD_RDP_USER)); }
  bool WatchdogByHardware() const override {
    return (registers_[OBR] & (row_.HasLevel2 ? OBR_WDG_SW : OBR_WDG_SW_F1)) == 0;
  }

  uint32_t Effective(int Index) const override {
    const uint32_t Word = Stored(Index);
    return EffectiveByte(Word) | EffectiveByte(Word >> 16) << 16;
  }

  std::string Remarks() const override {
    std::string sText;
    if (StoredLevel() != Level()) {
      sText = Level() == 0 ? "the stored protection level is not loaded yet"
                           : "the old protection level is still in force until options are loaded";
    }
    if (unreadable_ != 0) {
      sText = "flash stays unreadable until power-on";
    }
    return sText;
  }

  bool Configure(const CREATE_REQUEST& Request, std::string* psError) override {
    if (Request.PcropAll || !Request.Pcrop.empty() || Request.Secure || Request.PcropRdp) {
      *psError = "this device has no PCROP and no secure area";
      return false;
    }
    if (Request.Level == 2u && !row_.HasLevel2) {
      *psError = "this device has no level 2";
      return false;
    }
    if (!CheckSectors(Request.Wrp, row_.NumWrpBits, psError)) {
      return false;
    }
    uint32_t Rdp = row_.RdpOff;
    if (Request.Rdp) {
      Rdp = *Request.Rdp & 0xFF;
    } else if (Request.Level) {
      const uint32_t aBytes[] = {row_.RdpOff, 0x00, 0xCC};
      Rdp                     = aBytes[*Request.Level];
    }
    uint32_t User = Request.User ? *Request.User & 0xFF : 0xFF;
    uint32_t Word = Pair(Rdp) | Pair(User) << 16;
    if (Request.sMismatch == "rdp") {
      Word ^= 0x00000100;
    } else if (Request.sMismatch == "user") {
      Word ^= 0x01000000;
    }
    Store(WORD_RDP_USER, Word);
    const uint32_t Free = ~SectorMask(Request.Wrp, Request.WrpAll, row_.NumWrpBits);
    Store(WORD_WRP01, Pair(Free & 0xFF) | Pair((Free >> 8) & 0xFF) << 16);
    if (row_.NumWrpBits > 16) {
      Store(WORD_WRP23, Pair((Free >> 16) & 0xFF) | Pair(Free >> 24) << 16);
    }
    return true;
  }

 protected:
  void FinishPhase(const PHASE& Phase) override {
    switch (Phase.Kind) {
      case MASS_ERASE:
        owner_.EraseKind(MAIN_FLASH);
        if (Phase.Argument == UNPROTECT) {
          owner_.EraseKind(BACKUP);
          unreadable_ = row_.HasLevel2 ? 0 : owner_.Variant(F1_UNPROTECT_NEEDS_POWER_ON);
        }
        break;
      case PAGE_ERASE:
        owner_.FindMemory(MAIN_FLASH)
            ->EraseRange(Phase.Argument & ~(row_.PageBytes - 1), row_.PageBytes);
        break;
      case OPTION_ERASE:
        for (int i = 0; i < 4; i++) {
          Store(i, 0xFFFFFFFF);
        }
        break;
      default:
        ProgramHalfWord(Phase.Argument, Phase.Value);
        break;
    }
    registers_[CR] &= ~CR_STRT;
    registers_[SR] |= SR_EOP;
  }

  // What is cut short has already begun: an erase leaves nothing of worth behind.
  void AbortPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE) {
      Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
      pFlash->EraseRange(pFlash->Row().Base, pFlash->Row().Bytes / 2);
    } else if (Phase.Kind == OPTION_ERASE || Phase.Kind == PAGE_ERASE) {
      FinishPhase(Phase);
    }
  }

 private:
  static const uint32_t BY_REQUEST = 0, UNPROTECT = 1;  // why there is a mass erase

  static uint32_t Pair(uint32_t Byte) { return Byte | (~Byte & 0xFF) << 8; }
  static bool     Matches(uint32_t Half) { return ((Half ^ (Half >> 8)) & 0xFF) == 0xFF; }
  static bool     IsErased(uint32_t Half) { return (Half & 0xFFFF) == 0xFFFF; }
  static uint32_t EffectiveByte(uint32_t Half) { return Matches(Half) ? Half & 0xFF : 0xFF; }

  int LevelOf(uint32_t Word) const {
    if (!Matches(Word)) {
      return 1;
    }
    const uint32_t Rdp = Word & 0xFF;
    return Rdp == row_.RdpOff ? 0 : row_.HasLevel2 && Rdp == 0xCC ? 2 : 1;
  }

  uint64_t ProgramUs() const { return owner_.Variant(TIMING_MAX) ? PROGRAM_MAX_US : PROGRAM_US; }
  uint64_t EraseUs() const { return owner_.Variant(TIMING_MAX) ? ERASE_MAX_US : ERASE_US; }

  void ResetRegisters() {
    registers_.ResetAll();
    flash_.Reset();
    options_.Reset();
  }

  void Load() {
    bool Mismatch = false;
    for (int i = 0; i < 4; i++) {
      const uint32_t Word = Stored(i);
      Mismatch            = Mismatch || (!Matches(Word) && !IsErased(Word)) ||
                 (!Matches(Word >> 16) && !IsErased(Word >> 16));
    }
    level_              = static_cast<uint32_t>(LevelOf(Stored(WORD_RDP_USER)));
    const uint32_t User = Effective(WORD_RDP_USER) >> 16;
    const uint32_t Data = Effective(WORD_DATA);
    const uint32_t Low = Data & 0xFF, High = Data >> 16;
    if (row_.HasLevel2) {
      const uint32_t aLevels[] = {0, OBR_LEVEL1, OBR_LEVEL2};
      registers_[OBR]          = aLevels[level_] | User << 8 | Low << 16 | High << 24;
    } else {
      registers_[OBR] =
          (level_ != 0 ? OBR_RDPRT_F1 : 0) | (User << 2 & 0x3FC) | Low << 10 | High << 18;
    }
    registers_[OBR] |= Mismatch ? OBR_OPTERR : 0;
    const uint32_t Lower = Effective(WORD_WRP01);
    const uint32_t Upper = row_.NumWrpBits > 16 ? Effective(WORD_WRP23) : 0x00FF00FF;
    registers_[WRPR]     = (Lower & 0xFF) | (Lower >> 16 & 0xFF) << 8 | (Upper & 0xFF) << 16 |
                       (Upper >> 16 & 0xFF) << 24;
  }

  bool WriteControl(uint32_t Value) {
    if ((registers_[CR] & CR_LOCK) != 0) {
      return true;
    }
    const uint32_t Optwre = registers_[CR] & Value & CR_OPTWRE;
    registers_.Write(CR, Value);
    registers_[CR] = (registers_[CR] & ~CR_OPTWRE) | Optwre;
    if (Optwre == 0) {
      options_.Close();
    }
    if ((Value & CR_LOCK) != 0) {
      flash_.Close();
    }
    if ((Value & CR_OBL_LAUNCH) != 0 && row_.HasLevel2) {
      launched_ = true;
      owner_.SystemReset(false, "OBL_LAUNCH");
      return owner_.Variant(OBL_TRANSFER_FAILS) == 0;
    }
    if ((Value & CR_STRT) != 0) {
      StartErase();
    }
    return true;
  }

  // HSI times every operation: while it is off, none begins. Started: bits of CR that show it.
  void Begin(const std::vector<PHASE>& Phases, uint32_t Started = 0) {
    uint32_t RccCr = 0;
    if (!owner_.Read(owner_.Row().pSystem->RccCr, 4, &RccCr) || (RccCr & RCC_CR_HSION) == 0) {
      owner_.Event("nothing is erased or programmed: HSI is off");
      return;
    }
    registers_[CR] |= Started;
    Start(Phases);
  }

  void StartErase() {
    const uint32_t Control = registers_[CR];
    if ((Control & CR_OPTER) != 0) {
      if ((Control & CR_OPTWRE) != 0) {
        Begin({{OPTION_ERASE, EraseUs()}}, CR_STRT);
      }
      return;
    }
    if ((Control & (CR_MER | CR_PER)) == 0) {
      return;
    }
    const bool Mass = (Control & CR_MER) != 0;
    if (level_ != 0) {
      registers_[SR] |= SR_PGERR;
    } else if (Mass ? registers_[WRPR] != 0xFFFFFFFF : PageIsProtected(registers_[AR])) {
      registers_[SR] |= SR_WRPRTERR;
    } else {
      Begin({{Mass ? MASS_ERASE : PAGE_ERASE, EraseUs(), Mass ? BY_REQUEST : registers_[AR]}},
            CR_STRT);
    }
  }

  bool PageIsProtected(uint32_t Address) {
    uint32_t Bit = (Address - 0x08000000) / WRP_BIT_BYTES;
    Bit          = Bit < row_.NumWrpBits ? Bit : row_.NumWrpBits - 1;
    return (registers_[WRPR] & (1u << Bit)) == 0;
  }

  void ProgramHalfWord(uint32_t Address, uint32_t Value) {
    if (InOptionArea(Address)) {
      // The hardware makes the complement; the upper byte written does not count.
      const int Index = static_cast<int>((Address - OPTION_BASE) / 4);
      Store(Index, Merge(Stored(Index), Address, 2, Pair(Value & 0xFF)));
    } else {
      Memory* pFlash          = owner_.FindMemory(MAIN_FLASH);
      pFlash->WordAt(Address) = Merge(pFlash->WordAt(Address), Address, 2, Value);
    }
  }

  const F1_ROW& row_;
  KeyLock       flash_, options_;
  uint32_t      level_      = 0;
  uint32_t      unreadable_ = 0;
  bool          launched_   = false;
};

// -- Devices -------------------------------------------------------------------------------------

constexpr REGISTER RccCrRow = {
    "RCC_CR",
    0x40021000,
    0x00000083,
    0x010D00F9,
    0,
    0,
    "HSION 0, HSIRDY 1, HSITRIM 7:3, HSICAL 15:8, HSEON 16, HSEBYP 18, CSSON 19, PLLON 24"};

const REGISTER aSystemF0[] = {
    {"DBGMCU_IDCODE", 0x40015800, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0x40015804, 0, 0x00000006, 0, 0, "DBG_STOP 1, DBG_STANDBY 2"},
    {"DBGMCU_APB1_FZ", 0x40015808, 0, 0x02201D33, 0, 0, "DBG_WWDG_STOP 11, DBG_IWDG_STOP 12"},
    RccCrRow,
    {"RCC_APB2ENR", 0x40021018, 0, 0x00475A01, 0, 0, "SYSCFGEN 0, DBGMCUEN 22"},
};

const REGISTER aSystemF1[] = {
    {"DBGMCU_IDCODE", 0xE0042000, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0xE0042004, 0, 0x003FFFE7, 0, 0,
     "DBG_SLEEP 0, DBG_STOP 1, DBG_STANDBY 2, DBG_IWDG_STOP 8, DBG_WWDG_STOP 9"},
    RccCrRow,
};

const REGISTER aSystemF3[] = {
    {"DBGMCU_IDCODE", 0xE0042000, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0xE0042004, 0, 0x000000E7, 0, 0, "DBG_SLEEP 0, DBG_STOP 1, DBG_STANDBY 2"},
    {"DBGMCU_APB1_FZ", 0xE0042008, 0, 0x42601C3F, 0, 0, "DBG_WWDG_STOP 11, DBG_IWDG_STOP 12"},
    RccCrRow,
};

const SYSTEM_BLOCK SystemF0 = {aSystemF0, 0x40015800, 0x40015800, 0x400158FF, 0x40015808,
                               12,        0x40021018, 22,         0x40021000, 410000};
const SYSTEM_BLOCK SystemF1 = {aSystemF1, 0xE0042000, 0xE0042000, 0xE00420FF, 0xE0042004,
                               8,         0,          0,          0x40021000, 410000};
const SYSTEM_BLOCK SystemF3 = {aSystemF3, 0xE0042000, 0xE0042000, 0xE00420FF, 0xE0042008,
                               12,        0,          0,          0x40021000, 410000};

std::unique_ptr<Controller> Make(Device& Owner, const DEVICE_ROW& Device) {
  return std::make_unique<ControllerF1>(Owner, RowNamed(aRows, Device.sName));
}

}  // namespace

const DEVICE_ROW aDevicesF1[NUM_DEVICES_F1] = {
    {"STM32F051",
     "F0, 64 KB flash",
     0x20006440,
     &SystemF0,
     {{"flash", 0x08000000, 64 * 1024, MAIN_FLASH, 0xFFFFFFFF},
      {"backup", 0x40002850, 20, BACKUP, 0},
      {"sram", 0x20000000, 8 * 1024, SRAM, 0}},
     Make},
    {"STM32F103",
     "F1 medium density, 128 KB flash",
     0x20036410,
     &SystemF1,
     {{"flash", 0x08000000, 128 * 1024, MAIN_FLASH, 0xFFFFFFFF},
      {"sram", 0x20000000, 20 * 1024, SRAM, 0}},
     Make},
    {"STM32F303",
     "F3, 256 KB flash",
     0x10036422,
     &SystemF3,
     {{"flash", 0x08000000, 256 * 1024, MAIN_FLASH, 0xFFFFFFFF},
      {"backup", 0x40002850, 64, BACKUP, 0},
      {"sram", 0x20000000, 40 * 1024, SRAM, 0}},
     Make},
};

}  // namespace sim
