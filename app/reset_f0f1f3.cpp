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
static constexpr uint32_t ERASED           = 0xFFFFFFFF;

namespace {
struct VARIANT {
  int32_t  FamilyId;
  uint32_t FreezeRegister;  // a watchdog must not reset the device while it is programmed
  uint32_t FreezeBits;
  uint16_t Rdp;
  uint32_t FactoryWords[NUM_OPTION_WORDS];  // the block afterwards: only RDP is programmed
  int      Reloads;                         // non-zero: the option bytes are reloaded by command
};
}  // namespace

static const VARIANT Variants[] = {
    {
        .FamilyId       = FAMILY_F0,
        .FreezeRegister = DBGMCU_APB1_FZ_F0,
        .FreezeBits     = APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP,
        .Rdp            = RDP_LEVEL0_F0_F3,
        .FactoryWords   = {0xFFFF55AA, ERASED, ERASED, ERASED},
        .Reloads        = 0,  // required: the reset at the end is all it gets
    },
    {
        .FamilyId       = FAMILY_F3,
        .FreezeRegister = DBGMCU_APB1_FZ_F3,
        .FreezeBits     = APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP,
        .Rdp            = RDP_LEVEL0_F0_F3,
        .FactoryWords   = {0xFFFF55AA, ERASED, ERASED, ERASED},
        .Reloads        = 1,
    },
    {
        .FamilyId       = FAMILY_OTHERS,  // F1
        .FreezeRegister = DBGMCU_CR_F1,
        .FreezeBits     = CR_IWDG_STOP_F1 | CR_WWDG_STOP_F1,
        .Rdp            = RDP_LEVEL0_F1,
        .FactoryWords   = {0xFFFF5AA5, ERASED, ERASED, ERASED},
        .Reloads        = 0,  // F1 has no such command
    },
};

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
  const VARIANT* pVariant = FindFamilyRow(Variants, FamilyId);

  QUOBEARM_WriteU32(pVariant->FreezeRegister, pVariant->FreezeBits);
  ResetTarget();

  PrintText("Reset option bytes to factory settings...");
  StartHsi();
  UnlockOptionBytes();
  EraseOptionBytes();
  ProgramReadProtection(pVariant->Rdp);
  if (pVariant->Reloads) {
    ReloadOptionBytes();
  }
  QUOBEARM_Reset();

  uint32_t Words[NUM_OPTION_WORDS];
  ReadWordsOrZero(OPTION_BYTES, Words, NUM_OPTION_WORDS);
  if (memcmp(Words, pVariant->FactoryWords, sizeof(Words)) != 0) {
    PrintLine("Resetting option bytes failed.");
    return -1;
  }
  PrintLine("O.K.");
  return 0;
}
