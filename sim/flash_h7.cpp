// Flash controller of STM32H742/743/753: two banks, each with its own view of the option registers.
// Values to program (_PRG) and values in force (_CUR) are apart; OPTSTART compares them, checks the
// rules of change, programs and reloads at once. Reference manual RM0433.

#include <algorithm>
#include <iterator>

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

// The option values in the order in which they are kept.
enum { OPTSR, PRAR1, SCAR1, WPSN1, PRAR2, SCAR2, WPSN2, BOOT, NUM_OPTIONS };

const uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTART = 1u << 1, OPTCR_MER = 1u << 4,
               OPTCR_SWAP_BANK = 1u << 31;
const uint32_t OPTSR_OPT_BUSY = 1u << 0, OPTSR_IWDG1_SW = 1u << 4, OPTSR_SECURITY = 1u << 21,
               OPTSR_OPTCHANGEERR = 1u << 30, OPTSR_SWAP_BANK_OPT = 1u << 31;
const uint32_t OPTCCR_CLR_OPTCHANGEERR = 1u << 30;
const uint32_t AREA_KEEP_OFF           = 1u << 31;  // DMEP, DMES: unprotecting wipes the area
const uint32_t SR_BSY = 1u << 0, SR_WBNE = 1u << 1, SR_QW = 1u << 2, SR_EOP = 1u << 16,
               SR_WRPERR = 1u << 17, SR_PGSERR = 1u << 18, SR_STRBERR = 1u << 19,
               SR_INCERR = 1u << 21, SR_RDPERR = 1u << 23, SR_RDSERR = 1u << 24;
const uint32_t CR_LOCK = 1u << 0, CR_PG = 1u << 1, CR_SER = 1u << 2, CR_BER = 1u << 3,
               CR_FW = 1u << 6, CR_START = 1u << 7, CR_EOPIE = 1u << 16;

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
#define SR_FIELDS                                                                                \
  "BSY 0, WBNE 1, QW 2, EOP 16, WRPERR 17, PGSERR 18, STRBERR 19, INCERR 21, RDPERR 23, RDSERR " \
  "24"
#define CCR_FIELDS                                                                           \
  "CLR_EOP 16, CLR_WRPERR 17, CLR_PGSERR 18, CLR_STRBERR 19, CLR_INCERR 21, CLR_RDPERR 23, " \
  "CLR_RDSERR 24"
#define CR_FIELDS "LOCK 0, PG 1, SER 2, BER 3, PSIZE 5:4, FW 6, START 7, SNB 10:8, EOPIE 16"

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

// One view; the second lies 0x100 above and has the same rows. Suffixes as in the manual. Bits 5,
// 26 and 28 of OPTSR read as ones and cannot be written on this device.
#define VIEW(Base, Bank, Suffix)                                                              \
  {"FLASH_KEYR" Bank, (Base) + 0x04, 0, 0, 0, 0, ""},                                         \
      {"FLASH_OPTKEYR" Suffix, (Base) + 0x08, 0, 0, 0, 0, ""},                                \
      {"FLASH_CR" Bank, (Base) + 0x0C, 0x00000031, 0x0001073E, 0, CR_LOCK | CR_FW | CR_START, \
       CR_FIELDS},                                                                            \
      {"FLASH_SR" Bank, (Base) + 0x10, 0, 0, 0, 0, SR_FIELDS},                                \
      {"FLASH_CCR" Bank, (Base) + 0x14, 0, 0, 0, 0, CCR_FIELDS}, {"FLASH_OPTCR" Suffix,       \
                                                                  (Base) + 0x18,              \
                                                                  0x00000001,                 \
                                                                  0x40000000,                 \
                                                                  0,                          \
                                                                  OPTCR_OPTLOCK,              \
                                                                  OPTCR_FIELDS},              \
      {"FLASH_OPTSR_CUR" Suffix, (Base) + 0x1C, 0, 0, 0, 0, CUR_FIELDS},                      \
      {"FLASH_OPTSR_PRG" Suffix, (Base) + 0x20, 0, 0xA03EFFDC, 0, 0, PRG_FIELDS},             \
      {"FLASH_OPTCCR" Suffix, (Base) + 0x24, 0, 0, 0, 0, "CLR_OPTCHANGEERR 30"},              \
      {"FLASH_PRAR_CUR" Bank, (Base) + 0x28, 0, 0, 0, 0, PRAR_FIELDS},                        \
      {"FLASH_PRAR_PRG" Bank, (Base) + 0x2C, 0, 0x8FFF0FFF, 0, 0, PRAR_FIELDS},               \
      {"FLASH_SCAR_CUR" Bank, (Base) + 0x30, 0, 0, 0, 0, SCAR_FIELDS},                        \
      {"FLASH_SCAR_PRG" Bank, (Base) + 0x34, 0, 0x8FFF0FFF, 0, 0, SCAR_FIELDS},               \
      {"FLASH_WPSN_CUR" Bank "R", (Base) + 0x38, 0, 0, 0, 0, WPSN_FIELDS},                    \
      {"FLASH_WPSN_PRG" Bank "R", (Base) + 0x3C, 0, 0x000000FF, 0, 0, WPSN_FIELDS},           \
      {"FLASH_BOOT_CURR" Suffix, (Base) + 0x40, 0, 0, 0, 0, BOOT_FIELDS}, {                   \
    "FLASH_BOOT_PRGR" Suffix, (Base) + 0x44, 0, 0xFFFFFFFF, 0, 0, BOOT_FIELDS                 \
  }

