// SPDX-License-Identifier: MIT

// Option-byte reset for STM32F0, F1 and F3: erase the option bytes, program the half-word with the
// read protection, leave the others erased. Names and addresses: reference manuals RM0091 (F0),
// PM0075 (F1) and RM0316 (F3).
//
// An erased byte beside its erased complement (FF, FF) is loaded as FF without an error, which
// means no write protection and the default user options. So only RDP has to be programmed.

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

// Read protection level 0. The hardware forms the complement in the upper byte.
static constexpr uint16_t RDP_LEVEL0_F1 = 0x00A5, RDP_LEVEL0_F0_F3 = 0x00AA;

static constexpr uint32_t NUM_OPTION_WORDS = 4;
static constexpr uint32_t ERASED           = 0xFFFFFFFF;

namespace {
struct VARIANT {
  int32_t  FamilyId;
  uint32_t FreezeRegister;  // stops the watchdogs: a reset in mid-programming leaves RDP erased
  uint32_t FreezeBits;
  uint16_t Rdp;
  uint32_t FactoryWords[NUM_OPTION_WORDS];  // as read back: RDP programmed, the rest erased
  int      Reloads;                         // non-zero: the option bytes are reloaded by command
};
}  // namespace

static const VARIANT Variants[] = {
    {
        // F0 switches the clock of the freeze register off at reset (RCC_APB2ENR, DBGMCUEN). It is
        // not switched on: required. The write may therefore have no effect.
        .FamilyId       = FAMILY_F0,
        .FreezeRegister = DBGMCU_APB1_FZ_F0,
        .FreezeBits     = APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP,
        .Rdp            = RDP_LEVEL0_F0_F3,
        .FactoryWords   = {0xFFFF55AA, ERASED, ERASED, ERASED},
        .Reloads        = 0,  // required, although it has the command: effective at power-on
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

// The flash controller programs and erases with the clock of the internal oscillator (HSI). A reset
// starts it, so normally nothing is written here.
static void StartHsi(void) {
  const uint32_t Control = ReadWordOrZero(RCC_CR);
  if ((Control & (RCC_HSION | RCC_HSIRDY)) == (RCC_HSION | RCC_HSIRDY)) {
    return;
  }
  QUOBEARM_WriteU32(RCC_CR, Control | RCC_HSION | RCC_HSITRIM_16);
  while ((ReadWordOrZero(RCC_CR) & RCC_HSIRDY) == 0) {
    // No time-out: required, as for BSY (target.h).
  }
}

// On these families both key registers take the same two keys. FLASH_KEYR first: FLASH_OPTKEYR
// counts only on an unlocked controller. Every reset locks both. The keys must not be sent twice: a
// wrong sequence locks the controller until the next reset.
static void UnlockOptionBytes(void) {
  QUOBEARM_WriteU32(FLASH_KEYR, KEY1);
  QUOBEARM_WriteU32(FLASH_KEYR, KEY2);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, KEY1);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, KEY2);
}

// From here to the end of ProgramReadProtection() RDP is erased, which counts as level 1: a device
// that loses its power in between is protected.
static void EraseOptionBytes(void) {
  // As in the manual: select the operation, then start it with a second write. CR_OPTWRE is
  // repeated in each write because a 0 would lock the option bytes again.
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE | CR_OPTER);
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE | CR_OPTER | CR_STRT);
  WaitWhileSet(FLASH_SR, SR_BSY);
}

static void ProgramReadProtection(uint16_t Rdp) {
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE);  // ends the erase mode before the next one is selected
  QUOBEARM_WriteU32(FLASH_CR, CR_OPTWRE | CR_OPTPG);
  // A half-word: the controller programs in no other width. A protected device erases its flash
  // before it stores this value, and BSY stays set for both.
  QUOBEARM_WriteU16(OPTION_BYTES, Rdp);
  WaitWhileSet(FLASH_SR, SR_BSY);
}

// Makes the new option bytes effective; F3 resets itself with it.
static void ReloadOptionBytes(void) {
  // The device resets itself while it answers, so the probe may see this write fail: ignored.
  QUOBEARM_WriteU32(FLASH_CR, CR_OBL_LAUNCH);
  WaitWhileSet(FLASH_SR, SR_BSY);
}

int32_t ResetOptionBytesF0F1F3(int32_t FamilyId) {
  const VARIANT* pVariant = FindFamilyRow(Variants, FamilyId);

  // The freeze bits survive the reset: only power-on clears them. They count while the core is
  // halted, which it is after the reset.
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
  // F1 loads the option bytes at this reset. F0 loads them at power-on only.
  QUOBEARM_Reset();

  // The words are read from where they are stored. They can be read at every level that a debugger
  // can connect at, so this does not show whether the device has loaded them.
  uint32_t Words[NUM_OPTION_WORDS];
  ReadWordsOrZero(OPTION_BYTES, Words, NUM_OPTION_WORDS);
  if (memcmp(Words, pVariant->FactoryWords, sizeof(Words)) != 0) {
    PrintLine("Resetting option bytes failed.");
    return -1;
  }
  PrintLine("O.K.");
  return 0;
}
