// Option-byte reset for STM32L0 and L1: read protection first (a protected device mass-erases on
// that write), the other option words second, each stage ended by a reload. Names and addresses:
// reference manuals RM0367 (L0) and RM0038 (L1).

#include <string.h>

#include "app/print.h"
#include "app/reset.h"
#include "app/target.h"
#include "probeapi/quobearm.h"

// The same interface on both families, at another place.
struct FLASH_REGS {
  uint32_t PECR;
  uint32_t PEKEYR;
  uint32_t OPTKEYR;
  uint32_t SR;
};

static constexpr FLASH_REGS FLASH_L0 = {0x40022004, 0x4002200C, 0x40022014, 0x40022018};
static constexpr FLASH_REGS FLASH_L1 = {0x40023C04, 0x40023C0C, 0x40023C14, 0x40023C18};

// On L1 this is DBGMCU_APB1_FZ. L0 has its own at another address; there the write is known to
// freeze nothing and is made all the same.
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

// An option word holds its value in the low half and the complement in the high half; here software
// has to form it.
static constexpr uint32_t OptionWord(uint16_t Value) {
  return Value | ((uint32_t)(uint16_t)~Value << 16);
}

static const uint32_t FactoryWordsL0[] = {
    OptionWord(0x00AA),                                          // read protection level 0
    OptionWord(0x8070),                                          // user options
    OptionWord(0x0000), OptionWord(0x0000), OptionWord(0x0000),  // no write protection
};
static const uint32_t FactoryWordsL1[] = {
    OptionWord(0x00AA),                      // read protection level 0
    OptionWord(0x0078),                      // user options
    OptionWord(0x0000), OptionWord(0x0000),  // no write protection
};
static constexpr uint32_t NUM_WORDS_L0 = sizeof(FactoryWordsL0) / sizeof(FactoryWordsL0[0]);
static constexpr uint32_t NUM_WORDS_L1 = sizeof(FactoryWordsL1) / sizeof(FactoryWordsL1[0]);
static constexpr uint32_t MAX_WORDS    = NUM_WORDS_L0;

static void UnlockOptionBytes(const FLASH_REGS* pFlash) {
  QUOBEARM_WriteU32(pFlash->PEKEYR, PEKEY1);
  QUOBEARM_WriteU32(pFlash->PEKEYR, PEKEY2);
  QUOBEARM_WriteU32(pFlash->OPTKEYR, OPTKEY1);
  QUOBEARM_WriteU32(pFlash->OPTKEYR, OPTKEY2);
}

static void WriteOptionWord(const FLASH_REGS* pFlash, uint32_t Index, uint32_t Value) {
  QUOBEARM_WriteU32(OPTION_WORDS + 4 * Index, Value);
  WaitWhileSet(pFlash->SR, SR_BSY);
}

// Nothing takes effect before this.
static void ReloadOptionBytes(const FLASH_REGS* pFlash) {
  QUOBEARM_WriteU32(pFlash->PECR, PECR_OBL_LAUNCH);
  QUOBEARM_Reset();
}

// Non-zero when all words read back as written. The controller is left unlocked.
static int ProgramAndVerify(const FLASH_REGS* pFlash, const uint32_t* pFactory, uint32_t NumWords) {
  UnlockOptionBytes(pFlash);
  QUOBEARM_WriteU32(pFlash->SR, SR_ERRORS);
  WriteOptionWord(pFlash, 0, 0);
  WriteOptionWord(pFlash, 0, pFactory[0]);
  ReloadOptionBytes(pFlash);

  UnlockOptionBytes(pFlash);
  QUOBEARM_WriteU32(pFlash->SR, SR_ERRORS);
  for (uint32_t i = 1; i < NumWords; i++) {
    WriteOptionWord(pFlash, i, 0);
  }
  for (uint32_t i = 1; i < NumWords; i++) {
    WriteOptionWord(pFlash, i, pFactory[i]);
  }
  ReloadOptionBytes(pFlash);

  UnlockOptionBytes(pFlash);
  uint32_t Words[MAX_WORDS];
  ReadWordsOrZero(OPTION_WORDS, Words, NumWords);
  return memcmp(Words, pFactory, NumWords * sizeof(Words[0])) == 0;
}

static void LockAndReport(const FLASH_REGS* pFlash) {
  QUOBEARM_WriteU32(pFlash->PECR, PECR_LOCKS);
  PrintLine("O.K.");
}

int32_t ResetOptionBytesL0(void) {
  QUOBEARM_WriteU32(DBGMCU_APB1_FZ, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
  for (int Attempt = 1;; Attempt++) {
    ResetTargetNormally();
    PrintProgress("Reset option bytes to factory settings...");
    if (ProgramAndVerify(&FLASH_L0, FactoryWordsL0, NUM_WORDS_L0)) {
      LockAndReport(&FLASH_L0);
      return 0;
    }
    if (Attempt == 2) {
      PrintLine("Resetting option bytes failed.");
      return 0;  // told in words only, on purpose
    }
    PrintLine("Resetting option bytes failed first try, attempting 2nd try.");
  }
}

int32_t ResetOptionBytesL1(void) {
  QUOBEARM_WriteU32(DBGMCU_APB1_FZ, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
  ResetTargetNormally();
  PrintProgress("Reset option bytes to factory settings...");
  if (ProgramAndVerify(&FLASH_L1, FactoryWordsL1, NUM_WORDS_L1)) {
    LockAndReport(&FLASH_L1);
  } else {
    PrintLine("Resetting option bytes failed.");
  }
  return 0;  // failure is told in words only, on purpose
}
