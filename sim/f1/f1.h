// sim/f1/f1.h
// SPDX-License-Identifier: MIT
//
// Flash controller of STM32F0, F1 and F3: half-word programming, option bytes stored with their
// complements in a block of 16 bytes at 0x1FFFF800, loaded into OBR and WRPR. F1 of XL density has
// a second bank, with its own registers at BANK2; options belong to the first.
// Reference manuals RM0091 (F0), PM0075 and RM0008 (F1), RM0316 (F3).

#ifndef SIM_F1_F1_H
#define SIM_F1_F1_H

#include "sim/catalog.h"
#include "sim/controller.h"
#include "sim/request.h"

namespace sim::f1 {

// -- Registers by their offset, and their bits ---------------------------------------------------

inline constexpr uint32_t BASE = 0x40022000;
inline constexpr uint32_t ACR = 0x00, KEYR = 0x04, OPTKEYR = 0x08, SR = 0x0C, CR = 0x10, AR = 0x14,
                          OBR = 0x1C, WRPR = 0x20;
inline constexpr uint32_t BANK1 = 0x00, BANK2 = 0x40;  // to be added to KEYR, SR, CR and AR

inline constexpr uint32_t SR_BSY = 1u << 0, SR_PGERR = 1u << 2, SR_WRPRTERR = 1u << 4,
                          SR_EOP = 1u << 5;
inline constexpr uint32_t CR_PG = 1u << 0, CR_PER = 1u << 1, CR_MER = 1u << 2, CR_OPTPG = 1u << 4,
                          CR_OPTER = 1u << 5, CR_STRT = 1u << 6, CR_LOCK = 1u << 7,
                          CR_OPTWRE = 1u << 9, CR_OBL_LAUNCH = 1u << 13;
inline constexpr uint32_t OBR_OPTERR = 1u << 0;

enum { FLASH_LOCK, OPTION_LOCK, BANK2_LOCK };

inline constexpr TIME PROGRAM = {.TypicalUs = 53, .LongestUs = 70};
inline constexpr TIME ERASE   = {.TypicalUs = 20000, .LongestUs = 40000};  // of a page or all

// -- Rows ----------------------------------------------------------------------------------------

enum LOADING { LOAD_ON_RESET, LOAD_ON_LAUNCH, LOAD_ON_BOTH };

struct F1_FAMILY {
  FAMILY   Common         = {};
  LOADING  Loading        = LOAD_ON_RESET;
  bool     WordAccessOnly = false;  // registers fault on bytes and half-words
  bool     WrpStepUnknown = false;  // see F1_WRP_OF_FOUR_PAGES
  uint32_t PageBytes      = 0;
  uint32_t BankBytes      = 0;  // of the first bank; 0: there is one bank
};

// Open questions of the manuals.
extern const VARIANT_ROW F1_UNPROTECT_NEEDS_POWER_ON, F1_WRP_OF_FOUR_PAGES, F3_LOAD_ON_RESET;

// -- The controller ------------------------------------------------------------------------------

class ControllerF1 : public Controller {
 public:
  ControllerF1(Surroundings& Around, const silicon::DEVICE& Facts, const F1_FAMILY& Family);

  // controller.cpp
  bool MustWait(const ACCESS& Access) const override;
  bool ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue) override;
  bool WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) override;

  // options.cpp
  bool        WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override;
  uint32_t    Effective(int Index) const override;
  std::string LoadError() const override { return BadWords() != 0 ? "OPTERR" : ""; }
  std::string Remarks() const override;

  // flash.cpp
  bool WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override;

 protected:
  bool         LoadsAtReset() const override;
  void         OnReset(bool IsNew, bool IsPowerOn) override;
  bool         ProgramsOptionWords() const override { return true; }
  void         Perform(const PHASE& Phase, uint32_t DonePerMille) override;
  void         FinishPhase(const PHASE& Phase) override;
  bool         ReadFlash(const Memory& Source, uint32_t Address, uint32_t* pValue) override;
  CAPABILITIES Can() const override;
  bool         Protect(const CREATE_REQUEST& Request, std::string* psError) override;

 private:
  // controller.cpp
  bool     WriteControl(uint32_t Bank, uint32_t Value);
  void     Begin(const std::vector<PHASE>& Phases);
  uint32_t BankOf(uint32_t Address) const;
  uint32_t BankOf(const PHASE& Phase) const;
  bool     RunsIn(uint32_t Bank) const { return Busy() && BankOf(*Running()) == Bank; }

  // options.cpp
  void ProgramOption(uint32_t Address, uint32_t Half);
  void EraseOptions(bool ToTheEnd);

  // flash.cpp
  void     StartErase(uint32_t Bank);
  bool     IsProtected(uint32_t Address) const;
  bool     IsBankProtected(uint32_t Bank) const;
  uint32_t NumWrpBits() const;
  uint32_t WrpBytes() const;
  void     EraseBanks(uint32_t What, uint32_t DonePerMille);

  const F1_FAMILY& family_;
  uint32_t         unreadable_ = 0;  // until power-on
};

}  // namespace sim::f1

#endif
