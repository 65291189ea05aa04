// sim/l0/l0.h
// SPDX-License-Identifier: MIT
//
// Flash controller of STM32L0 and L1: option bytes are words in the manner of data EEPROM, value in
// the lower half and complement, which software has to form, in the upper half. A word is erased and
// programmed by writing it. Reference manuals RM0367, RM0376 and RM0377 (L0), RM0038 (L1).

#ifndef SIM_L0_L0_H
#define SIM_L0_L0_H

#include "sim/catalog.h"
#include "sim/controller.h"
#include "sim/request.h"

namespace sim::l0 {

inline constexpr uint32_t ACR = 0x00, PECR = 0x04, PDKEYR = 0x08, PEKEYR = 0x0C, PRGKEYR = 0x10,
                          OPTKEYR = 0x14, SR = 0x18, OPTR = 0x1C, WRPROT1 = 0x20, WRPROT2 = 0x80,
                          WRPROT3 = 0x84, WRPROT4 = 0x88;
inline constexpr uint32_t PECR_PELOCK = 1u << 0, PECR_PRGLOCK = 1u << 1, PECR_OPTLOCK = 1u << 2,
                          PECR_PROG = 1u << 3, PECR_DATA = 1u << 4, PECR_FTDW = 1u << 8,
                          PECR_ERASE = 1u << 9, PECR_OBL_LAUNCH = 1u << 18;
inline constexpr uint32_t SR_BSY = 1u << 0, SR_EOP = 1u << 1, SR_ENDHV = 1u << 2,
                          SR_READY = 1u << 3, SR_WRPERR = 1u << 8, SR_PGAERR = 1u << 9,
                          SR_SIZERR = 1u << 10, SR_OPTVERR = 1u << 11, SR_OPTVERRUSR = 1u << 12,
                          SR_RDERR = 1u << 13, SR_NOTZEROERR = 1u << 16, SR_FWWERR = 1u << 17;
// In OPTR and the first option word: sector bits are PCROP. WPRMOD on L0, SPRMOD on L1.
inline constexpr uint32_t MODE = 1u << 8;

enum { FLASH_LOCK, PROGRAM_LOCK, OPTION_LOCK };
enum { WORD_RDP, WORD_USER, WORD_WRP };  // from WORD_WRP on those of sector bits

inline constexpr uint32_t SECTOR_BYTES = 4096, SECTORS_PER_WORD = 16;

inline constexpr TIME WORD_PHASE = {.TypicalUs = 3200, .LongestUs = 3940};  // erase or program
inline constexpr TIME MASS       = {.TypicalUs = 60000, .LongestUs = 100000};

struct L0_FAMILY {
  FAMILY             Common            = {};
  uint32_t           PageBytes         = 0;
  bool               PecrWhileBusy     = false;    // PECR takes writes during an operation
  uint32_t           NotZeroError      = 0;        // a word to program is not erased
  bool               PcropReadsFault   = false;    // they read as zeros otherwise
  bool               EraseTakesOptions = false;    // lifting level 1 clears the other words
  const VARIANT_ROW* pErratum          = nullptr;  // see L1_ERRATUM_MASS_ERASE
};

// Open questions of the manuals.
extern const VARIANT_ROW L0_SPARE_WORDS_WRITABLE, L0_L1_REFUSE_PCROP_CLEAR,
    L0_L1_ALWAYS_ERASE_OPTIONS, L1_ERRATUM_MASS_ERASE;

class ControllerL0 : public Controller {
 public:
  ControllerL0(Surroundings& Around, const silicon::DEVICE& Facts, const L0_FAMILY& Family);

  // controller.cpp
  bool MustWait(const ACCESS& Access) const override;
  bool ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue) override;
  bool WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) override;
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override;

  // options.cpp
  bool        ReadOptionArea(uint32_t Address, uint32_t* pWord) override;
  bool        WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override;
  uint32_t    Effective(int Index) const override;
  std::string LoadError() const override { return BadWords() != 0 ? "OPTVERR" : ""; }
  std::string Remarks() const override;

 protected:
  bool         LoadsAtReset() const override { return false; }
  void         OnReset(bool IsNew, bool IsPowerOn) override;
  bool         ProgramsOptionWords() const override { return true; }
  void         Perform(const PHASE& Phase, uint32_t DonePerMille) override;
  void         FinishPhase(const PHASE& Phase) override;
  bool         ReadFlash(const Memory& Source, uint32_t Address, uint32_t* pValue) override;
  CAPABILITIES Can() const override;
  bool         Protect(const CREATE_REQUEST& Request, std::string* psError) override;

 private:
  bool     WriteControl(uint32_t Value);
  void     FollowPelock();
  void     SetFlags(uint32_t Flags);
  void     WriteFlash(uint32_t Address, uint32_t Size, uint32_t Value);
  void     WriteEeprom(uint32_t Address, uint32_t Size, uint32_t Value);
  PHASE    ProgramPhase(uint32_t Address, uint32_t Value) const;
  uint32_t WordAt(uint32_t Address) const;
  void     SetWord(uint32_t Address, uint32_t Value);

  void       WriteProtectionWord(uint32_t Value);
  uint32_t   NumSectors() const { return MainFlash().Row().Bytes / SECTOR_BYTES; }
  bool       IsSpare(int Index) const { return WordOfSector(NumSectors() - 1) < Index; }
  static int WordOfSector(uint32_t Sector) {
    return WORD_WRP + static_cast<int>(Sector / SECTORS_PER_WORD);
  }
  bool HasMode() const { return Word(WORD_RDP).Loaded[0].High == 8; }
  bool IsPcropLoaded() const { return (registers_[OPTR] & MODE) != 0; }
  bool ShrinksPcrop(int Index, uint32_t Value) const;
  bool IsProtected(uint32_t Address) const;

  const L0_FAMILY& family_;
};

}  // namespace sim::l0

#endif
