// sim/h7/h7.h
// SPDX-License-Identifier: MIT
//
// Flash controller of STM32H7: two banks, each with its own view of the option registers. Values to
// program (_PRG) and values in force (_CUR) are apart; OPTSTART compares them, checks the rules of
// change, programs and reloads at once. H72x and H73x have one bank and one view.
// Reference manuals RM0433, RM0399 and RM0468.

#ifndef SIM_H7_H7_H
#define SIM_H7_H7_H

#include "sim/catalog.h"
#include "sim/controller.h"
#include "sim/request.h"

namespace sim::h7 {

// -- Registers by their offset, and their bits ---------------------------------------------------

inline constexpr uint32_t BASE  = 0x52002000;
inline constexpr uint32_t VIEW2 = 0x100;  // registers that both banks share are found there too
inline constexpr uint32_t KEYR = 0x04, OPTKEYR = 0x08, CR = 0x0C, SR = 0x10, CCR = 0x14,
                          OPTCR = 0x18, OPTSR_CUR = 0x1C, OPTSR_PRG = 0x20, OPTCCR = 0x24,
                          PRAR_CUR = 0x28, PRAR_PRG = 0x2C, SCAR_CUR = 0x30, SCAR_PRG = 0x34,
                          WPSN_CUR = 0x38, WPSN_PRG = 0x3C, BOOT_CUR = 0x40, BOOT_PRG = 0x44,
                          BOOT4_CUR = 0x48, BOOT4_PRG = 0x4C, OPTSR2_CUR = 0x70, OPTSR2_PRG = 0x74;

inline constexpr uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTART = 1u << 1, OPTCR_MER = 1u << 4,
                          OPTCR_SWAP_BANK = 1u << 31;
inline constexpr uint32_t OPTSR_OPT_BUSY = 1u << 0, OPTSR_SECURITY = 1u << 21,
                          OPTSR_OPTCHANGEERR = 1u << 30, OPTSR_SWAP_BANK_OPT = 1u << 31;
inline constexpr uint32_t OPTCCR_CLR_OPTCHANGEERR = 1u << 30;
inline constexpr uint32_t AREA_WIPE = 1u << 31;  // DMEP, DMES: unprotecting wipes the area
inline constexpr uint32_t SR_BSY = 1u << 0, SR_WBNE = 1u << 1, SR_QW = 1u << 2, SR_EOP = 1u << 16,
                          SR_WRPERR = 1u << 17, SR_PGSERR = 1u << 18, SR_STRBERR = 1u << 19,
                          SR_INCERR = 1u << 21, SR_RDPERR = 1u << 23, SR_RDSERR = 1u << 24;
inline constexpr uint32_t CR_LOCK = 1u << 0, CR_PG = 1u << 1, CR_SER = 1u << 2, CR_BER = 1u << 3,
                          CR_FW = 1u << 6, CR_START = 1u << 7, CR_EOPIE = 1u << 16;

enum { BANK1_LOCK, OPTION_LOCK, BANK2_LOCK };

// Option words; those of the second bank come WORDS_PER_BANK after those of the first.
enum { WORD_OPTSR, WORD_PRAR, WORD_SCAR, WORD_WPSN, WORDS_PER_BANK = 3 };

inline constexpr uint32_t FLASH_BASE = 0x08000000, BANK_BYTES = 1024 * silicon::KB,
                          SECTOR_BYTES = 128 * silicon::KB, SECTORS_PER_BANK = 8,
                          AREA_UNIT = 256,  // bytes
    FLASH_WORD                      = 32;   // bytes that are programmed together

// -- Rows ----------------------------------------------------------------------------------------

struct H7_FAMILY {
  FAMILY   Common   = {};
  uint32_t NumBanks = 2;
  // What the manuals leave open here; nullptr: nothing.
  const VARIANT_ROW* pOtherDelivery     = nullptr;  // with these words:
  uint32_t           OtherOptsr         = 0;
  uint32_t           OtherScar          = 0;
  const VARIANT_ROW* pBank2HasNoOptions = nullptr;
  const VARIANT_ROW* pFlashEndsAsStated = nullptr;
  const VARIANT_ROW* pSpareBitsWritable = nullptr;  // bits 25:23 of OPTSR
  const VARIANT_ROW* pSecondViewFaults  = nullptr;
};

extern const VARIANT_ROW H7_ERROR_CLEARED_ON_RESET;

// -- The controller ------------------------------------------------------------------------------

class ControllerH7 : public Controller {
 public:
  ControllerH7(Surroundings& Around, const silicon::DEVICE& Facts, const H7_FAMILY& Family);

  // controller.cpp
  bool MustWait(const ACCESS& Access) const override;
  bool ReadRegister(uint32_t Offset, uint32_t Size, uint32_t* pValue) override;
  bool WriteRegister(uint32_t Offset, uint32_t Size, uint32_t Value) override;
  bool InOptionArea(uint32_t Address) const override;
  bool ReadOptionArea(uint32_t Address, uint32_t* pWord) override;
  bool WriteOptionArea(uint32_t Address, uint32_t Size, uint32_t Value) override;

