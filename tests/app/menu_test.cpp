// SPDX-License-Identifier: MIT

// What the menu passes to the line editor. The editor's two functions are defined here.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "app/menu.h"

static std::vector<const char*> Lines;  // nullptr: end of input
static std::vector<std::string> Prompts;
static std::vector<std::string> History;
static struct stat              InputOfEditor;  // zeros: the descriptor is closed

extern "C" char* readline(const char* sPrompt) {
  Prompts.push_back(sPrompt);
  InputOfEditor = {};
  fstat(STDIN_FILENO, &InputOfEditor);
  const char* sLine = Lines.front();
  Lines.erase(Lines.begin());
  return sLine == nullptr ? nullptr : strdup(sLine);
}

extern "C" int add_history(const char* sLine) {
  History.push_back(sLine);
  free(const_cast<char*>(sLine));  // the history owns it from here on
  return 0;
}

static int32_t Select(std::vector<const char*> Answers, const FAMILY_ROW** ppRow) {
  Lines = Answers;
  Prompts.clear();
  History.clear();
  testing::internal::CaptureStdout();
  const int32_t Result = SelectFamily(ppRow);
  testing::internal::GetCapturedStdout();
  return Result;
}

TEST(AppMenu, EntryGoesIntoTheHistoryAsTyped) {
  const FAMILY_ROW* pRow = nullptr;
  EXPECT_EQ(1, Select({"  7 "}, &pRow));
  EXPECT_EQ(std::vector<std::string>{"  7 "}, History);
  EXPECT_STREQ("STM32F74xxx, STM32F75xxx", pRow->Name);
  EXPECT_EQ(-1, Select({"x"}, &pRow));
  EXPECT_EQ(std::vector<std::string>{"x"}, History);
}

TEST(AppMenu, EmptyEntryIsNotKept) {
  const FAMILY_ROW* pRow = nullptr;
  EXPECT_EQ(-1, Select({""}, &pRow));
  EXPECT_TRUE(History.empty());
}

TEST(AppMenu, EndOfInputIsAskedAgainWithTheSamePrompt) {
  const FAMILY_ROW* pRow = nullptr;
  EXPECT_EQ(0, Select({nullptr, nullptr, "0"}, &pRow));
  EXPECT_EQ(std::vector<std::string>(3, "Please select the correct device family: "), Prompts);
}

TEST(AppMenu, StandardErrorDoesNotBecomeTheInputWhenThatIsClosed) {
  struct stat       Error;
  const FAMILY_ROW* pRow       = nullptr;
  const int         SavedInput = fcntl(STDIN_FILENO, F_DUPFD, STDERR_FILENO + 1);
  ASSERT_EQ(0, fstat(STDERR_FILENO, &Error));
  Lines = {"7"};
  testing::internal::CaptureStdout();
  close(STDIN_FILENO);
  EXPECT_EQ(1, SelectFamily(&pRow));
  dup2(SavedInput, STDIN_FILENO);
  close(SavedInput);
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(InputOfEditor.st_dev == Error.st_dev && InputOfEditor.st_ino == Error.st_ino);
}

TEST(AppMenu, RowsHoldIdNameAndCore) {
  static const struct {
    int32_t     Id;
    const char* sName;
    const char* sCore;
  } Rows[13] = {
      {-1, "Exit", "Cortex-M0"},
      {0, "STM32F0xxxx", "Cortex-M3"},
      {1, "STM32F1xxxx", "Cortex-M3"},
      {2, "STM32F2xxxx", "Cortex-M3"},
      {3, "STM32F3xxxx", "Cortex-M4"},
      {4, "STM32F4xxxx", "Cortex-M4"},
      {6, "STM32F72xxx, STM32F73xxx", "Cortex-M7"},
      {6, "STM32F74xxx, STM32F75xxx", "Cortex-M7"},
      {7, "STM32F76xxx, STM32F77xxx", "Cortex-M7"},
      {10, "STM32H7xxxx", "Cortex-M7"},
      {9, "STM32L0xxxx", "Cortex-M0"},
      {5, "STM32L1xxxx", "Cortex-M3"},
      {8, "STM32L4x6xx", "Cortex-M4"},
  };
  ASSERT_EQ(13u, FAMILY_ROWS);
  for (int i = 0; i < 13; i++) {
    EXPECT_EQ(Rows[i].Id, FamilyTable[i].Id) << i;
    EXPECT_STREQ(Rows[i].sName, FamilyTable[i].Name) << i;
    EXPECT_STREQ(Rows[i].sCore, FamilyTable[i].Core) << i;
  }
}
