// SPDX-License-Identifier: MIT

// Option-byte reset for STM32F2, F4 and F7: write FLASH_OPTCR1 and FLASH_OPTCR, start the
// programming, wait, reset, check the protection level. Names and addresses: reference manuals
// RM0033 (F2), RM0090 (F4), RM0385 and RM0410 (F7).

#include "app/clock.h"
#include "app/family.h"
#include "app/print.h"
#include "app/reset.h"
#include "app/target.h"
#include "probeapi/quobearm.h"

static constexpr uint32_t DBGMCU_IDCODE  = 0xE0042000;
static constexpr uint32_t DBGMCU_APB1_FZ = 0xE0042008;
static constexpr uint32_t FLASH_OPTKEYR  = 0x40023C08;
static constexpr uint32_t FLASH_SR       = 0x40023C0C;
static constexpr uint32_t FLASH_OPTCR    = 0x40023C14;
static constexpr uint32_t FLASH_OPTCR1   = 0x40023C18;

static constexpr uint32_t IDCODE_DEV_ID    = 0xFFF;
static constexpr uint32_t DEV_ID_F42x_F43x = 0x419, DEV_ID_F469_F479 = 0x434;

static constexpr uint32_t APB1_FZ_WWDG_STOP = 1u << 11, APB1_FZ_IWDG_STOP = 1u << 12;
static constexpr uint32_t SR_BSY        = 1u << 16;
static constexpr uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTRT = 1u << 1;
static constexpr uint32_t OPTCR_RDP = 0xFFu << 8, OPTCR_RDP_LEVEL0 = 0xAAu << 8;
static constexpr uint32_t OPTCR_SPRMOD = 1u << 31;

static constexpr uint32_t OPTKEY1 = 0x08192A3B, OPTKEY2 = 0x4C5D6E7F;

// Datasheets give a mass erase of 1 MB at the width selected after a reset, 8 bits, 16 s typically
// and 32 s at most. A slow device can therefore meet this limit: required.
static constexpr uint32_t TIMEOUT_MS = 25000;

// The values for level 1. PCROP is cleared only by a change from level 1 to level 0. With SPRMOD
// set the nWRP bits mean PCROP, and 1 protects: these values put it on all sectors, which is
// allowed at any time. Their BOR_LEV is 0, the highest brown-out threshold. It counts from the next
// reset only, and before that the factory value replaces it, unless the wait for this step runs
// out.
static constexpr uint32_t PCROP_OPTCR1 = 0x8FFF0000;
static constexpr uint32_t PCROP_OPTCR  = 0x8FFFBBE0;  // RDP 0xBB, SPRMOD kept

namespace {
struct VARIANT {
  int32_t  FamilyId;
  uint32_t FactoryOptCr1;
  uint32_t FactoryOptCr;        // without OPTSTRT
  int      OptCr1DualBankOnly;  // non-zero: only devices with two banks have FLASH_OPTCR1
};
}  // namespace

static const VARIANT Variants[] = {
    {
        .FamilyId           = FAMILY_F76_F77,
        .FactoryOptCr1      = 0x00400080,  // boot addresses 0x00200000 and 0x00100000
        .FactoryOptCr       = 0xFFFFAAFC,  // bits 29 and 28: one bank, no dual boot
        .OptCr1DualBankOnly = 0,
    },
    {
        .FamilyId           = FAMILY_F72_F75,
        .FactoryOptCr1      = 0x00400080,
        .FactoryOptCr       = 0xC0FFAAFC,
        .OptCr1DualBankOnly = 0,
    },
    {
        // nWRP is bits 27:16. On F413 and F423 it goes on to bit 30, so that this value protects
        // their sectors 12 to 15 against writing: required.
        .FamilyId           = FAMILY_OTHERS,  // F2 and F4
        .FactoryOptCr1      = 0x0FFF0000,
        .FactoryOptCr       = 0x0FFFAAEC,
        .OptCr1DualBankOnly = 1,
    },
};

// Only for a locked register: keys in a wrong sequence keep it locked until the next reset.
static void UnlockOptionBytes(void) {
  QUOBEARM_WriteU32(FLASH_OPTKEYR, OPTKEY1);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, OPTKEY2);
}

