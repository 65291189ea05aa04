// sys/xml_scan.h
// SPDX-License-Identifier: MIT
//
// Finding double quotes and checking names in a text; for sys/xml_read.cpp.
//
// On x86-64 this uses the vector instructions that every such processor has. Elsewhere plain code
// gives the same results.

#ifndef SYS_XML_SCAN_H
#define SYS_XML_SCAN_H

#include <string.h>

#include "sys/xml_node.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// Bytes that must be readable after the end of a text. The first of them is its terminator, the
// second one a double quote, where every search for quotes ends.
enum { SYS_XML_TEXT_PADDING = 72 };

// The double quotes of a text, one after the other.
struct XmlQuotes {
  char*    pWindow;  // of 64 characters; in plain code: where to go on
  uint64_t Mask;     // a bit for each quote in it that is still to come
};

#ifdef __SSE2__

// By way of void, because it need not be aligned.
inline __m128i SYS_XML_LoadBlock(const char* s) {
  return _mm_loadu_si128((const __m128i*)(const void*)s);
}

inline uint64_t SYS_XML_FindQuotes(const char* s, uint32_t Shift) {
  const __m128i Block = SYS_XML_LoadBlock(s + Shift);
  const int     Mask  = _mm_movemask_epi8(_mm_cmpeq_epi8(Block, _mm_set1_epi8('"')));
  return (uint64_t)(uint32_t)Mask << Shift;
}

inline void SYS_XML_StartQuotes(XmlQuotes* pQuotes, char* s) {
  pQuotes->pWindow = s;
  pQuotes->Mask = SYS_XML_FindQuotes(s, 0) | SYS_XML_FindQuotes(s, 16) | SYS_XML_FindQuotes(s, 32) |
                  SYS_XML_FindQuotes(s, 48);
}

// Returns the next quote, which may be the one after the end of the text.
inline char* SYS_XML_NextQuote(XmlQuotes* pQuotes) {
  while (pQuotes->Mask == 0) {
    SYS_XML_StartQuotes(pQuotes, pQuotes->pWindow + 64);
  }
  char* pQuote = pQuotes->pWindow + __builtin_ctzll(pQuotes->Mask);
  pQuotes->Mask &= pQuotes->Mask - 1;
  return pQuote;
}

// Returns a bit for each of 16 characters that cannot be part of a name.
inline uint32_t SYS_XML_FindNameEnds(const char* s) {
  const __m128i Block  = SYS_XML_LoadBlock(s);
  const __m128i Letter = _mm_sub_epi8(_mm_or_si128(Block, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
  const __m128i Digit  = _mm_sub_epi8(Block, _mm_set1_epi8('0'));
  const __m128i Letters = _mm_cmpeq_epi8(Letter, _mm_min_epu8(Letter, _mm_set1_epi8(25)));
  const __m128i Digits  = _mm_cmpeq_epi8(Digit, _mm_min_epu8(Digit, _mm_set1_epi8(9)));
  const __m128i Dashes  = _mm_or_si128(_mm_cmpeq_epi8(Block, _mm_set1_epi8('_')),
                                       _mm_cmpeq_epi8(Block, _mm_set1_epi8('-')));
  const __m128i Marks   = _mm_cmpeq_epi8(Block, _mm_set1_epi8('!'));
  const __m128i Names   = _mm_or_si128(_mm_or_si128(Letters, Digits), _mm_or_si128(Dashes, Marks));
  return (uint32_t)_mm_movemask_epi8(Names) ^ 0xFFFF;
}

// Returns 1 when all of the NumChars characters can be part of a name, else 0. Up to 15 characters
// after them are read.
inline int32_t SYS_XML_IsName(const char* s, uint64_t NumChars) {
  for (; NumChars > 16; NumChars -= 16) {
    if (SYS_XML_FindNameEnds(s) != 0) {
      return 0;
    }
    s += 16;
  }
  return (SYS_XML_FindNameEnds(s) & ((1u << NumChars) - 1)) == 0;
}

#else

inline void SYS_XML_StartQuotes(XmlQuotes* pQuotes, char* s) {
  pQuotes->pWindow = s;
}

inline char* SYS_XML_NextQuote(XmlQuotes* pQuotes) {
  char* pQuote = pQuotes->pWindow;
  while (*pQuote != '"') {
    pQuote++;
  }
  pQuotes->pWindow = pQuote + 1;
  return pQuote;
}

inline int32_t SYS_XML_IsName(const char* s, uint64_t NumChars) {
  const char* const pEnd = s + NumChars;
  while (s < pEnd && SYS_XML_IsNameChar(*s)) {
    s++;
  }
  return s == pEnd;
}

#endif

#endif
