// sys/path.h
//
// Directories: making them, and the two that the library keeps per user.
//
// Paths are zero-terminated, "/" separates. No state and nothing printed; any thread may call, as
// long as none changes the environment variable HOME meanwhile. An empty HOME counts as no HOME:
// what belongs to a user must not end up at the root of the file system.

#ifndef SYS_PATH_H
#define SYS_PATH_H

#include <stdint.h>

// Bytes of a path buffer, terminator counted, that holds any path below the user's home that the
// library makes.
static const uint32_t SYS_PATH_SIZE = 512;

// Makes the directory sPath and the missing ones above it, with the permissions 0775 less the
// umask. A directory that exists, or a symbolic link to one, is good as it is; a link whose target
// is missing has its target made. Repeated and trailing separators do not matter.
//
// Returns 0 when the directory is there in the end, else -1: NULL or empty path, something else in
// the way, no permission, 1024 characters or more (also in a link's target), or more than 127
// missing directories and links, which keeps a circle of links from going on. A failure can leave
// some of the parents made.
int32_t SYS_PATH_MakeDir(const char* sPath);

// The application-support directory "$HOME/Library/Application Support/OSTREL", made if missing.
//
// Copies its path with the terminator to pBuffer, at most BufferSize and at most SYS_PATH_SIZE
// bytes of it: a shorter buffer gets the first BufferSize characters and no terminator.
//
// Returns 0, or -1, pBuffer untouched, when it is NULL, when BufferSize is 0, without HOME, when
// the path would not fit SYS_PATH_SIZE, or when the directory cannot be made.
int32_t SYS_PATH_GetAppSupportDir(char* pBuffer, uint32_t BufferSize);

// A directory the program may write to: the one of the executable, with a trailing "/", when a file
// can be made there (one is made and removed), else "$HOME/.OSTREL", which is made if missing.
//
// Copies at most BufferSize characters to pBuffer and sets pBuffer[BufferSize - 1] to 0 in any
// case. Neither place to be had (no HOME, or a path too long for SYS_PATH_SIZE): the empty string.
// Does nothing for NULL or BufferSize 0.
void SYS_PATH_GetDataDir(char* pBuffer, uint32_t BufferSize);

#endif
