// app/reset.h
//
// The option-byte reset of each family: the register sequence that brings the option bytes to their
// factory values, as the reference manual of the family has it.
//
// The probe is open, SWD is selected and the target voltage was found good. Each routine prints
// what it does and how it ended. Some tell a failure in words only and return 0; the flow's table
// of routines (flow.cpp) says which result becomes the exit status.

#ifndef APP_RESET_H
#define APP_RESET_H

#include <stdint.h>

// FLASH option-byte block at 0x1FFFF800. FamilyId: FAMILY_F0, FAMILY_F1 or FAMILY_F3.
// 0: verified; -1: the block does not read back as expected. HSIRDY and BSY are waited for without
// a time-out.
int32_t ResetOptionBytesF0F1F3(int32_t FamilyId);

// FLASH_OPTCR and FLASH_OPTCR1. FamilyId: FAMILY_F2, FAMILY_F4, FAMILY_F72_F75 or FAMILY_F76_F77.
// 0: the device finished, whether or not it verified (words tell); -1: it was busy for 25 s and was
// reset; another negative value: the first read of FLASH_OPTCR failed with it.
int32_t ResetOptionBytesF2F4F7(int32_t FamilyId);

// Option words at 0x1FF80000. Always 0, success and failure are told in words. The L0 routine makes
// a second attempt. BSY is waited for without a time-out.
int32_t ResetOptionBytesL0(void);
int32_t ResetOptionBytesL1(void);

// FLASH_OPTR, then write protection and PCROP of both banks. 0: done; -1: FLASH_OPTR does not read
// back. BSY is waited for without a time-out.
int32_t ResetOptionBytesL4(void);

// The option registers of both banks. 0: all ten read back; -1: one does not, or a bank was busy
// for 20 s (then without a message).
int32_t ResetOptionBytesH7(void);

#endif
