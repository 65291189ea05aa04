// sys/memory.h
//
// The one place where SYS takes memory from the heap.
//
// Sizes are in bytes, unsigned 32 bit. What is taken here is given back here. The heap is the C
// library's: any thread may call, and a block may be freed by another thread than took it.

#ifndef SYS_MEMORY_H
#define SYS_MEMORY_H

#include <stdint.h>

// Takes Size bytes; their contents are undefined. Size 0 gives a block that holds nothing.
//
// Returns NULL when there is no memory. The message "Failed to allocate 0x%.8X bytes of memory!" is
// then composed and dropped: it is there for a debugger stopped at the spot and shown nowhere.
void* SYS_MEM_Alloc(uint32_t Size);

// The same. sDescription says what the memory is for; it is not used and may be NULL.
void* SYS_MEM_AllocNamed(uint32_t Size, const char* sDescription);

// Resizes pMem, which may be NULL (then it allocates), and returns the block, moved or not. Size 0
// gives a block that holds nothing.
// NULL when there is no memory; pMem is then as before and still the caller's.
void* SYS_MEM_Realloc(void* pMem, uint32_t Size);

// Gives pMem back; does nothing for NULL.
void SYS_MEM_Free(void* pMem);

// Gives *ppMem back unless it is NULL and sets it to NULL. ppMem must not be NULL.
void SYS_MEM_FreeAndClear(void** ppMem);

#endif
