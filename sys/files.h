// sys/files.h
//
// Files: descriptors, and views of files in memory.
//
// A file handle is the plain descriptor, -1 for failure. Nothing here prints or keeps state. Any
// thread may call; threads that move the position of the same descriptor disturb each other as with
// the system's own calls.

#ifndef SYS_FILES_H
#define SYS_FILES_H

#include <stdint.h>

// Bits of an open mode. Without SYS_FILE_WRITE a file is opened for reading; bits that are not
// listed are ignored.
enum {
  SYS_FILE_READ      = 0x01,
  SYS_FILE_WRITE     = 0x02,
  SYS_FILE_CREATE    = 0x10,  // makes the file when it is missing
  SYS_FILE_TRUNCATE  = 0x20,  // empties the file, whether or not SYS_FILE_CREATE is set
  SYS_FILE_AT_END    = 0x40,  // starts at the file's end instead of at byte 0
  SYS_FILE_EXCLUSIVE = 0x80   // with SYS_FILE_CREATE: fails when the file exists and never empties
                              // it; ignored without
};

// Opens sPath with close-on-exec; a file that is made gets the permissions 0644, less the umask.
// Returns the descriptor, or -1, also for a NULL path. As always with open(), a FIFO without a
// partner is waited for.
int32_t SYS_FILE_Open(const char* sPath, uint32_t Mode);

// The same, tried again up to NumRetries times when it fails: at once for a DelayMs of 0, else each
// time after DelayMs milliseconds. For a file that another process holds for a moment.
int32_t SYS_FILE_OpenRetry(const char* sPath, uint32_t Mode, uint32_t NumRetries, uint32_t DelayMs);

// The same for regular files only, or links to them. Anything else (directory, FIFO, device) gives
// -1 without being waited for, read, written or emptied; SYS_FILE_TRUNCATE needs SYS_FILE_WRITE.
int32_t SYS_FILE_OpenRegular(const char* sPath, uint32_t Mode, uint32_t NumRetries,
                             uint32_t DelayMs);

// 1 when sPath can be opened for reading, else 0. Never waits.
int32_t SYS_FILE_Exists(const char* sPath);

// One read() or write(): the number of bytes transferred, which may be less than asked for, 0 at
// the file's end, -1 for failure. NumBytes is at most 0x7FFFFFFF; pBuffer holds that many bytes.
int32_t SYS_FILE_Read(int32_t hFile, void* pBuffer, uint32_t NumBytes);
int32_t SYS_FILE_Write(int32_t hFile, const void* pBuffer, uint32_t NumBytes);

// 0, or -1 for failure.
int32_t SYS_FILE_Close(int32_t hFile);

// lseek(): Origin is SEEK_SET, SEEK_CUR or SEEK_END. The new position in bytes, or -1.
int64_t SYS_FILE_Seek(int32_t hFile, int64_t Offset, int32_t Origin);

// Cuts or extends (with zeros) the file to Size bytes. 0, or -1 for failure.
int32_t SYS_FILE_Truncate(int32_t hFile, int64_t Size);

// The low 32 bits of the file's size in bytes; the position is as before. 0xFFFFFFFF when the
// descriptor has no position (a pipe, -1). For a file that may reach 4 GiB: SYS_FILE_Seek.
uint32_t SYS_FILE_GetSize(int32_t hFile);

// Removes the name sPath. 0, or -1 for failure.
int32_t SYS_FILE_Delete(const char* sPath);

// Maps NumBytes bytes of the file from Offset on, readable, writable and shared with the file.
// hFile must be open for reading and writing. Offset need not be a multiple of the page size.
//
// A file that ends before the view does is first extended to the view's end: a single space becomes
// its last byte, zeros fill the gap, and the position stays behind the space. Without an extension
// the position is as before.
//
// Returns the address of the byte at Offset. The view stays valid when the descriptor is closed;
// SYS_FILE_UnmapView ends it. NULL when the file cannot be extended, when the pages cannot be
// mapped, or when nothing is to be mapped (NumBytes 0 and Offset on a page boundary). A file that
// was too short may then be extended all the same, and its position moved.
void* SYS_FILE_MapView(int32_t hFile, uint64_t Offset, uint32_t NumBytes);

// Ends a view; NumBytes as given to SYS_FILE_MapView. 0, or -1 for failure.
int32_t SYS_FILE_UnmapView(void* pView, uint32_t NumBytes);

// Returns when the view's changes are in the file on its medium. 0, or -1 for failure.
int32_t SYS_FILE_FlushView(void* pView, uint32_t NumBytes);

#endif
