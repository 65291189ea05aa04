// app/print.h
// SPDX-License-Identifier: MIT
//
// What the tool prints, on standard output. Each text is visible at once, also through a pipe, so
// that "Reset target..." can be read while the reset is made.

#ifndef APP_PRINT_H
#define APP_PRINT_H

// Prints the text without a line end. Often a line completes it later: "O.K.", "failed." or a
// message.
void PrintText(const char* sText);

// Prints the text and a line end.
void PrintLine(const char* sText);

// As printf().
void PrintFormat(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

#endif
