// sys/memory.h
// SPDX-License-Identifier: MIT
//
// The one place where SYS allocates memory.
//
// Sizes are in bytes, unsigned 32 bit. A block allocated here is freed here. The memory is the C
// library's heap: any thread may call, and a thread may free a block that another one allocated.

#ifndef SYS_MEMORY_H
#define SYS_MEMORY_H

#include <stdint.h>

// Allocates Size bytes.
// Their contents are undefined. Size 0 gives a block that holds nothing.
//
// Returns NULL when there is no memory. The message "Failed to allocate 0x%.8X bytes of memory!" is
// then composed for a debugger that stops there; it is not shown anywhere.
void* SYS_MEM_Alloc(uint32_t Size);

// Allocates Size bytes, as SYS_MEM_Alloc does.
// sDescription says what the memory is for. It is not used and may be NULL.
void* SYS_MEM_AllocNamed(uint32_t Size, const char* sDescription);

// Resizes a block and returns it, moved or not.
// pMem may be NULL; a new block is then allocated. Size 0 gives a block that holds nothing.
// Returns NULL when there is no memory; pMem is then unchanged and still the caller's.
void* SYS_MEM_Realloc(void* pMem, uint32_t Size);

// Frees a block.
// Does nothing for NULL.
void SYS_MEM_Free(void* pMem);

// Frees the block *ppMem and sets *ppMem to NULL.
// Does nothing when *ppMem is NULL. ppMem must not be NULL.
void SYS_MEM_FreeAndClear(void** ppMem);

#endif
