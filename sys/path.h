// sys/path.h
// SPDX-License-Identifier: MIT
//
// Directories: making them, and the two that the library keeps for each user.
//
// Paths are zero-terminated and separated by "/". Nothing here prints or keeps state. Any thread
// may call while no thread changes the environment variable HOME. An empty HOME counts as no HOME,
// so that a user's files never end up at the root of the file system.

#ifndef SYS_PATH_H
#define SYS_PATH_H

#include <stdint.h>

// The size of a path buffer, terminator included. It holds every path below the user's home that
// the library makes.
static const uint32_t SYS_PATH_SIZE = 512;

// Makes a directory and the missing directories above it.
// New directories get the permissions 0775, less the umask. An existing directory is left as it is,
// and so is a symbolic link to one; when the target of a link is missing, the target is made.
// Repeated and trailing separators are ignored.
//
// Returns 0 when the directory exists at the end, else -1: sPath is NULL or empty, something else
// has that name, there is no permission, the path or the target of a link has 1024 characters or
// more, or more than 127 directories and links are missing (which ends a circle of links). After -1
// some of the directories above may have been made.
int32_t SYS_PATH_MakeDir(const char* sPath);

// Gives the application-support directory, and makes it if it is missing.
// It is "$HOME/Library/Application Support/OSTREL". At most BufferSize and at most SYS_PATH_SIZE
// bytes of the path and its terminator are copied to pBuffer: a short buffer gets the first
// BufferSize characters and no terminator.
//
// Returns 0, or -1 with pBuffer unchanged: pBuffer is NULL, BufferSize is 0, HOME is not set, the
// path does not fit SYS_PATH_SIZE, or the directory cannot be made.
int32_t SYS_PATH_GetAppSupportDir(char* pBuffer, uint32_t BufferSize);

// Gives a directory that the program may write to.
// It is the directory of the executable with a trailing "/" if a file can be made there (one is
// made and removed). Otherwise it is "$HOME/.OSTREL", which is made if it is missing. If neither
// exists (no HOME, or a path too long for SYS_PATH_SIZE), it is the empty string.
//
// At most BufferSize characters are copied to pBuffer, and pBuffer[BufferSize - 1] is always set to
// 0. Does nothing for a NULL pBuffer or a BufferSize of 0.
void SYS_PATH_GetDataDir(char* pBuffer, uint32_t BufferSize);

#endif