  // options.cpp
  std::string LoadError() const override { return changeError_ != 0 ? "OPTCHANGEERR" : ""; }
  std::string Remarks() const override;

  // flash.cpp
  uint32_t Place(const Memory& Source, uint32_t Address) const override;
  bool     WriteMemory(Memory& Target, uint32_t Address, uint32_t Size, uint32_t Value) override;

 protected:
  bool         LoadsAtReset() const override { return true; }
  void         OnReset(bool IsNew, bool IsPowerOn) override;
  void         Perform(const PHASE& Phase, uint32_t DonePerMille) override;
  void         FinishPhase(const PHASE& Phase) override;
  bool         ReadFlash(const Memory& Source, uint32_t Address, uint32_t* pValue) override;
  CAPABILITIES Can() const override;
  bool         Protect(const CREATE_REQUEST& Request, std::string* psError) override;
  uint32_t     Delivered(int Index) const override;

 private:
  // controller.cpp
  bool     IsChosen(const VARIANT_ROW* pRow) const { return pRow != nullptr && Is(*pRow); }
  uint32_t Home(uint32_t Offset) const;
  bool     IsAbsent(uint32_t Home) const;
  void     WriteControl(uint32_t Bank, uint32_t Value);
  bool     RunsIn(uint32_t Bank) const;

  // options.cpp
  bool        IsSwapped() const { return (Loaded(WORD_OPTSR) & OPTSR_SWAP_BANK_OPT) != 0; }
  bool        ChangesOptions() const { return Busy() && activeBanks_ == 0; }
  uint32_t    PrgRegister(int Index) const;
  uint32_t    Prg(int Index) const { return registers_[PrgRegister(Index)]; }
  void        WritePrg(uint32_t Register, uint32_t Value);
  void        WriteOptionControl(uint32_t Value);
  void        StartChange();
  bool        Unprotects() const { return Level() == 1 && LevelOfWord(Prg(WORD_OPTSR)) == 0; }
  const char* BrokenRule(uint32_t Bank) const;

  // flash.cpp
  bool        InArea(int Word, uint32_t Address) const;
  bool        IsProtected(uint32_t Address) const;
  bool        IsSpared(uint32_t Address) const;
  bool        IsBeyond(const Memory& Source) const;
  bool        IsBlocked(uint32_t Bank) const;
  uint64_t    MassEraseUs(uint32_t Bank) const;
  const TIME& ByPsize(const TIME (&aTimes)[4], uint32_t Bank) const;
  void        StartErase(uint32_t Bank);
  void        StartBankErase(uint32_t Banks);
  void StartUnlessProtected(uint32_t Banks, uint32_t Address, uint32_t Bytes, const PHASE& Phase);
  void StartProgramming(uint32_t Bank);
  bool IsBuffered(uint32_t Bank) const;
  void EmptyBuffer();
  void ProgramBuffer(uint32_t Address, uint32_t NumBytes);
  void EraseBanks(uint32_t What, uint32_t DonePerMille);
  void EraseRange(uint32_t Address, uint32_t Bytes, uint32_t DonePerMille);

  const H7_FAMILY& family_;
  uint32_t         changeError_             = 0;
  uint32_t         activeBanks_             = 0;  // of what runs; 0: the options change
  uint32_t         aBuffer_[FLASH_WORD / 4] = {};
  uint32_t         bufferAddress_           = FLASH_BASE;
  uint32_t         bufferBytes_             = 0;  // a bit for each byte that was written
};

// The bounds of an area in units: none where START is above END, the whole bank where they are the
// same.
struct AREA {
  uint32_t Start, End;

  explicit constexpr AREA(uint32_t Word) : Start(Word & 0xFFF), End(Word >> 16 & 0xFFF) {}

  bool IsNone() const { return Start > End; }
  bool IsBank() const { return Start == End; }
  bool Holds(uint32_t Unit) const { return IsBank() || (Unit >= Start && Unit <= End); }
  bool Covers(const AREA& Old) const {
    return Old.IsNone() || IsBank() || (!Old.IsBank() && Start <= Old.Start && End >= Old.End);
  }
  bool operator==(const AREA&) const = default;
};

// The bank of an address when the banks are not swapped; its registers are at OfBank.
constexpr uint32_t BankAt(uint32_t Address) {
  return Address - FLASH_BASE >= BANK_BYTES;
}
constexpr uint32_t OfBank(uint32_t Register, uint32_t Bank) {
  return Register + Bank * VIEW2;
}
constexpr int OfBank(int Word, uint32_t Bank) {
  return Word + static_cast<int>(Bank) * WORDS_PER_BANK;
}

}  // namespace sim::h7

#endif
