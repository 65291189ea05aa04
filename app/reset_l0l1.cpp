// SPDX-License-Identifier: MIT

// Option-byte reset for STM32L0 and L1: first the read protection (a protected device mass-erases
// when level 0 is loaded), then the other option words. Each stage ends with a reload. Names and
// addresses: reference manuals RM0367 (L0) and RM0038 (L1).

#include <string.h>

#include "app/family.h"
#include "app/print.h"
#include "app/reset.h"
#include "app/target.h"
#include "probeapi/quobearm.h"

// This is the address on L1. On L0 the register is elsewhere, so the write freezes nothing there;
// it is required all the same.
static constexpr uint32_t DBGMCU_APB1_FZ = 0xE0042008;
static constexpr uint32_t OPTION_WORDS   = 0x1FF80000;

static constexpr uint32_t APB1_FZ_WWDG_STOP = 1u << 11, APB1_FZ_IWDG_STOP = 1u << 12;
static constexpr uint32_t PECR_PELOCK = 1u << 0, PECR_PRGLOCK = 1u << 1, PECR_OPTLOCK = 1u << 2;
static constexpr uint32_t PECR_LOCKS      = PECR_PELOCK | PECR_PRGLOCK | PECR_OPTLOCK;
static constexpr uint32_t PECR_OBL_LAUNCH = 1u << 18;
static constexpr uint32_t SR_BSY          = 1u << 0;
static constexpr uint32_t SR_WRPERR = 1u << 8, SR_PGAERR = 1u << 9;
static constexpr uint32_t SR_SIZERR = 1u << 10, SR_OPTVERR = 1u << 11;
static constexpr uint32_t SR_ERRORS = SR_WRPERR | SR_PGAERR | SR_SIZERR | SR_OPTVERR;

static constexpr uint32_t PEKEY1 = 0x89ABCDEF, PEKEY2 = 0x02030405;
static constexpr uint32_t OPTKEY1 = 0xFBEAD9C8, OPTKEY2 = 0x24252627;

// An option word holds its value in the low half and the complement in the high half. On these
// families software has to form the complement.
static constexpr uint32_t OptionWord(uint16_t Value) {
  return Value | ((uint32_t)(uint16_t)~Value << 16);
}

static constexpr uint32_t MAX_WORDS = 5;

namespace {
// The same interface on both families, at different addresses.
struct VARIANT {
  int32_t  FamilyId;
  uint32_t PECR;
  uint32_t PEKEYR;
  uint32_t OPTKEYR;
  uint32_t SR;
  uint32_t FactoryWords[MAX_WORDS];
  uint32_t NumWords;
  int      NumAttempts;
};
}  // namespace

static const VARIANT Variants[] = {
    {
        .FamilyId = FAMILY_L0,
        .PECR     = 0x40022004,
        .PEKEYR   = 0x4002200C,
        .OPTKEYR  = 0x40022014,
        .SR       = 0x40022018,
        // The last two words have a meaning on L07x and L08x only. They are written to the others
        // too: required.
        .FactoryWords =
            {
                OptionWord(0x00AA),                                          // RDP level 0
                OptionWord(0x8070),                                          // user options
                OptionWord(0x0000), OptionWord(0x0000), OptionWord(0x0000),  // no write protection
            },
        .NumWords = 5,
        // A device with PCROP at level 0 may refuse level 0 in the first attempt and stay at level
        // 1. From there the second attempt erases it, and PCROP with it.
        .NumAttempts = 2,
    },
    {
        .FamilyId = FAMILY_OTHERS,  // L1
        .PECR     = 0x40023C04,
        .PEKEYR   = 0x40023C0C,
        .OPTKEYR  = 0x40023C14,
        .SR       = 0x40023C18,
        // Larger devices have further words, for the write protection above 128 KB. They stay as
        // they are: required. On devices with two banks 0x0078 also clears nBFB2.
        .FactoryWords =
            {
                OptionWord(0x00AA),                      // RDP level 0
                OptionWord(0x0078),                      // user options
                OptionWord(0x0000), OptionWord(0x0000),  // no write protection
            },
        .NumWords    = 4,
        .NumAttempts = 1,
    },
};

