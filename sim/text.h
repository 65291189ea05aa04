// sim/text.h
// SPDX-License-Identifier: MIT
//
// Small text helpers of the simulator.

#ifndef SIM_TEXT_H
#define SIM_TEXT_H

#include <stdint.h>

#include <string>
#include <vector>

namespace sim {

// printf into a string.
std::string Format(const char* sFormat, ...) __attribute__((format(printf, 1, 2)));

std::string Trim(const std::string& sText);

std::vector<std::string> Split(const std::string& sText, char Separator);

// Words of a line; text in double quotes is one word, without the quotes.
std::vector<std::string> SplitWords(const std::string& sText);

bool EqualNoCase(const std::string& sA, const std::string& sB);

// The whole text as a number: decimal, or hexadecimal after 0x. False when it is anything else,
// or too large; *pValue is left alone then.
bool ParseNumber(const std::string& sText, uint64_t* pValue);
bool ParseU32(const std::string& sText, uint32_t* pValue);

}  // namespace sim

#endif
