// SPDX-License-Identifier: MIT

// Option-byte reset for STM32H7: first both banks to read protection level 0 without write
// protection (a protected device mass-erases), then all factory values in both banks, then a
// read-back. Names and addresses: reference manual RM0433.

#include <unistd.h>

#include "app/print.h"
#include "app/reset.h"
#include "app/target.h"
#include "probeapi/quobearm.h"

// This is the address on other families. On H7 the register is elsewhere, so the write freezes
// nothing; it is required all the same.
static constexpr uint32_t DBGMCU_APB1_FZ = 0xE0042008;

namespace {
// The option registers of one bank. In the manual those of bank 2 end in 2: FLASH_OPTCR2.
//
// PRAR, SCAR and WPSN exist once per bank. OPTKEYR, OPTCR, OPTSR and BOOT are one register each
// with two addresses, so locking through one bank locks both.
struct BANK_REGS {
  uint32_t OPTKEYR;
  uint32_t OPTCR;
  uint32_t OPTSR_CUR, OPTSR_PRG;
  uint32_t PRAR_CUR, PRAR_PRG;
  uint32_t SCAR_CUR, SCAR_PRG;
  uint32_t WPSN_CUR, WPSN_PRG;
  uint32_t BOOT_CURR, BOOT_PRGR;
};
}  // namespace

// The offsets are the same in both banks.
static constexpr BANK_REGS BankRegs(uint32_t Base) {
  return {
      .OPTKEYR   = Base + 0x08,
      .OPTCR     = Base + 0x18,
      .OPTSR_CUR = Base + 0x1C,
      .OPTSR_PRG = Base + 0x20,
      .PRAR_CUR  = Base + 0x28,
      .PRAR_PRG  = Base + 0x2C,
      .SCAR_CUR  = Base + 0x30,
      .SCAR_PRG  = Base + 0x34,
      .WPSN_CUR  = Base + 0x38,
      .WPSN_PRG  = Base + 0x3C,
      .BOOT_CURR = Base + 0x40,
      .BOOT_PRGR = Base + 0x44,
  };
}

static constexpr BANK_REGS Banks[] = {BankRegs(0x52002000), BankRegs(0x52002100)};

static constexpr uint32_t APB1_FZ_WWDG_STOP = 1u << 11, APB1_FZ_IWDG_STOP = 1u << 12;
static constexpr uint32_t OPTCR_OPTLOCK = 1u << 0, OPTCR_OPTSTART = 1u << 1;
static constexpr uint32_t OPTSR_OPT_BUSY = 1u << 0;
static constexpr uint32_t OPTSR_RDP = 0xFFu << 8, OPTSR_RDP_LEVEL0 = 0xAAu << 8;
static constexpr uint32_t WPSN_ALL_FREE = 0xFF;

static constexpr uint32_t OPTKEY1 = 0x08192A3B, OPTKEY2 = 0x4C5D6E7F;

// Level 0; no brown-out reset; watchdog started by software and running on in stop and standby; no
// reset on entering these. Bits 28 and 26 are not options.
static constexpr uint32_t OPTSR_FACTORY = 0x1416AAF0;
static constexpr uint32_t PRAR_FACTORY  = 0x000000FF;  // start above end: no PCROP area
static constexpr uint32_t SCAR_FACTORY  = 0x800000FF;  // no secure area, DMES set
static constexpr uint32_t WPSN_FACTORY  = 0x000000FF;  // no sector write-protected
static constexpr uint32_t BOOT_FACTORY  = 0x1FF00800;  // boot addresses 0x08000000 and 0x1FF00000

static constexpr useconds_t POLL_US   = 200 * 1000;
static constexpr int        MAX_POLLS = 100;  // about 20 s

// Keys go to a locked bank only: written to an open one they lock it until the next reset.
static void UnlockBank(const BANK_REGS* pBank) {
  if (ReadWordOrZero(pBank->OPTCR) & OPTCR_OPTLOCK) {
    QUOBEARM_WriteU32(pBank->OPTKEYR, OPTKEY1);
    QUOBEARM_WriteU32(pBank->OPTKEYR, OPTKEY2);
  }
}

