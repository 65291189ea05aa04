// sim/f4/f4.h
// SPDX-License-Identifier: MIT
//
// Flash controller of STM32F2, F4 and F7: option bytes are written as whole registers (OPTCR and,
// where they exist, OPTCR1 and OPTCR2), stored when OPTSTRT is set, and loaded at reset.
// Reference manuals RM0033 (F2), RM0090 (F4), RM0385, RM0410 and RM0431 (F7).

#ifndef SIM_F4_F4_H
#define SIM_F4_F4_H

#include <array>

#include "silicon/layout.h"
#include "sim/catalog.h"
#include "sim/controller.h"
#include "sim/request.h"

namespace sim::f4 {

// -- Registers by their offset, and their bits ---------------------------------------------------

inline constexpr uint32_t BASE = 0x40023C00;
inline constexpr uint32_t ACR = 0x00, KEYR = 0x04, OPTKEYR = 0x08, SR = 0x0C, CR = 0x10,
                          OPTCR = 0x14, OPTCR1 = 0x18, OPTCR2 = 0x1C;

inline constexpr uint32_t SR_EOP = 1u << 0, SR_OPERR = 1u << 1, SR_WRPERR = 1u << 4,
                          SR_PGPERR = 1u << 6, SR_PGSERR = 1u << 7, SR_RDERR = 1u << 8,
                          SR_BSY = 1u << 16;
inline constexpr uint32_t CR_PG = 1u << 0, CR_SER = 1u << 1, CR_MER = 1u << 2, CR_MER1 = 1u << 15,
                          CR_STRT = 1u << 16, CR_EOPIE = 1u << 24, CR_ERRIE = 1u << 25,
                          CR_LOCK = 1u << 31;
// WDG_SW is called IWDG_SW on F7, which alone has WWDG_SW.
inline constexpr uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTRT = 1u << 1, OPTCR_WWDG_SW = 1u << 4,
                          OPTCR_WDG_SW = 1u << 5, OPTCR_nDBANK = 1u << 29, OPTCR_DB1M = 1u << 30,
                          OPTCR_SPRMOD = 1u << 31;
inline constexpr uint32_t OPTCR2_PCROP = 0xFF, OPTCR2_PCROP_RDP = 1u << 31;

enum { FLASH_LOCK, OPTION_LOCK };

// Values of all option words; those that a device does not have are 0.
enum { WORD_OPTCR, WORD_OPTCR1, WORD_OPTCR2, MAX_WORDS };
using WORDS = std::array<uint32_t, MAX_WORDS>;

// -- Rows ----------------------------------------------------------------------------------------

enum PCROP_KIND {
  NO_PCROP,
  BY_SPRMOD,  // the protection bits, read the other way round
  BY_OPTCR2   // its own bits
};

struct F4_FAMILY {
  FAMILY     Common = {};
  PCROP_KIND Pcrop  = NO_PCROP;
};

// Open questions of the manuals.
extern const VARIANT_ROW F4_LEVEL_AT_ONCE, F4_OPTKEY_BUS_ERROR, F4_DB1M_FREE_WITH_SPRMOD;

// -- The controller ------------------------------------------------------------------------------

struct SECTOR {
  uint32_t Bank, InBank, Address, Bytes;

  uint32_t Number() const { return 12 * Bank + InBank; }  // however many the first bank has
  uint32_t Code() const { return 16 * Bank + InBank; }    // in SNB
};

class ControllerF4 : public Controller {
 public:
  ControllerF4(Surroundings& Around, const silicon::DEVICE& Facts, const F4_FAMILY& Family);

  // controller.cpp
  bool MustWait(const ACCESS& Access) const override;
  bool ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue) override;
  bool WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) override;

  // options.cpp
  bool        InOptionArea(uint32_t Address) const override;
  bool        ReadOptionArea(uint32_t Address, uint32_t* pWord) override;
  bool        WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override;
  std::string Remarks() const override;

  // flash.cpp
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override;

 protected:
  bool         LoadsAtReset() const override { return true; }
  void         OnReset(bool /*IsNew*/, bool /*IsPowerOn*/) override {}
  void         Perform(const PHASE& Phase, uint32_t DonePerMille) override;
  void         FinishPhase(const PHASE& Phase) override;
  bool         ReadFlash(const Memory& Source, uint32_t Address, uint32_t* pValue) override;
  CAPABILITIES Can() const override;
  bool         Protect(const CREATE_REQUEST& Request, std::string* psError) override;

 private:
  // controller.cpp
  void WriteControl(uint32_t Value);
  bool RunsIn(uint32_t Bank) const;
  void SetError(uint32_t Flags);

  // options.cpp
  WORDS       Words(uint32_t (Controller::*pfOf)(int) const) const;
  WORDS       StoredWords() const { return Words(&Controller::Stored); }
  WORDS       LoadedWords() const { return Words(&Controller::Loaded); }
  void        StoreWords(const WORDS& Words);
  void        LoadProtection();
  void        WriteOption(uint32_t Offset, uint32_t Value);
  void        StartOptions();
  const char* BrokenRule(bool Unprotects) const;
  void        EraseOptions();
  uint32_t    WrpMask(size_t Index) const;
  uint32_t    NumWrpBits() const;
  uint32_t    WrpBits(const WORDS& Words) const;
  bool        IsSprmod(const WORDS& Words) const;
  uint32_t    ExecuteOnlyBits() const;
  uint32_t    ProtectedBits() const;

  // flash.cpp
  bool                       StartErase();
  uint64_t                   MassEraseUs() const;
  void                       EraseSectors(uint32_t What, uint32_t DonePerMille);
  bool                       IsSplit() const;
  const std::vector<SECTOR>& Sectors() const { return IsSplit() ? splitSectors_ : sectors_; }
  uint32_t                   NumBanks() const { return Sectors().back().Bank + 1; }
  const SECTOR&              SectorAt(uint32_t Address) const;
  bool                       IsIn(uint32_t Bits, const SECTOR& Sector) const;

  const F4_FAMILY&       family_;
  const silicon::LAYOUT& layout_;
  std::vector<SECTOR>    sectors_, splitSectors_;
  WORDS                  toProgram_ = {};
};

}  // namespace sim::f4

#endif