const REGISTER aRegisters[] = {VIEW(0x52002000, "1", ""), VIEW(0x52002100, "2", "2")};

// Only these are each bank's own, and change places with the banks; of the others the second view
// is another address of the same register.
bool IsOfBank(int Kind) {
  switch (Kind) {
    case KEYR:
    case CR:
    case SR:
    case CCR:
    case PRAR_CUR:
    case PRAR_PRG:
    case SCAR_CUR:
    case SCAR_PRG:
    case WPSN_CUR:
    case WPSN_PRG:
      return true;
    default:
      return false;
  }
}

// -- Option words --------------------------------------------------------------------------------

struct OPTION_ROW {
  OPTION_WORD Word;
  int         Prg;  // the register of the value to program; that of the value in force is before it
};

const OPTION_ROW aOptions[NUM_OPTIONS] = {
    {{"OPTSR", 0, 0x1416AAF0, PRG_FIELDS}, OPTSR_PRG},
    {{"PRAR1", 0, 0x000000FF, PRAR_FIELDS}, PRAR_PRG},
    {{"SCAR1", 0, 0x800000FF, SCAR_FIELDS}, SCAR_PRG},
    {{"WPSN1", 0, 0x000000FF, WPSN_FIELDS}, WPSN_PRG},
    {{"PRAR2", 0, 0x000000FF, PRAR_FIELDS}, REGISTERS_PER_VIEW + PRAR_PRG},
    {{"SCAR2", 0, 0x800000FF, SCAR_FIELDS}, REGISTERS_PER_VIEW + SCAR_PRG},
    {{"WPSN2", 0, 0x000000FF, WPSN_FIELDS}, REGISTERS_PER_VIEW + WPSN_PRG},
    {{"BOOT", 0, 0x1FF00800, BOOT_FIELDS}, BOOT_PRG},
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
const uint32_t AREA_UNIT         = 256;  // bytes
const uint32_t FLASH_WORD        = 32;   // bytes that are programmed together
const uint32_t WORDS_PER_PROGRAM = FLASH_WORD / 4;

// Typical times by PSIZE: x8, x16, x32, x64. The longest are twice as long.
const uint64_t aMassEraseUs[4]   = {13000000, 8000000, 6000000, 5000000};
const uint64_t aSectorEraseUs[4] = {2000000, 1800000, 1100000, 1000000};
const uint64_t aProgramUs[4]     = {290, 180, 130, 100};
const uint64_t OPTION_US         = 300000;

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
  explicit ControllerH7(Device& Owner) : Controller(Owner, aRegisters, OptionWords()) {
    for (KeyLock* pLock : aLocks_) {
      pLock->ThirdKeyKills = true;
    }
    State("keys_1", &bank1_.State);
    State("keys_2", &bank2_.State);
    State("option_keys", &options_.State);
    State("change_error", &changeError_);
    State("swapped", &swapped_);
    State("active_banks", &activeBanks_);
    State("buffer_address", &bufferAddress_);
    State("buffer_bytes", &bufferBytes_);
    static const char* const aNames[WORDS_PER_PROGRAM] = {"buffer_0", "buffer_1", "buffer_2",
                                                          "buffer_3", "buffer_4", "buffer_5",
                                                          "buffer_6", "buffer_7"};
    for (uint32_t i = 0; i < WORDS_PER_PROGRAM; i++) {
      State(aNames[i], &aBuffer_[i]);
    }
  }

  void OnPowerOn() override {
    changeError_ = 0;
    Reset(true);
  }

  void OnSystemReset() override {
    if (owner_.Variant(H7_ERROR_CLEARED_ON_RESET) != 0) {
      changeError_ = 0;
    }
    Reset(owner_.Variant(H7_PRG_RELOADED_ON_RESET) != 0);
  }

  // -- Bus

  bool ReadRegister(int Index, uint32_t Size, uint32_t* pValue) override {
    (void)Size;
    const int Home   = HomeOf(Index);
    const int Option = OptionInForce(Home);
    *pValue          = Option >= 0 ? Stored(Option) : registers_[Home];
    switch (Home % REGISTERS_PER_VIEW) {
      case OPTSR_CUR:
        *pValue |= ChangesOptions() ? OPTSR_OPT_BUSY : 0;
        *pValue |= changeError_ != 0 ? OPTSR_OPTCHANGEERR : 0;
        break;
      case OPTCR:
        *pValue |= ChangesOptions() ? OPTCR_OPTSTART : 0;
        *pValue |= swapped_ != 0 ? OPTCR_SWAP_BANK : 0;
        break;
      case SR:
        *pValue |= Busy() && (activeBanks_ & BankBit(BankOf(Home))) != 0 ? SR_BSY | SR_QW : 0;
        *pValue |= IsBuffered(BankOf(Home)) ? SR_WBNE : 0;
        break;
      default:
        break;
    }
    return true;
  }

  bool WriteRegister(int Index, uint32_t Size, uint32_t Value) override {
    const int Home = HomeOf(Index);
    const int Kind = Home % REGISTERS_PER_VIEW;
    const int Bank = BankOf(Home);
    // A write to any other register between its two keys spoils a lock, and so does a narrow key.
    KeyLock* pLock = Kind == OPTKEYR ? &options_ : Kind == KEYR ? aLocks_[Bank] : nullptr;
    for (KeyLock* pOther : aLocks_) {
      if (pOther != pLock) {
        pOther->Interrupt();
      }
    }
    if (pLock != nullptr && Size != 4) {
      pLock->Kill();
    }
    switch (Kind) {
      case OPTKEYR:
        return TakeKey(&options_, Value, OPTCR, OPTCR_OPTLOCK);
      case KEYR:
        return TakeKey(pLock, Value, OfBank(CR, Bank), CR_LOCK);
      case CR:
        WriteControl(Bank, Value);
        break;
      case CCR:
        registers_[OfBank(SR, Bank)] &= ~Value;
        break;
      case OPTCR:
        WriteOptionControl(Value);
        break;
      case OPTCCR:
        changeError_ = (Value & OPTCCR_CLR_OPTCHANGEERR) != 0 ? 0 : changeError_;
        break;
      default:
        // Of the rest only the _PRG registers have bits to write.
        if ((registers_[OPTCR] & OPTCR_OPTLOCK) == 0 && !ChangesOptions()) {
          registers_.Write(Home, Value);
        }
        break;
    }
    return true;
  }

  // With the banks swapped each is found at the other's addresses.
  uint32_t Place(const Memory& Source, uint32_t Address) const override {
    return Source.Row().Kind == MAIN_FLASH && swapped_ != 0 ? Address ^ BANK_BYTES : Address;
  }

  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) override {
    (void)pValue;
    if (Source.Row().Kind != MAIN_FLASH) {
      return Source.Row().Kind == SRAM || Level() == 0;
    }
    uint32_t Error = 0;
    if (Level() != 0 || InArea(PRAR1, Address)) {
      Error = SR_RDPERR;
    } else if (InArea(SCAR1, Address)) {
      Error = SR_RDSERR;
    }
    registers_[OfBank(SR, BankAt(Address))] |= Error;
    return Error == 0;
  }

  // Bytes are collected until a flash word is full or FW is set.
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    (void)Target;
    if (!owner_.StallUntilReady()) {
      return false;
    }
    const int      Bank     = BankAt(Address);
    const uint32_t Bytes    = ((1u << Size) - 1) << (Address % FLASH_WORD);
    const uint32_t InBuffer = Address & ~(FLASH_WORD - 1);
    uint32_t       Error    = 0;
    if (Level() != 0 || IsProtected(Address)) {
      Error = SR_WRPERR;
    } else if ((registers_[OfBank(CR, Bank)] & CR_PG) == 0) {
      Error = SR_PGSERR;
    } else if (bufferBytes_ != 0 && bufferAddress_ != InBuffer) {
      Error = SR_INCERR;
    } else if ((bufferBytes_ & Bytes) != 0) {
      Error = SR_STRBERR;
    }
    if (Error != 0) {
      registers_[OfBank(SR, Bank)] |= Error;
      return true;
    }
    if (bufferBytes_ == 0) {
      EmptyBuffer();
    }
    uint32_t& Word = aBuffer_[Address % FLASH_WORD / 4];
    Word           = Merge(Word, Address, Size, Value);
    bufferAddress_ = InBuffer;
    bufferBytes_ |= Bytes;
    if (bufferBytes_ == ~0u) {
      StartProgramming(Bank);
    }
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
    switch (Phase.Kind) {
      case MASS_ERASE:
        EraseBanks(Phase.Argument, BANK_BYTES);
        if (Phase.Argument == UNPROTECT) {
          owner_.EraseKind(BACKUP);
        }
        break;
      case PAGE_ERASE:
        EraseSector(Phase.Argument);
        break;
      case WORD_PROGRAM:
        ProgramBuffer(Phase.Argument);
        break;
      default:
        for (int i = 0; i < NUM_OPTIONS; i++) {
          Store(i, registers_[aOptions[i].Prg]);
        }
        return;
    }
    for (int Bank = 0; Bank < 2; Bank++) {
      uint32_t& Control = registers_[OfBank(CR, Bank)];
      if ((activeBanks_ & BankBit(Bank)) != 0) {
        registers_[OfBank(SR, Bank)] |= (Control & CR_EOPIE) != 0 ? SR_EOP : 0;
        Control &= ~(CR_START | CR_FW);
      }
    }
  }

  // The old option values are kept.
  void AbortPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE) {
      EraseBanks(Phase.Argument, BANK_BYTES / 2);
    } else if (Phase.Kind == PAGE_ERASE) {
      EraseSector(Phase.Argument);
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

  // -- Registers

  // Where the value of a register is kept.
  int HomeOf(int Index) const {
    const int View = Index / REGISTERS_PER_VIEW;
    const int Kind = Index % REGISTERS_PER_VIEW;
    return IsOfBank(Kind) ? OfBank(Kind, swapped_ != 0 ? 1 - View : View) : Kind;
  }

  static int      BankOf(int Home) { return Home / REGISTERS_PER_VIEW; }
  static int      OfBank(int Kind, int Bank) { return Kind + Bank * REGISTERS_PER_VIEW; }
  static uint32_t BankBit(int Bank) { return 1u << Bank; }

  // The option whose value in force the register shows, -1 when it is none of these.
  static int OptionInForce(int Home) {
    for (int i = 0; i < NUM_OPTIONS; i++) {
      if (Home == aOptions[i].Prg - 1) {
        return i;
      }
    }
    return -1;
  }

  void Reset(bool ReloadPrg) {
    uint32_t aPrg[NUM_OPTIONS];
    for (int i = 0; i < NUM_OPTIONS; i++) {
      aPrg[i] = ReloadPrg ? Stored(i) : registers_[aOptions[i].Prg];
    }
    registers_.ResetAll();
    for (int i = 0; i < NUM_OPTIONS; i++) {
      registers_[aOptions[i].Prg] = aPrg[i];
    }
    for (KeyLock* pLock : aLocks_) {
      pLock->Reset();
    }
    EmptyBuffer();
    swapped_ = (Stored(OPTSR) & OPTSR_SWAP_BANK_OPT) != 0;
  }

  // -- Options

  bool ChangesOptions() const { return Busy() && activeBanks_ == 0; }

  void WriteOptionControl(uint32_t Value) {
    if ((registers_[OPTCR] & OPTCR_OPTLOCK) != 0) {
      return;
    }
    registers_.Write(OPTCR, Value);
    if ((Value & OPTCR_OPTLOCK) != 0) {
      options_.Close();
    }
    if (Busy()) {
      return;
    }
    if ((Value & OPTCR_OPTSTART) != 0) {
      StartChange();
    } else if ((Value & OPTCR_MER) != 0 &&
               ((registers_[CR] | registers_[OfBank(CR, 1)]) & CR_LOCK) == 0) {
      StartBankErase(BANK1 | BANK2);
    }
  }

  void StartChange() {
    bool Differs = false;
    for (int i = 0; i < NUM_OPTIONS; i++) {
      Differs = Differs || Prg(i) != Stored(i);
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
    std::vector<PHASE> Phases;
    if (Unprotects()) {
      Phases.push_back({MASS_ERASE, Duration(aMassEraseUs[Psize(0)]), UNPROTECT});
    }
    Phases.push_back({OPTION_PROGRAM, Duration(OPTION_US)});
    activeBanks_ = 0;
    Start(Phases);
  }

  uint32_t Prg(int Option) const { return registers_[aOptions[Option].Prg]; }

  bool Unprotects() const { return Level() == 1 && LevelOf(Prg(OPTSR)) == 0; }

  // NULL when the change is allowed.
  const char* BrokenRule() const {
    for (int Bank = 0; Bank < 2; Bank++) {
      const uint32_t OldPcrop = Stored(PRAR1 + 3 * Bank), NewPcrop = Prg(PRAR1 + 3 * Bank);
      const uint32_t OldSecure = Stored(SCAR1 + 3 * Bank), NewSecure = Prg(SCAR1 + 3 * Bank);
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
      if ((Stored(OPTSR) & ~Prg(OPTSR) & OPTSR_SECURITY) != 0 &&
          ((AreaValid(OldPcrop) && !WipesPcrop) || (AreaValid(OldSecure) && !WipesSecure))) {
        return "SECURITY cannot be cleared while a protected area is kept";
      }
    }
    return nullptr;
  }

  // -- Main flash. Addresses are those of the banks when they are not swapped.

  static int BankAt(uint32_t Address) { return Address - FLASH_BASE >= BANK_BYTES; }

  bool InArea(int Option, uint32_t Address) const {
    const uint32_t Unit = (Address - FLASH_BASE) % BANK_BYTES / AREA_UNIT;
    return AreaHolds(Stored(Option + 3 * BankAt(Address)), Unit);
  }

  bool IsProtected(uint32_t Address) const {
    const uint32_t Sector = (Address - FLASH_BASE) % BANK_BYTES / SECTOR_BYTES;
    return InArea(PRAR1, Address) || InArea(SCAR1, Address) ||
           (Stored(WPSN1 + 3 * BankAt(Address)) >> Sector & 1) == 0;
  }

  // An area is spared unless its wipe bit is set, before or by this change.
  bool IsSpared(uint32_t Address) const {
    for (const int Option : {static_cast<int>(PRAR1), static_cast<int>(SCAR1)}) {
      const int Word = Option + 3 * BankAt(Address);
      if (((Stored(Word) | Prg(Word)) & AREA_KEEP_OFF) == 0 && InArea(Option, Address)) {
        return true;
      }
    }
    return false;
  }

  uint32_t Psize(int Bank) const { return registers_[OfBank(CR, Bank)] >> 4 & 3; }

  uint64_t Duration(uint64_t TypicalUs) const {
    return owner_.Variant(TIMING_MAX) != 0 ? 2 * TypicalUs : TypicalUs;
  }

  void WriteControl(int Bank, uint32_t Value) {
    const int Register = OfBank(CR, Bank);
    if ((registers_[Register] & CR_LOCK) != 0 || !owner_.StallUntilReady()) {
      return;
    }
    registers_.Write(Register, Value);
    if ((Value & CR_LOCK) != 0) {
      aLocks_[Bank]->Close();
    }
    if ((Value & CR_START) != 0) {
      registers_[Register] &= ~CR_START;
      StartErase(Bank);
    } else if ((Value & CR_FW) != 0 && IsBuffered(Bank)) {
      StartProgramming(Bank);
    }
    if (!Busy()) {
      registers_[Register] &= ~CR_FW;
    }
  }

  void StartErase(int Bank) {
    const uint32_t Control = registers_[OfBank(CR, Bank)];
    if ((Control & CR_BER) != 0) {
      StartBankErase(BankBit(Bank));
    } else if ((Control & CR_SER) != 0) {
      const uint32_t Sector = Control >> 8 & 7;
      const uint32_t Address =
          FLASH_BASE + static_cast<uint32_t>(Bank) * BANK_BYTES + Sector * SECTOR_BYTES;
      StartUnlessProtected(BankBit(Bank), Address, SECTOR_BYTES,
                           {PAGE_ERASE, Duration(aSectorEraseUs[Psize(Bank)]), Address});
    }
  }

  void StartBankErase(uint32_t Banks) {
    const int First = Banks == BANK2 ? 1 : 0;
    StartUnlessProtected(Banks, FLASH_BASE + static_cast<uint32_t>(First) * BANK_BYTES,
                         Banks == (BANK1 | BANK2) ? 2 * BANK_BYTES : BANK_BYTES,
                         {MASS_ERASE, Duration(aMassEraseUs[Psize(First)]), Banks});
  }

  // Nothing at all is erased when a part of it is protected.
  void StartUnlessProtected(uint32_t Banks, uint32_t Address, uint32_t Bytes, const PHASE& Phase) {
    bool Refused = Level() != 0;
    for (uint32_t i = 0; i < Bytes && !Refused; i += AREA_UNIT) {
      Refused = IsProtected(Address + i);
    }
    for (int Bank = 0; Bank < 2; Bank++) {
      if ((Banks & BankBit(Bank)) != 0) {
        registers_[OfBank(Refused ? SR : CR, Bank)] |= Refused ? SR_WRPERR : CR_START;
      }
    }
    if (!Refused) {
      activeBanks_ = Banks;
      Start({Phase});
    }
  }

  void StartProgramming(int Bank) {
    activeBanks_ = BankBit(Bank);
    Start({{WORD_PROGRAM, Duration(aProgramUs[Psize(Bank)]), bufferAddress_}});
  }

  bool IsBuffered(int Bank) const { return bufferBytes_ != 0 && BankAt(bufferAddress_) == Bank; }

  void EmptyBuffer() {
    bufferBytes_ = 0;
    std::fill(std::begin(aBuffer_), std::end(aBuffer_), ~0u);
  }

  void ProgramBuffer(uint32_t Address) {
    Memory*        pFlash = owner_.FindMemory(MAIN_FLASH);
    const uint32_t First  = Address & ~(FLASH_WORD - 1);
    for (uint32_t i = 0; i < WORDS_PER_PROGRAM && pFlash->Contains(First); i++) {
      pFlash->WordAt(First + 4 * i) &= aBuffer_[i];
    }
    EmptyBuffer();
  }

  void EraseSector(uint32_t Address) {
    owner_.FindMemory(MAIN_FLASH)->EraseRange(Address, SECTOR_BYTES);
  }

  // The first so many bytes of each bank that the erase takes. Neither write protection nor the
  // areas that are wiped stop unprotecting.
  void EraseBanks(uint32_t What, uint32_t BytesPerBank) {
    for (uint32_t Offset = 0; Offset < 2 * BANK_BYTES; Offset += AREA_UNIT) {
      const uint32_t Address = FLASH_BASE + Offset;
      const bool     Taken =
          What == UNPROTECT ? !IsSpared(Address) : (What & BankBit(BankAt(Address))) != 0;
      if (Taken && Offset % BANK_BYTES < BytesPerBank) {
        owner_.FindMemory(MAIN_FLASH)->EraseRange(Address, AREA_UNIT);
      }
    }
  }

  // What a mass erase takes.
  enum { BANK1 = 1, BANK2 = 2, UNPROTECT = 4 };

  KeyLock        bank1_{KEY1, KEY2}, bank2_{KEY1, KEY2}, options_{OPTKEY1, OPTKEY2};
  KeyLock* const aLocks_[3]                  = {&bank1_, &bank2_, &options_};
  uint32_t       changeError_                = 0;
  uint32_t       swapped_                    = 0;
  uint32_t       activeBanks_                = 0;  // of what runs; 0: the options change
  uint32_t       aBuffer_[WORDS_PER_PROGRAM] = {};
  uint32_t       bufferAddress_              = FLASH_BASE;
  uint32_t       bufferBytes_                = 0;  // a bit for each byte that was written
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