// 0: the bank is ready. -1: it was busy for about 20 s. The value is checked after the pause and
// only in the first 100 polls; required: the 101st read is made and not used.
static int32_t WaitUntilReady(const BANK_REGS* pBank) {
  for (int NumPolls = 0;; NumPolls++) {
    const uint32_t Status = ReadWordOrZero(pBank->OPTSR_CUR);
    usleep(POLL_US);
    if (NumPolls >= MAX_POLLS) {
      return -1;
    }
    if ((Status & OPTSR_OPT_BUSY) == 0) {
      return 0;
    }
  }
}

// Programs level 0 and no write protection and leaves the other options. A protected device erases
// its flash here. 0: done. -1: the bank stayed busy.
static int32_t Unprotect(const BANK_REGS* pBank) {
  UnlockBank(pBank);
  const uint32_t Status = ReadWordOrZero(pBank->OPTSR_CUR);
  QUOBEARM_WriteU32(pBank->OPTSR_PRG, (Status & ~OPTSR_RDP) | OPTSR_RDP_LEVEL0);
  const uint32_t WriteProtection = ReadWordOrZero(pBank->WPSN_CUR);
  QUOBEARM_WriteU32(pBank->WPSN_PRG, WriteProtection | WPSN_ALL_FREE);
  const uint32_t Control = ReadWordOrZero(pBank->OPTCR);
  // The change is programmed and loaded without a reset. An interrupted one leaves the old options.
  QUOBEARM_WriteU32(pBank->OPTCR, Control | OPTCR_OPTSTART);
  if (WaitUntilReady(pBank) < 0) {
    return -1;
  }
  // Locks. The start bit is required; with nothing left to change the device ignores it.
  QUOBEARM_WriteU32(pBank->OPTCR, Control | OPTCR_OPTSTART | OPTCR_OPTLOCK);
  return 0;
}

// Programs all factory values. Required: the bank is not locked afterwards; the reset does that.
// 0: done. -1: the bank stayed busy.
//
// One value that is not allowed makes the device refuse the change as a whole: PCROP, for example,
// can go only in the change from level 1 to level 0. No status is read for this; the read-back
// finds it.
static int32_t WriteFactoryValues(const BANK_REGS* pBank) {
  UnlockBank(pBank);  // for bank 2 it is open already
  QUOBEARM_WriteU32(pBank->OPTSR_PRG, OPTSR_FACTORY);
  QUOBEARM_WriteU32(pBank->PRAR_PRG, PRAR_FACTORY);
  QUOBEARM_WriteU32(pBank->SCAR_PRG, SCAR_FACTORY);
  QUOBEARM_WriteU32(pBank->WPSN_PRG, WPSN_FACTORY);
  QUOBEARM_WriteU32(pBank->BOOT_PRGR, BOOT_FACTORY);
  QUOBEARM_WriteU32(pBank->OPTCR, ReadWordOrZero(pBank->OPTCR) | OPTCR_OPTSTART);
  return WaitUntilReady(pBank);
}

// Non-zero when the bank reads back as written. Reads no further than the first difference. The
// _CUR registers hold the options in force, not what was written to the _PRG registers.
static int IsAtFactoryValues(const BANK_REGS* pBank) {
  return ReadWordOrZero(pBank->OPTSR_CUR) == OPTSR_FACTORY &&
         ReadWordOrZero(pBank->PRAR_CUR) == PRAR_FACTORY &&
         ReadWordOrZero(pBank->SCAR_CUR) == SCAR_FACTORY &&
         ReadWordOrZero(pBank->WPSN_CUR) == WPSN_FACTORY &&
         ReadWordOrZero(pBank->BOOT_CURR) == BOOT_FACTORY;
}

int32_t ResetOptionBytesH7(void) {
  QUOBEARM_WriteU32(DBGMCU_APB1_FZ, APB1_FZ_WWDG_STOP | APB1_FZ_IWDG_STOP);
  ResetTarget();

  PrintLine("Reset option bytes to factory settings...");
  // Both banks are unprotected before the first one gets its factory values.
  for (const BANK_REGS& Bank : Banks) {
    if (Unprotect(&Bank) < 0) {
      return -1;  // required: without a message
    }
  }
  for (const BANK_REGS& Bank : Banks) {
    if (WriteFactoryValues(&Bank) < 0) {
      return -1;
    }
  }
  PrintLine("Option bytes reset to factory settings.");  // required here, before the read-back
  QUOBEARM_Reset();

  if (!IsAtFactoryValues(&Banks[0]) || !IsAtFactoryValues(&Banks[1])) {
    PrintLine("Resetting option bytes failed.");
    return -1;
  }
  PrintLine("O.K.");
  return 0;
}
