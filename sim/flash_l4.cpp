// Flash controller of STM32L4x6: option registers are programmed together by OPTSTRT and loaded
// together by OBL_LAUNCH or power-on. Reference manual RM0351.

#include "sim/controller.h"
#include "sim/device.h"
#include "sim/families.h"

namespace sim {

namespace {

enum {
  ACR,
  PDKEYR,
  KEYR,
  OPTKEYR,
  SR,
  CR,
  OPTR,
  PCROP1SR,
  PCROP1ER,
  WRP1AR,
  WRP1BR,
  PCROP2SR,
  PCROP2ER,
  WRP2AR,
  WRP2BR
};

const uint32_t SR_EOP = 1u << 0, SR_PROGERR = 1u << 3, SR_WRPERR = 1u << 4, SR_PGAERR = 1u << 5,
               SR_SIZERR = 1u << 6, SR_PGSERR = 1u << 7, SR_RDERR = 1u << 14, SR_OPTVERR = 1u << 15,
               SR_BSY    = 1u << 16;
const uint32_t SR_ERRORS = 0xC3FA;
const uint32_t CR_PG = 1u << 0, CR_PER = 1u << 1, CR_MER1 = 1u << 2, CR_BKER = 1u << 11,
               CR_MER2 = 1u << 15, CR_STRT = 1u << 16, CR_OPTSTRT = 1u << 17, CR_EOPIE = 1u << 24,
               CR_OBL_LAUNCH = 1u << 27, CR_OPTLOCK = 1u << 30, CR_LOCK = 1u << 31;
const uint32_t OPTR_IWDG_SW = 1u << 16, OPTR_MASK = 0x03BF77FF;
const uint32_t PCROP1ER_PCROP_RDP = 1u << 31;

#define AREA_FIELDS "STRT 7:0, END 23:16"
#define OPTR_FIELDS                                                                         \
  "RDP 7:0, BOR_LEV 10:8, nRST_STOP 12, nRST_STDBY 13, nRST_SHDW 14, IWDG_SW 16, "          \
  "IWDG_STOP 17, IWDG_STDBY 18, WWDG_SW 19, BFB2 20, DUALBANK 21, nBOOT1 23, SRAM2_PE 24, " \
  "SRAM2_RST 25"

// The option registers' writable bits are those of the option words below.
const REGISTER aRegisters[] = {
    {"FLASH_ACR", 0x40022000, 0x00000600, 0x00007F07, 0, 0,
     "LATENCY 2:0, PRFTEN 8, ICEN 9, DCEN 10"},
    {"FLASH_PDKEYR", 0x40022004, 0, 0, 0, 0, ""},
    {"FLASH_KEYR", 0x40022008, 0, 0, 0, 0, ""},
    {"FLASH_OPTKEYR", 0x4002200C, 0, 0, 0, 0, ""},
    {"FLASH_SR", 0x40022010, 0, 0, 0x0000C3FB, 0,
     "EOP 0, OPERR 1, PROGERR 3, WRPERR 4, PGAERR 5, SIZERR 6, PGSERR 7, MISERR 8, FASTERR 9, "
     "RDERR 14, OPTVERR 15, BSY 16"},
    {"FLASH_CR", 0x40022014, 0xC0000000, 0x07048FFF, 0, CR_LOCK | CR_OPTLOCK,
     "PG 0, PER 1, MER1 2, PNB 10:3, BKER 11, MER2 15, STRT 16, OPTSTRT 17, FSTPG 18, EOPIE 24, "
     "ERRIE 25, RDERRIE 26, OBL_LAUNCH 27, OPTLOCK 30, LOCK 31"},
    {"FLASH_OPTR", 0x40022020, 0, OPTR_MASK, 0, 0, OPTR_FIELDS},
    {"FLASH_PCROP1SR", 0x40022024, 0, 0x0000FFFF, 0, 0, "PCROP1_STRT 15:0"},
    {"FLASH_PCROP1ER", 0x40022028, 0, 0x0000FFFF, 0, PCROP1ER_PCROP_RDP,
     "PCROP1_END 15:0, PCROP_RDP 31"},
    {"FLASH_WRP1AR", 0x4002202C, 0, 0x00FF00FF, 0, 0, AREA_FIELDS},
    {"FLASH_WRP1BR", 0x40022030, 0, 0x00FF00FF, 0, 0, AREA_FIELDS},
    {"FLASH_PCROP2SR", 0x40022044, 0, 0x0000FFFF, 0, 0, "PCROP2_STRT 15:0"},
    {"FLASH_PCROP2ER", 0x40022048, 0, 0x0000FFFF, 0, 0, "PCROP2_END 15:0"},
    {"FLASH_WRP2AR", 0x4002204C, 0, 0x00FF00FF, 0, 0, AREA_FIELDS},
    {"FLASH_WRP2BR", 0x40022050, 0, 0x00FF00FF, 0, 0, AREA_FIELDS},
};

// -- Option words --------------------------------------------------------------------------------

// Stored in the order of the registers from OPTR on, those of bank 2 BANK_WORDS behind those of
// bank 1. Each has a complement behind it in memory. Of these only the one of OPTR is kept as a
// word of its own, so that it can be wrong.
enum {
  WORD_OPTR,
  WORD_PCROP_START,
  WORD_PCROP_END,
  WORD_WRP_A,
  WORD_WRP_B,
  NUM_OPTIONS          = 9,
  WORD_OPTR_COMPLEMENT = NUM_OPTIONS,
  BANK_WORDS           = 4
};

// Bits that do not exist read as ones, in PCROP1ER as laid down.
std::vector<OPTION_WORD> OptionWords() {
  return {
      {"OPTR", 0x1FFF7800, 0xFFEFF8AA, OPTR_FIELDS},
      {"PCROP1SR", 0x1FFF7808, 0xFFFFFFFF, "PCROP1_STRT 15:0"},
      {"PCROP1ER", 0x1FFF7810, 0x0FFF0000, "PCROP1_END 15:0, PCROP_RDP 31"},
      {"WRP1AR", 0x1FFF7818, 0xFF00FFFF, AREA_FIELDS},
      {"WRP1BR", 0x1FFF7820, 0xFF00FFFF, AREA_FIELDS},
      {"PCROP2SR", 0x1FFFF808, 0xFFFFFFFF, "PCROP2_STRT 15:0"},
      {"PCROP2ER", 0x1FFFF810, 0xFFFF0000, "PCROP2_END 15:0"},
      {"WRP2AR", 0x1FFFF818, 0xFF00FFFF, AREA_FIELDS},
      {"WRP2BR", 0x1FFFF820, 0xFF00FFFF, AREA_FIELDS},
      {"OPTR_COMPLEMENT", 0x1FFF7804, 0x00100755, ""},
  };
}

const uint32_t KB         = 1024;
const uint32_t FLASH_BASE = 0x08000000;
const uint32_t BANK_BYTES = 512 * KB, PAGE_BYTES = 2 * KB, PAGES_PER_BANK = 256;
const uint32_t PCROP_UNIT = 8;  // bytes

const uint64_t ERASE_US = 22000, ERASE_MAX_US = 25000;
const uint64_t OPTION_US = 80000, OPTION_MAX_US = 100000;
const uint64_t PROGRAM_US = 82, PROGRAM_MAX_US = 91;

const uint32_t KEY1 = 0x45670123, KEY2 = 0xCDEF89AB;
const uint32_t OPTKEY1 = 0x08192A3B, OPTKEY2 = 0x4C5D6E7F;

int LevelOf(uint32_t Optr) {
  const uint32_t Rdp = Optr & 0xFF;
  return Rdp == 0xAA ? 0 : Rdp == 0xCC ? 2 : 1;
}

class ControllerL4 : public Controller {
 public:
  ControllerL4(Device& Owner)
      : Controller(Owner, aRegisters, OptionWords()),
        flash_(KEY1, KEY2),
        options_(OPTKEY1, OPTKEY2) {
    flash_.ThirdKeyKills   = true;
    options_.ThirdKeyKills = true;
    State("keys", &flash_.State);
    State("option_keys", &options_.State);
    State("first_half", &firstHalf_);
    State("first_half_value", &firstHalfValue_);
    static const char* const aLoaded[]  = {"loaded_0", "loaded_1", "loaded_2",
                                           "loaded_3", "loaded_4", "loaded_5",
                                           "loaded_6", "loaded_7", "loaded_8"};
    static const char* const aProgram[] = {"program_0", "program_1", "program_2",
                                           "program_3", "program_4", "program_5",
                                           "program_6", "program_7", "program_8"};
    for (int i = 0; i < NUM_OPTIONS; i++) {
      State(aLoaded[i], &loaded_[i]);
      State(aProgram[i], &toProgram_[i]);
    }
  }

