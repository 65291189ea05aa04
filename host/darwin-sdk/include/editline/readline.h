// SPDX-License-Identifier: MIT

// Declarations of libedit's line editor, for cross building: only what the product calls.

#ifndef EDITLINE_READLINE_H
#define EDITLINE_READLINE_H

#ifdef __cplusplus
extern "C" {
#endif

char* readline(const char* sPrompt);
int   add_history(const char* sLine);

#ifdef __cplusplus
}
#endif

#endif
