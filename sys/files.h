// sys/files.h
// SPDX-License-Identifier: MIT
//
// Files: descriptors, and views of files in memory.
//
// A file handle is the plain descriptor; -1 means failure. Nothing here prints or keeps state. Any
// thread may call; threads that move the position of one descriptor disturb each other, as with the
// system's own calls.

#ifndef SYS_FILES_H
#define SYS_FILES_H

#include <stdint.h>

// Bits of an open mode. Without SYS_FILE_WRITE a file is opened for reading. Other bits are
// ignored.
enum {
  SYS_FILE_READ      = 0x01,
  SYS_FILE_WRITE     = 0x02,
  SYS_FILE_CREATE    = 0x10,  // makes the file if it is missing
  SYS_FILE_TRUNCATE  = 0x20,  // empties the file, with or without SYS_FILE_CREATE
  SYS_FILE_AT_END    = 0x40,  // starts at the end of the file instead of at byte 0
  SYS_FILE_EXCLUSIVE = 0x80   // with SYS_FILE_CREATE: fails if the file exists, and never empties
                              // it; ignored without SYS_FILE_CREATE
};

// Opens a file, with close-on-exec.
// A new file gets the permissions 0644, less the umask. Opening a FIFO waits for its other end, as
// open() does.
// Returns the descriptor, or -1; -1 also for a NULL path.
int32_t SYS_FILE_Open(const char* sPath, uint32_t Mode);

// Opens a file, and tries again up to NumRetries times when that fails.
// The next try follows at once for a DelayMs of 0, else after DelayMs milliseconds. Meant for a
// file that another process holds for a moment. Returns the result of the last SYS_FILE_Open.
int32_t SYS_FILE_OpenRetry(const char* sPath, uint32_t Mode, uint32_t NumRetries, uint32_t DelayMs);

// Opens a regular file, or a link to one, with retries as SYS_FILE_OpenRetry.
// Anything else (directory, FIFO, device) gives -1; it is not waited for, read, written or emptied.
// SYS_FILE_TRUNCATE needs SYS_FILE_WRITE here.
int32_t SYS_FILE_OpenRegular(const char* sPath, uint32_t Mode, uint32_t NumRetries,
                             uint32_t DelayMs);

// Returns 1 if a file can be opened for reading, else 0.
// Never waits.
int32_t SYS_FILE_Exists(const char* sPath);

// Make one read() or write().
// Return the number of bytes transferred, which may be less than NumBytes; 0 at the end of the
// file; -1 for failure. NumBytes is at most 0x7FFFFFFF, and pBuffer holds that many bytes.
int32_t SYS_FILE_Read(int32_t hFile, void* pBuffer, uint32_t NumBytes);
int32_t SYS_FILE_Write(int32_t hFile, const void* pBuffer, uint32_t NumBytes);

// Closes a file.
// Returns 0, or -1 for failure.
int32_t SYS_FILE_Close(int32_t hFile);

// Moves the position, as lseek() does.
// Origin is SEEK_SET, SEEK_CUR or SEEK_END. Returns the new position in bytes, or -1.
int64_t SYS_FILE_Seek(int32_t hFile, int64_t Offset, int32_t Origin);

// Cuts the file to Size bytes, or extends it with zeros.
// Returns 0, or -1 for failure.
int32_t SYS_FILE_Truncate(int32_t hFile, int64_t Size);

// Returns the low 32 bits of the file's size in bytes.
// The position is unchanged. Returns 0xFFFFFFFF when the descriptor has no position (a pipe, -1).
// For a file of 4 GiB or more use SYS_FILE_Seek.
uint32_t SYS_FILE_GetSize(int32_t hFile);

// Deletes a file: removes the name sPath.
// Returns 0, or -1 for failure.
int32_t SYS_FILE_Delete(const char* sPath);

// Maps NumBytes bytes of the file from Offset on into memory.
// The view can be read and written and is shared with the file. hFile must be open for reading and
// writing. Offset need not be a multiple of the page size.
//
// A file that ends before the view does is extended to the end of the view first: a single space
// becomes its last byte, zeros fill the gap, and the position is after the space. A file that is
// long enough keeps its position.
//
// Returns the address of the byte at Offset. The view stays valid when the descriptor is closed;
// SYS_FILE_UnmapView ends it. Returns NULL when the file cannot be extended, when the pages cannot
// be mapped, or when there is nothing to map (NumBytes is 0 and Offset is on a page boundary).
// After NULL a short file may have been extended, and its position moved.
void* SYS_FILE_MapView(int32_t hFile, uint64_t Offset, uint32_t NumBytes);

// Ends a view.
// NumBytes is what SYS_FILE_MapView was given. Returns 0, or -1 for failure.
int32_t SYS_FILE_UnmapView(void* pView, uint32_t NumBytes);

// Writes the changes of a view back and waits for that, as msync() with MS_SYNC does.
// The drive may still hold them in its cache. On macOS only F_FULLFSYNC on a descriptor empties
// that cache, and it takes much longer. Returns 0, or -1 for failure.
int32_t SYS_FILE_FlushView(void* pView, uint32_t NumBytes);

#endif