  void OnPowerOn() override {
    ResetRegisters();
    Load();
  }

  void OnSystemReset() override {
    ResetRegisters();
    if (launched_) {
      launched_ = false;
      Load();
    }
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
        if (!TakeKey(&flash_, Value, CR, CR_LOCK)) {
          CloseLocks(CR_LOCK);
          return false;
        }
        return true;
      case OPTKEYR:
        return (registers_[CR] & CR_LOCK) != 0 || TakeKey(&options_, Value, CR, CR_OPTLOCK);
      case CR:
        return WriteControl(Value);
      default:
        if (Index >= OPTR && ((registers_[CR] & CR_OPTLOCK) != 0 || Busy())) {
          return true;
        }
        registers_.Write(Index, Value);
        return true;
    }
  }

  bool InOptionArea(uint32_t Address) const override {
    return Address - 0x1FFF7800 < 0x28 || Address - 0x1FFFF808 < 0x20;
  }

  bool ReadOptionArea(uint32_t Address, uint32_t* pWord) override {
    *pWord = 0xFFFFFFFF;
    for (int i = 0; i < static_cast<int>(words_.size()); i++) {
      const uint32_t Place = words_[static_cast<size_t>(i)].Address;
      if (Place == Address) {
        *pWord = Stored(i);
        return true;
      }
      if (Place + 4 == Address) {
        *pWord = ~Stored(i);  // overruled by a word of its own at this address
      }
    }
    return true;
  }

  bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override {
    (void)Address;
    (void)Size;
    (void)Value;
    registers_[SR] |= SR_WRPERR;
    return true;
  }

  bool FilterRead(const Memory& Source, uint32_t Address, uint32_t* pValue) override {
    if (Source.Row().Kind == SRAM) {
      return true;
    }
    if (Level() != 0) {
      return false;
    }
    if (Source.Row().Kind == MAIN_FLASH && InPcrop(Address)) {
      registers_[SR] |= SR_RDERR;
      *pValue = 0;
    }
    return true;
  }

  // Flash takes double words: a first write to the lower half waits for the one to the upper half.
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override {
    if (Level() != 0 || !owner_.StallUntilReady()) {
      return false;
    }
    // A lower half is one at a multiple of 8; an edited file may name another place.
    const uint32_t Wanted = firstHalf_ == 0 ? Address & ~7u : firstHalf_ | 4;
    uint32_t       Error  = 0;
    if ((registers_[CR] & (CR_PG | CR_LOCK)) != CR_PG || (registers_[SR] & SR_ERRORS) != 0) {
      Error = SR_PGSERR;
    } else if (Size != 4) {
      Error = SR_SIZERR;
    } else if (Address != Wanted) {
      Error = SR_PGAERR;
    } else if (InPcrop(Address) || PageIsProtected(Address)) {
      Error = SR_WRPERR;
    } else if (firstHalf_ == 0) {
      firstHalf_      = Address;
      firstHalfValue_ = Value;
      return true;
    } else if (!(Target.IsErasedAt(firstHalf_) && Target.IsErasedAt(Address)) &&
               (firstHalfValue_ | Value) != 0) {
      Error = SR_PROGERR;
    } else {
      Start({{WORD_PROGRAM, owner_.Variant(TIMING_MAX) ? PROGRAM_MAX_US : PROGRAM_US, firstHalf_,
              Value}});
    }
    registers_[SR] |= Error;
    firstHalf_ = 0;
    return true;
  }

  // -- Protection

  int  Level() const override { return LevelOf(loaded_[WORD_OPTR]); }
  int  StoredLevel() const override { return Matches() ? LevelOf(Stored(WORD_OPTR)) : 1; }
  bool WatchdogByHardware() const override { return (loaded_[WORD_OPTR] & OPTR_IWDG_SW) == 0; }

  std::string Remarks() const override {
    if (!Matches()) {
      return "a complement does not match; the defaults are loaded (OPTVERR)";
    }
    for (int i = 0; i < NUM_OPTIONS; i++) {
      if (Stored(i) != loaded_[i]) {
        return "the stored option bytes are not loaded yet";
      }
    }
    return "";
  }

