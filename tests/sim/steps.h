// SPDX-License-Identifier: MIT

// Rules of the hardware as rows: a device in a state, and what a debugger does to it and finds.
//
// A row is played on each of its devices, anew each time. The state is written as for quobe-bench
// create; memories hold 12345678 in every word, unless the state begins with "empty" or asks for a
// content. Steps are words:
//
//   CR=220        write a word; a register or option word by name (FLASH_ may be left out), or any
//                 address as @20000000; NAME+4 is 4 bytes after it, NAME.2 and NAME.1 are narrower
//   CR=220!       the same, and the transfer has to fail
//   CR?220        read a word, which has to be that; CR?1/1 looks at the bits after the stroke only
//   CR?! CR?ok    the read has to fail, or only to work
//   wait:19ms wait:53us finish reset run power        finish: until the controller is ready; run: a
//                 reset that leaves the core running; power: off and on
//   level?0 stored?0 OPTION_DATA:00FF00FF             the level in force and the stored one; the
//                 stored word is that
//   flash?erased flash?kept flash?partly              any memory by its name
//   in-use?2048           so many bytes of the flash are not erased
//   put:OPTION_DATA=FF0012                            a stored word that no program could have left
//   powered?1 stalled?20000 resets?1 halted?1 error?OPTERR remark?none   error and remark may be "none"; a
//                 remark that exists is "some"
//   variant:NAME=1 hold:forever voltage:3300 save     save: the device is saved, and loaded anew
//   file:KEY=VALUE        a line of the device's file
//   register:CR=80/1437   its value now, and the bits that take a write; it keeps the last one written
//   memory:20000000=2000  so many bytes are there, and nothing before or after them
//
// Further words are a test's own, see Words; "unlock" in "unlock CR=220", say. WORD:ARG puts ARG
// where the word's steps have a $. %off is the byte of level 0. Numbers are hexadecimal, times and
// counts decimal.

#ifndef TESTS_SIM_STEPS_H
#define TESTS_SIM_STEPS_H

#include <gtest/gtest.h>

#include <map>
#include <string>

struct STEPS_CASE {
  const char* sPromise;  // the test's name
  const char* sDevices;  // by name, without STM32
  const char* sState;
  const char* sSteps;
};

using STEPS_WORDS = std::map<std::string, std::string>;

// Plays a row on all of its devices; stops a device at its first step that does not hold.
void PlayCase(const STEPS_CASE& Case, const STEPS_WORDS& Words);

// A state that this device is not to be created in, and the reason that has to be given.
void ExpectRefused(const char* sDevice, const char* sState, const char* sReason);

// A test for each row; the fixture's name is the suite's.
#define PLAY_CASES(Suite, aCases, Words)                                          \
  class Suite : public ::testing::TestWithParam<STEPS_CASE> {};                   \
  TEST_P(Suite, Holds) {                                                          \
    PlayCase(GetParam(), Words);                                                  \
  }                                                                               \
  INSTANTIATE_TEST_SUITE_P(Rules, Suite, ::testing::ValuesIn(aCases),             \
                           [](const ::testing::TestParamInfo<STEPS_CASE>& Info) { \
                             return std::string(Info.param.sPromise);             \
                           })

#endif