// The values are written first and started with a second write, as the manual has it. Until the
// start they are only in the register: a reset brings the stored ones back.
static void StartProgramming(uint32_t OptCr) {
  QUOBEARM_WriteU32(FLASH_OPTCR, OptCr);
  QUOBEARM_WriteU32(FLASH_OPTCR, OptCr | OPTCR_OPTSTRT);
}

// 0: the device is ready. -1: it was busy for too long; that has been printed and the device reset.
static int32_t WaitUntilReady(void) {
  const uint32_t Deadline = GetTimeMs() + TIMEOUT_MS;
  // A status that was not delivered counts as busy: an erase takes many seconds, and one failed
  // poll must not lead to a reset in the middle of it.
  while (ReadWordOr(FLASH_SR, SR_BSY) & SR_BSY) {
    // No pause between the reads; each takes about a millisecond. The comparison is signed: it
    // holds for the 24 days after the clock's first use.
    if ((int32_t)Deadline <= (int32_t)GetTimeMs()) {
      PrintLine("Timeout while waiting for device to be unsecured.");
      QUOBEARM_Reset();
      return -1;
    }
  }
  return 0;
}

int32_t ResetOptionBytesF2F4F7(int32_t FamilyId) {
  const VARIANT* pVariant = FindFamilyRow(Variants, FamilyId);

  // Some F4 devices have two banks. The device's id shows which; the user chose no more than F4. If
  // the id is not delivered, DevId is 0 and the device counts as one with a single bank.
  const uint32_t DevId    = ReadWordOrZero(DBGMCU_IDCODE) & IDCODE_DEV_ID;
  const int      DualBank = DevId == DEV_ID_F42x_F43x || DevId == DEV_ID_F469_F479;
  // A watchdog that resets the device during the erase would leave the options erased, which is
  // level 1. The freeze bits survive the reset and count while the core is halted.
  QUOBEARM_WriteU32(DBGMCU_APB1_FZ, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
  ResetTarget();

  PrintText("Reset option bytes (may take app. 20 seconds)...");
  uint32_t      OptCr;
  const int32_t Result = ReadWord(FLASH_OPTCR, &OptCr);
  if (Result < 0) {
    PrintLine("Memory read failed.\nUnlock not successful.");
    return Result;
  }
  if (OptCr & OPTCR_OPTLOCK) {
    UnlockOptionBytes();
  }

  // PCROP is set and the device at level 0: go to level 1 first, so that the next step clears it.
  // Asked to clear it at level 0, the device would refuse the whole change. No reset in between:
  // the register stays unlocked.
  if (DualBank && (OptCr & (OPTCR_SPRMOD | OPTCR_RDP)) == (OPTCR_SPRMOD | OPTCR_RDP_LEVEL0)) {
    QUOBEARM_WriteU32(FLASH_OPTCR1, PCROP_OPTCR1);
    StartProgramming(PCROP_OPTCR);
    if (WaitUntilReady() < 0) {
      return -1;
    }
  }

  if (DualBank || !pVariant->OptCr1DualBankOnly) {
    QUOBEARM_WriteU32(FLASH_OPTCR1, pVariant->FactoryOptCr1);
  }
  StartProgramming(pVariant->FactoryOptCr);
  if (WaitUntilReady() < 0) {
    return -1;
  }
  QUOBEARM_Reset();

  // Only the level is compared: which other bits exist, and how reserved ones read, differs between
  // the devices of a family.
  OptCr = ReadWordOrZero(FLASH_OPTCR);
  if ((OptCr & OPTCR_RDP) != OPTCR_RDP_LEVEL0) {
    PrintLine("Resetting option bytes failed.");
    return 0;  // required: this failure is reported in words only
  }
  PrintLine("O.K.");
  // Locked again, with all other bits as they were read. Required, although the reset has locked
  // the register, which then ignores the write.
  QUOBEARM_WriteU32(FLASH_OPTCR, OptCr | OPTCR_OPTLOCK);
  return 0;
}
