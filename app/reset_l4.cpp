// SPDX-License-Identifier: MIT

// Option-byte reset for STM32L4x6: first FLASH_OPTR, through read protection level 1 so that the
// return to level 0 erases the device; then write protection and PCROP of both banks. Names and
// addresses: reference manual RM0351.

#include <unistd.h>

#include "app/print.h"
#include "app/reset.h"
#include "app/target.h"
#include "probeapi/quobearm.h"

static constexpr uint32_t DBGMCU_APB1FZR1 = 0xE0042008;
static constexpr uint32_t FLASH_KEYR      = 0x40022008;
static constexpr uint32_t FLASH_OPTKEYR   = 0x4002200C;
static constexpr uint32_t FLASH_SR        = 0x40022010;
static constexpr uint32_t FLASH_CR        = 0x40022014;
static constexpr uint32_t FLASH_OPTR      = 0x40022020;
static constexpr uint32_t FLASH_PCROP1SR  = 0x40022024;
static constexpr uint32_t FLASH_PCROP1ER  = 0x40022028;
static constexpr uint32_t FLASH_WRP1AR    = 0x4002202C;
static constexpr uint32_t FLASH_WRP1BR    = 0x40022030;
static constexpr uint32_t FLASH_PCROP2SR  = 0x40022044;
static constexpr uint32_t FLASH_PCROP2ER  = 0x40022048;
static constexpr uint32_t FLASH_WRP2AR    = 0x4002204C;
static constexpr uint32_t FLASH_WRP2BR    = 0x40022050;

static constexpr uint32_t APB1FZR1_WWDG_STOP = 1u << 11, APB1FZR1_IWDG_STOP = 1u << 12;
static constexpr uint32_t CR_OPTSTRT = 1u << 17, CR_OBL_LAUNCH = 1u << 27;
static constexpr uint32_t OPTR_RDP = 0xFFu << 0;

static constexpr uint32_t SR_EOP = 1u << 0, SR_OPERR = 1u << 1, SR_PROGERR = 1u << 3;
static constexpr uint32_t SR_WRPERR = 1u << 4, SR_PGAERR = 1u << 5, SR_SIZERR = 1u << 6;
static constexpr uint32_t SR_PGSERR = 1u << 7, SR_MISERR = 1u << 8, SR_RDERR = 1u << 14;
static constexpr uint32_t SR_OPTVERR = 1u << 15, SR_BSY = 1u << 16;
// Required: all errors but FASTERR (bit 9).
static constexpr uint32_t SR_CLEARED = SR_EOP | SR_OPERR | SR_PROGERR | SR_WRPERR | SR_PGAERR |
                                       SR_SIZERR | SR_PGSERR | SR_MISERR | SR_RDERR | SR_OPTVERR;
static_assert(SR_CLEARED == 0xC1FB, "RM0351, FLASH_SR");

static constexpr uint32_t KEY1 = 0x45670123, KEY2 = 0xCDEF89AB;
static constexpr uint32_t OPTKEY1 = 0x08192A3B, OPTKEY2 = 0x4C5D6E7F;

static constexpr uint32_t OPTR_FACTORY = 0xFFEFF8AA;  // RDP level 0

// Any of these bits is set at level 0 (0xAA) and at level 2 (0xCC), none in most values of level 1.
static constexpr uint32_t RDP_TEST = 0xAA;

// An area whose start lies above its end protects nothing.
static constexpr uint32_t PCROP_START_NONE = 0xFFFFFFFF, PCROP_END_NONE = 0;
static constexpr uint32_t WRP_NONE = 0xFF;  // start 0xFF, end 0

static constexpr useconds_t POLL_US   = 5 * 1000;
static constexpr useconds_t RELOAD_US = 200 * 1000;