  bool Configure(const CREATE_REQUEST& Request, std::string* psError) override {
    if (Request.Secure) {
      *psError = "this device has no secure area";
      return false;
    }
    if (Request.sMismatch == "user") {
      *psError = "RDP and user options share a word here: use --mismatch rdp";
      return false;
    }
    uint32_t aWords[NUM_OPTIONS];
    for (int i = 0; i < NUM_OPTIONS; i++) {
      aWords[i] = Factory(i);
    }
    if (Request.User) {
      aWords[WORD_OPTR] =
          (aWords[WORD_OPTR] & ~(OPTR_MASK & ~0xFFu)) | (*Request.User & OPTR_MASK & ~0xFFu);
    }
    const uint32_t aBytes[] = {0xAA, 0xBB, 0xCC};
    const uint32_t Rdp      = Request.Rdp ? *Request.Rdp & 0xFF : aBytes[Request.Level.value_or(0)];
    aWords[WORD_OPTR]       = (aWords[WORD_OPTR] & ~0xFFu) | Rdp;
    for (uint32_t Bank = 0; Bank < 2; Bank++) {
      uint32_t First = 0;
      uint32_t Last  = 0;
      int      Found = BankPages(Request.Wrp, Request.WrpAll, Bank, &First, &Last, psError);
      if (Found < 0) {
        return false;
      }
      if (Found > 0) {
        aWords[WORD_WRP_A + BANK_WORDS * Bank] = 0xFF00FF00 | First | Last << 16;
      }
      Found = BankPages(Request.Pcrop, Request.PcropAll, Bank, &First, &Last, psError);
      if (Found < 0) {
        return false;
      }
      if (Found > 0) {
        const uint32_t PerPage                       = PAGE_BYTES / PCROP_UNIT;
        uint32_t&      End                           = aWords[WORD_PCROP_END + BANK_WORDS * Bank];
        aWords[WORD_PCROP_START + BANK_WORDS * Bank] = 0xFFFF0000 | First * PerPage;
        End = (End & 0xFFFF0000) | (Last * PerPage + PerPage - 1);
      }
    }
    if (Request.PcropRdp.value_or(0) != 0) {
      aWords[WORD_PCROP_END] |= PCROP1ER_PCROP_RDP;
    }
    for (int i = 0; i < NUM_OPTIONS; i++) {
      Store(i, aWords[i]);
    }
    Store(WORD_OPTR_COMPLEMENT, ~Stored(WORD_OPTR) ^ (Request.sMismatch == "rdp" ? 1u : 0));
    return true;
  }

 protected:
  void FinishPhase(const PHASE& Phase) override {
    switch (Phase.Kind) {
      case MASS_ERASE:
      case PAGE_ERASE:
        Erase(Phase, PagesOf(Phase));
        if (Phase.Kind == MASS_ERASE && Phase.Argument == UNPROTECT) {
          owner_.EraseKind(BACKUP);
        }
        break;
      case OPTION_PROGRAM:
        for (int i = 0; i < NUM_OPTIONS; i++) {
          Store(i, toProgram_[i]);
        }
        Store(WORD_OPTR_COMPLEMENT, ~toProgram_[WORD_OPTR]);
        registers_[CR] &= ~CR_OPTSTRT;
        break;
      default:
        ProgramDoubleWord(Phase.Argument, firstHalfValue_, Phase.Value);
        break;
    }
    registers_[CR] &= ~CR_STRT;
    registers_[SR] |= (registers_[CR] & CR_EOPIE) != 0 ? SR_EOP : 0;  // on request only
  }

  // What is cut short has already begun: half of the pages are erased, or one that is the only one.
  void AbortPhase(const PHASE& Phase) override {
    if (Phase.Kind == MASS_ERASE || Phase.Kind == PAGE_ERASE) {
      const PAGES Pages = PagesOf(Phase);
      Erase(Phase, {Pages.First, (Pages.First + Pages.End + 1) / 2});
    } else if (Phase.Kind == OPTION_PROGRAM) {
      // Erased words: no complement matches.
      for (int i = 0; i <= NUM_OPTIONS; i++) {
        Store(i, 0xFFFFFFFF);
      }
    }
  }