// FLASH_PEKEYR first: FLASH_OPTKEYR counts only when PELOCK is clear. Each reset sets all locks
// again.
static void UnlockOptionBytes(const VARIANT* pVariant) {
  QUOBEARM_WriteU32(pVariant->PEKEYR, PEKEY1);
  QUOBEARM_WriteU32(pVariant->PEKEYR, PEKEY2);
  QUOBEARM_WriteU32(pVariant->OPTKEYR, OPTKEY1);
  QUOBEARM_WriteU32(pVariant->OPTKEYR, OPTKEY2);
}

// Index: of the word, from OPTION_WORDS on. The device erases the word before it programs it.
static void WriteOptionWord(const VARIANT* pVariant, uint32_t Index, uint32_t Value) {
  QUOBEARM_WriteU32(OPTION_WORDS + 4 * Index, Value);
  WaitWhileSet(pVariant->SR, SR_BSY);
}

// Loads the option words from memory. Until then the old ones are in force. The device resets
// itself with it, so the probe may see the write fail: ignored. The second reset halts the core.
static void ReloadOptionBytes(const VARIANT* pVariant) {
  QUOBEARM_WriteU32(pVariant->PECR, PECR_OBL_LAUNCH);
  QUOBEARM_Reset();
}

// Non-zero when all words read back as written. Leaves the controller unlocked.
static int ProgramAndVerify(const VARIANT* pVariant) {
  const uint32_t* pFactory = pVariant->FactoryWords;
  const uint32_t  NumWords = pVariant->NumWords;

  // The read protection. A word is cleared before it is set; a cleared one counts as level 1.
  // Words whose complements do not fit set SR_OPTVERR at each load; it is cleared with the others.
  UnlockOptionBytes(pVariant);
  QUOBEARM_WriteU32(pVariant->SR, SR_ERRORS);
  WriteOptionWord(pVariant, 0, 0);
  WriteOptionWord(pVariant, 0, pFactory[0]);
  ReloadOptionBytes(pVariant);

  // The other words. The reset has locked the controller again.
  UnlockOptionBytes(pVariant);
  QUOBEARM_WriteU32(pVariant->SR, SR_ERRORS);
  for (uint32_t i = 1; i < NumWords; i++) {
    WriteOptionWord(pVariant, i, 0);
  }
  for (uint32_t i = 1; i < NumWords; i++) {
    WriteOptionWord(pVariant, i, pFactory[i]);
  }
  ReloadOptionBytes(pVariant);

  // Reading needs no keys. They are for the lock bits that the caller sets after a good read-back.
  UnlockOptionBytes(pVariant);
  uint32_t Words[MAX_WORDS];
  ReadWordsOrZero(OPTION_WORDS, Words, NumWords);
  return memcmp(Words, pFactory, NumWords * sizeof(Words[0])) == 0;
}

// The whole sequence with its messages, up to NumAttempts times.
static void ResetOptionBytes(const VARIANT* pVariant) {
  QUOBEARM_WriteU32(DBGMCU_APB1_FZ, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
  for (int Attempt = 1;; Attempt++) {
    ResetTarget();
    PrintText("Reset option bytes to factory settings...");
    if (ProgramAndVerify(pVariant)) {
      // After a failure the locks stay open: required. The next reset sets them.
      QUOBEARM_WriteU32(pVariant->PECR, PECR_LOCKS);
      PrintLine("O.K.");
      return;
    }
    if (Attempt == pVariant->NumAttempts) {
      PrintLine("Resetting option bytes failed.");
      return;
    }
    PrintLine("Resetting option bytes failed first try, attempting 2nd try.");
  }
}

// Required: 0 in every case, a failure is reported in words only.

int32_t ResetOptionBytesL0(void) {
  ResetOptionBytes(FindFamilyRow(Variants, FAMILY_L0));
  return 0;
}

int32_t ResetOptionBytesL1(void) {
  ResetOptionBytes(FindFamilyRow(Variants, FAMILY_L1));
  return 0;
}
