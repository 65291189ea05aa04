// Option-byte reset for STM32F0, F1 and F3: erase the block, program the read-protection half-word,
// leave all else erased. Names and addresses: reference manuals RM0091 (F0), PM0075 (F1) and RM0316
// (F3).

#include <string.h>

#include "app/family.h"
#include "app/print.h"
#include "app/reset.h"
#include "app/target.h"
#include "probeapi/quobearm.h"

static constexpr uint32_t DBGMCU_APB1_FZ_F0 = 0x40015808;
static constexpr uint32_t DBGMCU_APB1_FZ_F3 = 0xE0042008;
static constexpr uint32_t DBGMCU_CR_F1      = 0xE0042004;
static constexpr uint32_t RCC_CR            = 0x40021000;
static constexpr uint32_t FLASH_KEYR        = 0x40022004;
static constexpr uint32_t FLASH_OPTKEYR     = 0x40022008;
static constexpr uint32_t FLASH_SR          = 0x4002200C;
static constexpr uint32_t FLASH_CR          = 0x40022010;
static constexpr uint32_t OPTION_BYTES      = 0x1FFFF800;  // 16 bytes; first half-word RDP, nRDP

static constexpr uint32_t APB1_FZ_WWDG_STOP = 1u << 11, APB1_FZ_IWDG_STOP = 1u << 12;
static constexpr uint32_t CR_IWDG_STOP_F1 = 1u << 8, CR_WWDG_STOP_F1 = 1u << 9;

static constexpr uint32_t RCC_HSION = 1u << 0, RCC_HSIRDY = 1u << 1;
static constexpr uint32_t RCC_HSITRIM_16 = 1u << 7;  // trim field at 16, its reset value

static constexpr uint32_t SR_BSY   = 1u << 0;
static constexpr uint32_t CR_OPTPG = 1u << 4, CR_OPTER = 1u << 5, CR_STRT = 1u << 6;
static constexpr uint32_t CR_OPTWRE = 1u << 9, CR_OBL_LAUNCH = 1u << 13;

static constexpr uint32_t KEY1 = 0x45670123, KEY2 = 0xCDEF89AB;

// Read protection level 0. The hardware adds the complement in the upper byte.
static constexpr uint16_t RDP_LEVEL0_F1 = 0x00A5, RDP_LEVEL0_F0_F3 = 0x00AA;

static constexpr uint32_t NUM_OPTION_WORDS = 4;

// The block afterwards: all but the RDP half-word stays erased.
static const uint32_t FactoryWordsF1[NUM_OPTION_WORDS]   = {0xFFFF5AA5, 0xFFFFFFFF, 0xFFFFFFFF,
                                                            0xFFFFFFFF};
static const uint32_t FactoryWordsF0F3[NUM_OPTION_WORDS] = {0xFFFF55AA, 0xFFFFFFFF, 0xFFFFFFFF,
                                                            0xFFFFFFFF};

// A watchdog must not reset the device in the middle of the programming.
static void FreezeWatchdogs(int32_t FamilyId) {
  switch (FamilyId) {
    case FAMILY_F0:
      QUOBEARM_WriteU32(DBGMCU_APB1_FZ_F0, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
      break;
    case FAMILY_F3:
      QUOBEARM_WriteU32(DBGMCU_APB1_FZ_F3, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
      break;
    default:
      QUOBEARM_WriteU32(DBGMCU_CR_F1, CR_IWDG_STOP_F1 | CR_WWDG_STOP_F1);
      break;
  }
}

// Programming the flash needs the internal oscillator.
static void StartHsi(void) {
  const uint32_t Control = ReadWordOrZero(RCC_CR);
  if ((Control & (RCC_HSION | RCC_HSIRDY)) == (RCC_HSION | RCC_HSIRDY)) {
    return;
  }
  QUOBEARM_WriteU32(RCC_CR, Control | RCC_HSION | RCC_HSITRIM_16);
  while ((ReadWordOrZero(RCC_CR) & RCC_HSIRDY) == 0) {
    // no time-out, on purpose
  }
}

static void UnlockOptionBytes(void) {
  QUOBEARM_WriteU32(FLASH_KEYR, KEY1);
  QUOBEARM_WriteU32(FLASH_KEYR, KEY2);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, KEY1);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, KEY2);
}

static void EraseOptionBytes(void) {
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE | CR_OPTER);
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE | CR_OPTER | CR_STRT);
  WaitWhileSet(FLASH_SR, SR_BSY);
}

static void ProgramReadProtection(uint16_t Rdp) {
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE);
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE | CR_OPTPG);
  QUOBEARM_WriteU16(OPTION_BYTES, Rdp);
  WaitWhileSet(FLASH_SR, SR_BSY);
}

static void ReloadOptionBytes(void) {
  QUOBEARM_WriteU32(FLASH_CR, CR_OBL_LAUNCH);
  WaitWhileSet(FLASH_SR, SR_BSY);
}

int32_t ResetOptionBytesF0F1F3(int32_t FamilyId) {
  const uint16_t  Rdp      = FamilyId == FAMILY_F1 ? RDP_LEVEL0_F1 : RDP_LEVEL0_F0_F3;
  const uint32_t* pFactory = FamilyId == FAMILY_F1 ? FactoryWordsF1 : FactoryWordsF0F3;

  FreezeWatchdogs(FamilyId);
  ResetTargetNormally();

  PrintProgress("Reset option bytes to factory settings...");
  StartHsi();
  UnlockOptionBytes();
  EraseOptionBytes();
  ProgramReadProtection(Rdp);
  if (FamilyId == FAMILY_F3) {
    ReloadOptionBytes();  // F0 and F1 go without, on purpose: the reset below is all they get
  }
  QUOBEARM_Reset();

  uint32_t Words[NUM_OPTION_WORDS];
  ReadWordsOrZero(OPTION_BYTES, Words, NUM_OPTION_WORDS);
  if (memcmp(Words, pFactory, sizeof(Words)) != 0) {
    PrintLine("Resetting option bytes failed.");
    return -1;
  }
  PrintLine("O.K.");
  return 0;
}