 private:
  struct PAGES {
    uint32_t First, End;
  };
  // A mass erase's argument; that of a page erase is the page.
  enum { BANK1, BANK2, BOTH, UNPROTECT };

  static PAGES PagesOf(const PHASE& Phase) {
    if (Phase.Kind == PAGE_ERASE) {
      return {Phase.Argument, Phase.Argument + 1};
    }
    return {Phase.Argument == BANK2 ? PAGES_PER_BANK : 0,
            Phase.Argument == BANK1 ? PAGES_PER_BANK : 2 * PAGES_PER_BANK};
  }

  // Whether a list has pages of the bank: 1 yes, 0 no, -1 not in one piece or beyond the end.
  static int BankPages(const std::vector<uint32_t>& Pages, bool All, uint32_t Bank,
                       uint32_t* pFirst, uint32_t* pLast, std::string* psError) {
    if (!CheckSectors(Pages, 2 * PAGES_PER_BANK, psError)) {
      return -1;
    }
    uint32_t NumPages = All ? PAGES_PER_BANK : 0;
    *pFirst           = All ? 0 : PAGES_PER_BANK;
    *pLast            = All ? PAGES_PER_BANK - 1 : 0;
    for (const uint32_t Page : Pages) {
      if (Page / PAGES_PER_BANK == Bank) {
        const uint32_t InBank = Page % PAGES_PER_BANK;
        *pFirst               = InBank < *pFirst ? InBank : *pFirst;
        *pLast                = InBank > *pLast ? InBank : *pLast;
        NumPages++;
      }
    }
    if (NumPages != 0 && *pLast - *pFirst + 1 != NumPages) {
      *psError = "the pages of a bank must be one area";
      return -1;
    }
    return NumPages != 0;
  }

  uint32_t Factory(int Index) const { return words_[static_cast<size_t>(Index)].Factory; }

  bool Matches() const { return Stored(WORD_OPTR) == ~Stored(WORD_OPTR_COMPLEMENT); }

  // LOCK takes OPTLOCK along.
  void CloseLocks(uint32_t LockBits) {
    if ((LockBits & CR_LOCK) != 0) {
      flash_.Close();
      LockBits |= CR_OPTLOCK;
    }
    if ((LockBits & CR_OPTLOCK) != 0) {
      options_.Close();
    }
    registers_[CR] |= LockBits;
  }

  // The option registers show what is loaded.
  void ResetRegisters() {
    firstHalf_ = 0;
    registers_.ResetAll();
    flash_.Reset();
    options_.Reset();
    for (int i = 0; i < NUM_OPTIONS; i++) {
      registers_[OPTR + i] = loaded_[i];
    }
  }

  void Load() {
    // Forced where a complement is wrong: level 1, all of the flash execute-only, no write
    // protection, user options all ones but the brown-out level.
    static const uint32_t aForced[NUM_OPTIONS] = {0xFFFFF8FF, 0xFFFF0000, 0x0FFFFFFF,
                                                  0xFF00FFFF, 0xFF00FFFF, 0xFFFF0000,
                                                  0xFFFFFFFF, 0xFF00FFFF, 0xFF00FFFF};
    for (int i = 0; i < NUM_OPTIONS; i++) {
      loaded_[i]           = Matches() ? Stored(i) : aForced[i];
      registers_[OPTR + i] = loaded_[i];
    }
    registers_[SR] |= Matches() ? 0 : SR_OPTVERR;
  }

  bool WriteControl(uint32_t Value) {
    if ((registers_[CR] & CR_LOCK) != 0) {
      return true;
    }
    if (Busy()) {
      registers_[SR] |= (Value & (CR_STRT | CR_OPTSTRT)) != 0 ? SR_PGSERR : 0;
      return true;
    }
    const bool OptionsOpen = (registers_[CR] & CR_OPTLOCK) == 0;
    registers_.Write(CR, Value);
    CloseLocks(Value & (CR_LOCK | CR_OPTLOCK));
    if ((Value & CR_PG) == 0) {
      firstHalf_ = 0;
    }
    if ((Value & CR_OBL_LAUNCH) != 0 && OptionsOpen) {
      launched_ = true;
      owner_.SystemReset(false, "OBL_LAUNCH");
      return owner_.Variant(OBL_TRANSFER_FAILS) == 0;
    }
    if ((Value & CR_OPTSTRT) != 0 && OptionsOpen) {
      StartOptions();
    } else if ((Value & CR_STRT) != 0) {
      StartErase();
    }
    return true;
  }

