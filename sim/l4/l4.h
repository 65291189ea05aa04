// sim/l4/l4.h
// SPDX-License-Identifier: MIT
//
// Flash controller of STM32L4: option registers are programmed together by OPTSTRT and loaded
// together by OBL_LAUNCH or power-on. One bank or two, each with its own protection areas. Reference
// manuals RM0351 (L47x, L49x) and RM0394 (L43x, L45x).

#ifndef SIM_L4_L4_H
#define SIM_L4_L4_H

#include "sim/catalog.h"
#include "sim/controller.h"
#include "sim/request.h"

namespace sim::l4 {

inline constexpr uint32_t BASE = 0x40022000;
inline constexpr uint32_t ACR = 0x00, PDKEYR = 0x04, KEYR = 0x08, OPTKEYR = 0x0C, SR = 0x10,
                          CR = 0x14, OPTR = 0x20;

inline constexpr uint32_t SR_EOP = 1u << 0, SR_OPERR = 1u << 1, SR_PROGERR = 1u << 3,
                          SR_WRPERR = 1u << 4, SR_PGAERR = 1u << 5, SR_SIZERR = 1u << 6,
                          SR_PGSERR = 1u << 7, SR_RDERR = 1u << 14, SR_OPTVERR = 1u << 15,
                          SR_BSY = 1u << 16, SR_PEMPTY = 1u << 17, SR_ERRORS = 0xC3FA;
inline constexpr uint32_t CR_PG = 1u << 0, CR_PER = 1u << 1, CR_MER1 = 1u << 2, CR_BKER = 1u << 11,
                          CR_MER2 = 1u << 15, CR_STRT = 1u << 16, CR_OPTSTRT = 1u << 17,
                          CR_EOPIE = 1u << 24, CR_ERRIE = 1u << 25, CR_OBL_LAUNCH = 1u << 27,
                          CR_OPTLOCK = 1u << 30, CR_LOCK = 1u << 31;

enum { FLASH_LOCK, OPTION_LOCK };

// Option words, each with a register; those of the second bank follow those of the first.
enum {
  WORD_OPTR,
  WORD_PCROP_START,
  WORD_PCROP_END,
  WORD_WRP_A,
  WORD_WRP_B,
  BANK_WORDS = 4,  // between the two banks
  MAX_WORDS  = 9
};
inline constexpr uint32_t PCROP_RDP = 1u << 31;  // in the first PCROP_END

inline constexpr uint32_t PAGE_BYTES = 2048, PCROP_UNIT = 8,
                          UNITS_PER_PAGE = PAGE_BYTES / PCROP_UNIT;

inline constexpr TIME ERASE   = {.TypicalUs = 22000, .LongestUs = 25000};  // a page or a bank
inline constexpr TIME OPTIONS = {.TypicalUs = 80000, .LongestUs = 100000};
inline constexpr TIME PROGRAM = {.TypicalUs = 82, .LongestUs = 91};

struct L4_FAMILY {
  FAMILY             Common    = {};
  int                NumBanks  = 0;
  const VARIANT_ROW* pSpareBit = nullptr;  // see L43_OPTR_BIT_20_STORED
};

// Open questions of the manuals.
extern const VARIANT_ROW L43_OPTR_BIT_20_STORED, L4_MISMATCH_BY_WORD;

class ControllerL4 : public Controller {
 public:
  ControllerL4(Surroundings& Around, const silicon::DEVICE& Facts, const L4_FAMILY& Family);

  // controller.cpp
  bool MustWait(const ACCESS& Access) const override;
  bool ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue) override;
  bool WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) override;

  // options.cpp
  bool        InOptionArea(uint32_t Address) const override;
  bool        ReadOptionArea(uint32_t Address, uint32_t* pWord) override;
  bool        WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override;
  uint32_t    Effective(int Index) const override;
  std::string LoadError() const override { return BadWords() != 0 ? "OPTVERR" : ""; }
  std::string Remarks() const override;

  // flash.cpp
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override;

 protected:
  bool         LoadsAtReset() const override { return false; }
  void         OnReset(bool IsNew, bool IsPowerOn) override;
  void         Perform(const PHASE& Phase, uint32_t DonePerMille) override;
  void         FinishPhase(const PHASE& Phase) override;
  bool         ReadFlash(const Memory& Source, uint32_t Address, uint32_t* pValue) override;
  CAPABILITIES Can() const override;
  bool         Protect(const CREATE_REQUEST& Request, std::string* psError) override;

 private:
  // controller.cpp
  bool WriteControl(uint32_t Value);
  void WriteOption(uint32_t Offset, uint32_t Value);
  void Fail(uint32_t Error);
  bool HasPendingError();

  // options.cpp
  bool        AllMatch() const;
  void        StartOptions();
  bool        Unprotects() const { return Level() == 1 && LevelOfWord(registers_[OPTR]) == 0; }
  uint32_t    Wanted(int Index) const { return registers_[Word(Index).Loaded[0].Register - BASE]; }
  uint32_t    ToProgram(int Index) const;
  void        ProgramOptions(uint32_t DonePerMille);
  SECTOR_AREA LoadedPcrop(int Bank) const;
  bool        KeepsPcrop(int Bank) const;

  // flash.cpp
  uint32_t NumPages() const { return MainFlash().Row().Bytes / PAGE_BYTES; }
  uint32_t PagesPerBank() const { return NumPages() / static_cast<uint32_t>(family_.NumBanks); }
  uint32_t PageAt(uint32_t Address) const {
    return (Address - MainFlash().Row().Base) / PAGE_BYTES;
  }
  int         BankOf(uint32_t Page) const { return static_cast<int>(Page / PagesPerBank()); }
  SECTOR_AREA PagesOf(const PHASE& Phase) const;
  bool        IsPcrop(uint32_t Address) const;
  bool        HoldsPcrop(uint32_t Page) const;
  bool        IsWriteProtected(uint32_t Page) const;
  // Unprotecting goes page by page around what is execute-only.
  bool     SparesPcrop() const { return (Loaded(WORD_PCROP_END) & PCROP_RDP) == 0; }
  void     StartErase();
  void     Erase(const PHASE& Phase, uint32_t DonePerMille);
  uint32_t ProgramError(const Memory& Target, uint32_t Address, uint32_t Size,
                        uint32_t Value) const;
  void     ProgramDoubleWord(uint32_t Address, uint32_t High, bool ToTheEnd);

  const L4_FAMILY& family_;
  uint32_t loadedEmpty_ = 0;  // PEMPTY: a device with one bank had no program at the last load
  // The address of a lower half that waits for its upper half, 0 when none does; and its content.
  uint32_t firstHalf_      = 0;
  uint32_t firstHalfValue_ = 0;
};

}  // namespace sim::l4

#endif
