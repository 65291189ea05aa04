// app/print.h
//
// What the tool says, on standard output. Each call is seen at once, also through a pipe: "Reset
// target..." has to stand there before the reset is made, not after.

#ifndef APP_PRINT_H
#define APP_PRINT_H

// A text without a line end, to be completed by a line: "O.K.", "failed." or a message.
void PrintProgress(const char* sText);

// A text and one line end. Completes the line that a progress text began.
void PrintLine(const char* sText);

// printf(). Conversions as the C library has them.
void PrintFormat(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

#endif