  void StartOptions() {
    if ((registers_[SR] & SR_ERRORS) != 0) {
      registers_[SR] |= SR_PGSERR;
      owner_.Event("not started: an error flag is set");
      return;
    }
    const bool Max = owner_.Variant(TIMING_MAX) != 0;
    for (int i = 0; i < NUM_OPTIONS; i++) {
      toProgram_[i] = registers_[OPTR + i];
    }
    std::vector<PHASE> Phases;
    if (Level() == 1 && LevelOf(toProgram_[WORD_OPTR]) == 0) {
      Phases.push_back({MASS_ERASE, 2 * (Max ? ERASE_MAX_US : ERASE_US), UNPROTECT});
      const bool HasArea = PcropValid(0) || PcropValid(1);
      if (HasArea && !PcropRdp()) {
        KeepPcrop();
      } else if (HasArea) {
        for (const int i : {WORD_PCROP_START, WORD_PCROP_END}) {
          toProgram_[i]              = Factory(i);
          toProgram_[i + BANK_WORDS] = Factory(i + BANK_WORDS);
        }
      } else {
        toProgram_[WORD_PCROP_END] &= ~PCROP1ER_PCROP_RDP;
      }
    } else {
      KeepPcrop();
    }
    Phases.push_back({OPTION_PROGRAM, Max ? OPTION_MAX_US : OPTION_US});
    registers_[CR] |= CR_OPTSTRT;
    Start(Phases);
  }

  // An area can grow. One that would shrink stays as it is, and that is no error.
  void KeepPcrop() {
    for (int Bank = 0; Bank < 2; Bank++) {
      const int  Start  = WORD_PCROP_START + BANK_WORDS * Bank;
      const int  End    = WORD_PCROP_END + BANK_WORDS * Bank;
      const bool Covers = (toProgram_[Start] & 0xFFFF) <= (loaded_[Start] & 0xFFFF) &&
                          (toProgram_[End] & 0xFFFF) >= (loaded_[End] & 0xFFFF);
      if (PcropValid(Bank) && !Covers) {
        toProgram_[Start] = loaded_[Start];
        toProgram_[End]   = loaded_[End] | (toProgram_[End] & PCROP1ER_PCROP_RDP);
      }
    }
  }

  bool PcropRdp() const { return (loaded_[WORD_PCROP_END] & PCROP1ER_PCROP_RDP) != 0; }

  uint32_t LoadedStart(int Bank) const {
    return loaded_[WORD_PCROP_START + BANK_WORDS * Bank] & 0xFFFF;
  }
  uint32_t LoadedEnd(int Bank) const {
    return loaded_[WORD_PCROP_END + BANK_WORDS * Bank] & 0xFFFF;
  }
  bool PcropValid(int Bank) const { return LoadedStart(Bank) <= LoadedEnd(Bank); }

  bool InPcrop(uint32_t Address) const {
    const uint32_t Offset = Address - FLASH_BASE;
    const int      Bank   = Offset >= BANK_BYTES;
    const uint32_t Unit   = Offset % BANK_BYTES / PCROP_UNIT;
    return Unit >= LoadedStart(Bank) && Unit <= LoadedEnd(Bank);
  }

  // Whether any part of the page is execute-only.
  bool HoldsPcrop(uint32_t Page) const {
    for (uint32_t Byte = 0; Byte < PAGE_BYTES; Byte += PCROP_UNIT) {
      if (InPcrop(FLASH_BASE + Page * PAGE_BYTES + Byte)) {
        return true;
      }
    }
    return false;
  }

  bool PageIsProtected(uint32_t Address) const {
    const uint32_t Offset = Address - FLASH_BASE;
    const int      Bank   = Offset >= BANK_BYTES;
    const uint32_t Page   = Offset % BANK_BYTES / PAGE_BYTES;
    for (const int Area : {WORD_WRP_A + BANK_WORDS * Bank, WORD_WRP_B + BANK_WORDS * Bank}) {
      if (Page >= (loaded_[Area] & 0xFF) && Page <= (loaded_[Area] >> 16 & 0xFF)) {
        return true;
      }
    }
    return false;
  }