// FLASH_KEYR first: OPTLOCK opens only on an unlocked controller. Errors left over from an earlier
// operation would make the next one fail with PGSERR, so they are cleared here.
static void UnlockOptionBytes(void) {
  QUOBEARM_WriteU32(FLASH_KEYR, KEY1);
  QUOBEARM_WriteU32(FLASH_KEYR, KEY2);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, OPTKEY1);
  QUOBEARM_WriteU32(FLASH_OPTKEYR, OPTKEY2);
  QUOBEARM_WriteU32(FLASH_SR, SR_CLEARED);
}

// Programs what the option registers hold, reloads it and resets the target. The wait has no
// time-out: required.
static void LaunchOptionBytesL4(void) {
  QUOBEARM_WriteU32(FLASH_CR, ReadWordOrZero(FLASH_CR) | CR_OPTSTRT);
  // Required: the first status is read after a pause too.
  do {
    usleep(POLL_US);
  } while (ReadWordOrZero(FLASH_SR) & SR_BSY);
  QUOBEARM_WriteU32(FLASH_CR, ReadWordOrZero(FLASH_CR) | CR_OBL_LAUNCH);
  // The reload resets the device, which sets the locks again; the probe may see the write above
  // fail. A plain reset would load nothing.
  usleep(RELOAD_US);

  PrintText("Reset target...");
  QUOBEARM_Reset();
  PrintLine("O.K.");
}

// Writes areas that protect nothing to the registers of write protection and PCROP. They are not
// programmed yet.
//
// A PCROP area that survived the erase (PCROP_RDP was 0) stays: at level 0 the device ignores a
// smaller one without an error.
static void WriteProtectionAreas(void) {
  UnlockOptionBytes();
  QUOBEARM_WriteU32(FLASH_PCROP1SR, PCROP_START_NONE);
  QUOBEARM_WriteU32(FLASH_PCROP1ER, PCROP_END_NONE);
  QUOBEARM_WriteU32(FLASH_PCROP2SR, PCROP_START_NONE);
  QUOBEARM_WriteU32(FLASH_PCROP2ER, PCROP_END_NONE);
  QUOBEARM_WriteU32(FLASH_WRP1AR, WRP_NONE);
  QUOBEARM_WriteU32(FLASH_WRP1BR, WRP_NONE);
  QUOBEARM_WriteU32(FLASH_WRP2AR, WRP_NONE);
  QUOBEARM_WriteU32(FLASH_WRP2BR, WRP_NONE);
}

int32_t ResetOptionBytesL4(void) {
  QUOBEARM_WriteU32(DBGMCU_APB1FZR1, APB1FZR1_WWDG_STOP | APB1FZR1_IWDG_STOP);
  ResetTargetKeepingType();

  PrintLine("Reset option bytes to factory settings...");
  PrintLine("Resetting FLASH_OPTR...");
  // From level 0 the device does not erase itself; it does on the way back from level 1.
  const uint32_t OptR = ReadWordOrZero(FLASH_OPTR);
  if (OptR & RDP_TEST) {
    UnlockOptionBytes();
    QUOBEARM_WriteU32(FLASH_OPTR, OptR & ~OPTR_RDP);  // RDP zero: level 1
    LaunchOptionBytesL4();
  }
  // From level 1 this erases the flash, SRAM2 and the backup registers.
  UnlockOptionBytes();
  QUOBEARM_WriteU32(FLASH_OPTR, OPTR_FACTORY);
  LaunchOptionBytesL4();
  // FLASH_OPTR holds what was loaded. Its reserved bits read as 1, as in the factory value.
  if (ReadWordOrZero(FLASH_OPTR) != OPTR_FACTORY) {
    PrintLine("Could not reset OPTR...");
    return -1;
  }

  // Required: this last stage is not read back, and "O.K." comes before it is programmed.
  PrintText("Resetting Write protection (WRP) and PCROP...");
  WriteProtectionAreas();
  PrintLine("O.K.");
  LaunchOptionBytesL4();
  PrintLine("Option bytes reset to factory settings.");
  return 0;
}
