// app/reset.h
// SPDX-License-Identifier: MIT
//
// The option-byte reset of each family: the register sequence of its reference manual that brings
// the option bytes to their factory values.
//
// Before a call the probe is open, SWD is selected and the target voltage is high enough. Each
// routine prints what it does and how it ended. Some report a failure in words only and return 0.
// The table of routines in flow.cpp shows which results become the exit status.

#ifndef APP_RESET_H
#define APP_RESET_H

#include <stdint.h>

// The option-byte block at 0x1FFFF800. FamilyId: FAMILY_F0, FAMILY_F1 or FAMILY_F3.
// 0: verified; -1: the block does not read back as expected. The waits for HSIRDY and BSY have no
// time-out.
int32_t ResetOptionBytesF0F1F3(int32_t FamilyId);

// FLASH_OPTCR and FLASH_OPTCR1. FamilyId: FAMILY_F2, FAMILY_F4, FAMILY_F72_F75 or FAMILY_F76_F77.
// 0: the device finished; only the printed words show whether it verified. -1: it was busy for 25 s
// and has been reset. Another negative value: the first FLASH_OPTCR read failed with it.
int32_t ResetOptionBytesF2F4F7(int32_t FamilyId);

// The option words at 0x1FF80000. Always 0; success and failure are reported in words. The L0
// routine makes a second attempt if the first one fails. The waits for BSY have no time-out.
int32_t ResetOptionBytesL0(void);
int32_t ResetOptionBytesL1(void);

// FLASH_OPTR, then write protection and PCROP of both banks. 0: done; -1: FLASH_OPTR does not read
// back as written. Nothing else is read back. The waits for BSY have no time-out.
int32_t ResetOptionBytesL4(void);

// The option registers of both banks. 0: all ten read back as written. -1: one does not, or a bank
// was busy for 20 s; the latter without a message.
int32_t ResetOptionBytesH7(void);

#endif