  // With PCROP_RDP 0 unprotecting goes page by page around what is execute-only.
  void Erase(const PHASE& Phase, const PAGES& Pages) {
    const bool SparePcrop = Phase.Kind == MASS_ERASE && Phase.Argument == UNPROTECT && !PcropRdp();
    for (uint32_t Page = Pages.First; Page < Pages.End; Page++) {
      if (!SparePcrop || !HoldsPcrop(Page)) {
        owner_.FindMemory(MAIN_FLASH)->EraseRange(FLASH_BASE + Page * PAGE_BYTES, PAGE_BYTES);
      }
    }
  }

  void ProgramDoubleWord(uint32_t Address, uint32_t Low, uint32_t High) {
    Memory* pFlash = owner_.FindMemory(MAIN_FLASH);
    if (pFlash->Contains(Address + 4)) {
      pFlash->WordAt(Address)     = Low;
      pFlash->WordAt(Address + 4) = High;
    }
  }

  void StartErase() {
    if ((registers_[SR] & SR_ERRORS) != 0) {
      registers_[SR] |= SR_PGSERR;
      return;
    }
    const uint32_t Control = registers_[CR];
    const uint64_t Us      = owner_.Variant(TIMING_MAX) ? ERASE_MAX_US : ERASE_US;
    const bool     Bank1 = (Control & CR_MER1) != 0, Bank2 = (Control & CR_MER2) != 0;
    PHASE          Phase = {MASS_ERASE, Us, Bank1 && Bank2 ? BOTH : Bank1 ? BANK1 : BANK2};
    if (!Bank1 && !Bank2) {
      if ((Control & CR_PER) == 0) {
        return;
      }
      Phase.Kind     = PAGE_ERASE;
      Phase.Argument = (Control >> 3 & 0xFF) + ((Control & CR_BKER) != 0 ? PAGES_PER_BANK : 0);
    }
    const PAGES Pages = PagesOf(Phase);
    for (uint32_t Page = Pages.First; Page < Pages.End; Page++) {
      if (Level() != 0 || PageIsProtected(FLASH_BASE + Page * PAGE_BYTES) || HoldsPcrop(Page)) {
        registers_[SR] |= SR_WRPERR;
        return;
      }
    }
    registers_[CR] |= CR_STRT;
    Start({Phase});
  }

  KeyLock  flash_, options_;
  uint32_t loaded_[NUM_OPTIONS]    = {};
  uint32_t toProgram_[NUM_OPTIONS] = {};
  // The address of a lower half that waits for its upper half, 0 when none does; and its content.
  uint32_t firstHalf_      = 0;
  uint32_t firstHalfValue_ = 0;
  bool     launched_       = false;
};

// -- Devices -------------------------------------------------------------------------------------

const REGISTER aSystem[] = {
    {"DBGMCU_IDCODE", 0xE0042000, 0, 0, 0, 0, "DEV_ID 11:0, REV_ID 31:16"},
    {"DBGMCU_CR", 0xE0042004, 0, 0x000000E7, 0, 0, "DBG_SLEEP 0, DBG_STOP 1, DBG_STANDBY 2"},
    {"DBGMCU_APB1FZR1", 0xE0042008, 0, 0x82E01C3F, 0, 0, "DBG_WWDG_STOP 11, DBG_IWDG_STOP 12"},
};

const SYSTEM_BLOCK System = {aSystem, 0xE0042000, 0xE0042000, 0xE00420FF, 0xE0042008,
                             12,      0,          0,          0,          512000};

std::unique_ptr<Controller> Make(Device& Owner, const DEVICE_ROW& Device) {
  (void)Device;
  return std::make_unique<ControllerL4>(Owner);
}

}  // namespace

const DEVICE_ROW aDevicesL4[NUM_DEVICES_L4] = {
    {"STM32L476",
     "L4x6, two banks, 1 MB flash",
     0x10076415,
     &System,
     {{"flash", FLASH_BASE, 2 * BANK_BYTES, MAIN_FLASH, 0xFFFFFFFF},
      {"sram2", 0x10000000, 32 * KB, BACKUP, 0},
      {"backup", 0x40002850, 128, BACKUP, 0},
      {"sram", 0x20000000, 96 * KB, SRAM, 0}},
     Make},
};

}  // namespace sim
