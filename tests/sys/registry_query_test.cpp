// SPDX-License-Identifier: MIT

// Querying values.

#include <gtest/gtest.h>
#include <string.h>

#include <map>
#include <string>
#include <vector>

#include "tests/sys/support/registry_calls.h"

// ---- Querying -----------------------------------------------------------------------------------

TEST_F(SysRegistry, TextsAroundTheSizeOfANameAreReadBackWhole) {
  for (const size_t Length : {511u, 512u, 513u, 5000u}) {
    const std::string sText(Length, 't');
    EXPECT_EQ(0u, SetText("v", sText.c_str()));
    EXPECT_EQ(0u, SetBytes("N", 7, sText + '\0' + sText + std::string(2, '\0')));
    SYS_REG_Flush();
    const Answer A = Query("v", (uint32_t)Length + 1);
    EXPECT_EQ(0u, A.Result);
    EXPECT_EQ(Length, A.Size);
    EXPECT_EQ(sText + '\0', A.Bytes);
    EXPECT_EQ(sText + '\0' + sText + std::string(2, '\0'),
              Query("N", (uint32_t)(2 * Length + 3)).Bytes);
  }
}

TEST_F(SysRegistry, TheTypeAloneCanBeAskedFor) {
  SetDword("d", 1);
  uint32_t Type = 0;
  uint32_t Size = 77;
  EXPECT_EQ(0u, SYS_REG_QueryValue(USER, "d", &Type, nullptr, &Size));
  EXPECT_EQ(4u, Type);
  EXPECT_EQ(77u, Size);
  EXPECT_EQ(0u, SYS_REG_QueryValue(USER, "d", nullptr, nullptr, nullptr));
}

TEST_F(SysRegistry, DataWithoutASizeFails) {
  SetDword("d", 1);
  uint32_t Type = 77;
  char     acData[4];
  EXPECT_EQ(1u, SYS_REG_QueryValue(USER, "d", &Type, acData, nullptr));
  EXPECT_EQ(1u, SYS_REG_QueryValue(USER, " ", &Type, acData, nullptr));
  EXPECT_EQ(77u, Type);
}

TEST_F(SysRegistry, AMissingValueGives2AndTouchesNothing) {
  const Answer A = Query("none", 8);
  EXPECT_EQ(2u, A.Result);
  EXPECT_EQ(0xAAAAAAAAu, A.Type);
  EXPECT_EQ(8u, A.Size);
  EXPECT_EQ("########", A.Bytes);
}

TEST_F(SysRegistry, TypesInTheFileAreKnownByTheirWholeName) {
  const std::map<std::string, uint32_t> Types = {{"SYS_REG_TYPE_SZ", 1},
                                                 {"SYS_REG_TYPE_EXPAND_SZ", 2},
                                                 {"SYS_REG_TYPE_BINARY", 3},
                                                 {"SYS_REG_TYPE_DWORD", 4},
                                                 {"SYS_REG_TYPE_MULTI_SZ", 7},
                                                 {"SYS_REG_TYPE_QWORD", 11},
                                                 {"???", 0xFFFFFFFF},
                                                 {"", 0xFFFFFFFF},
                                                 {"sys_reg_type_sz", 0xFFFFFFFF},
                                                 {"SYS_REG_TYPE_SZX", 0xFFFFFFFF}};
  for (const auto& [sName, Expected] : Types) {
    Provide("<Registry v=\"1\" v_OSTRELRegType=\"" + sName + "\"/>");
    uint32_t       Type   = 77;
    const uint32_t Result = Expected == 0xFFFFFFFF ? 1 : 0;
    EXPECT_EQ(Result, TypeOnly("v", &Type)) << sName;
    EXPECT_EQ(Expected, Type) << sName;
    EXPECT_EQ(Result, TypeOnly("v")) << sName;
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, ATypeOfAnyLengthIsUnknownUnlessItIsTheWholeName) {
  for (const size_t Length : {510u, 511u, 512u, 513u, 0x100000u}) {
    for (const std::string sBegin : {"", "SYS_REG_TYPE_SZ"}) {
      std::string sType = sBegin;
      sType.resize(Length, ' ');
      const std::string sText = "<Registry v=\"1\" v_OSTRELRegType=\"" + sType + "\" w=\"2\"/>\r\n";
      Provide(sText);
      const Answer A = Query("v", 8);
      EXPECT_EQ(1u, A.Result) << Length;
      EXPECT_EQ(0xFFFFFFFFu, A.Type);
      EXPECT_EQ(8u, A.Size);
      EXPECT_EQ("########", A.Bytes);
      EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
      EXPECT_TRUE(Flushed() == sText) << Length;
    }
  }
  EXPECT_EQ(0u, SetText("v", "x"));  // setting it fixes that
  EXPECT_EQ("x", Text("v"));
}

TEST_F(SysRegistry, AValueWithoutItsDataAttributeFails) {
  for (const std::string sType : {"SZ", "EXPAND_SZ", "BINARY", "DWORD", "MULTI_SZ", "QWORD"}) {
    Provide("<Registry v_OSTRELRegType=\"SYS_REG_TYPE_" + sType + "\"/>");
    EXPECT_EQ(0u, TypeOnly("v"));
    const Answer A = Query("v", 8);
    EXPECT_EQ(1u, A.Result) << sType;
    EXPECT_EQ(8u, A.Size);
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, DataWithoutItsTypeIsNoValue) {
  Provide("<Registry v=\"1\"/>");
  EXPECT_EQ(2u, TypeOnly("v"));
  EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
}

TEST_F(SysRegistry, TextsAreCutAtTheCapacity) {
  for (const std::string sType : {"SZ", "EXPAND_SZ"}) {
    Provide("<Registry v=\"abcde\" v_OSTRELRegType=\"SYS_REG_TYPE_" + sType + "\"/>");
    const uint32_t                 Type  = sType == "SZ" ? 1 : 2;
    const std::vector<std::string> Bytes = {"",
                                            std::string("\0", 1),
                                            std::string("a\0", 2),
                                            std::string("ab\0", 3),
                                            std::string("abc\0", 4),
                                            std::string("abcd\0", 5),
                                            std::string("abcde\0", 6),
                                            std::string("abcde\0#", 7)};
    for (uint32_t Capacity = 0; Capacity < Bytes.size(); Capacity++) {
      const Answer A = Query("v", Capacity);
      EXPECT_EQ(Capacity < 5 ? 234u : 0u, A.Result)
          << Capacity;  // with 5 a character is lost, and the result is 0
      EXPECT_EQ(5u, A.Size);
      EXPECT_EQ(Type, A.Type);
      EXPECT_EQ(Bytes[Capacity], A.Bytes) << Capacity;
    }
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, ADwordNeeds4Bytes) {
  SetBytes("v", 4, "\x78\x56\x34\x12");
  for (uint32_t Capacity = 0; Capacity < 4; Capacity++) {
    const Answer A = Query("v", Capacity);
    EXPECT_EQ(234u, A.Result);
    EXPECT_EQ(Capacity, A.Size);
    EXPECT_EQ(std::string(Capacity, '#'), A.Bytes);
    EXPECT_EQ(4u, A.Type);
  }
  for (uint32_t Capacity = 4; Capacity < 9; Capacity++) {
    const Answer A = Query("v", Capacity);
    EXPECT_EQ(0u, A.Result);
    EXPECT_EQ(4u, A.Size);
    EXPECT_EQ("\x78\x56\x34\x12" + std::string(Capacity - 4, '#'), A.Bytes);
  }
}

TEST_F(SysRegistry, AQwordNeeds8Bytes) {
  const std::string sBytes = "\x88\x77\x66\x55\x44\x33\x22\x11";
  SetBytes("v", 11, sBytes);
  EXPECT_EQ(234u, Query("v", 7).Result);
  EXPECT_EQ(std::string(7, '#'), Query("v", 7).Bytes);
  const Answer A = Query("v", 9);
  EXPECT_EQ(0u, A.Result);
  EXPECT_EQ(8u, A.Size);
  EXPECT_EQ(11u, A.Type);
  EXPECT_EQ(sBytes + "#", A.Bytes);
}

TEST_F(SysRegistry, NumbersInTheFileAreReadAsHexadecimal) {
  const std::map<std::string, uint64_t> Texts = {
      {"12", 0x12},
      {"0x12", 0x12},
      {"0XaBc", 0xABC},
      {"-1", 0xFFFFFFFFFFFFFFFF},
      {"-0x10", 0xFFFFFFFFFFFFFFF0},
      {" 7z", 7},
      {"", 0},
      {"none", 0},
      {"123456789", 0x123456789},
  };
  for (const auto& [sText, Number] : Texts) {
    Provide("<Registry d=\"" + sText + "\" d_OSTRELRegType=\"SYS_REG_TYPE_DWORD\" q=\"" + sText +
            "\" q_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>");
    uint32_t Dword;
    uint64_t Qword;
    memcpy(&Dword, Query("d", 4).Bytes.data(), 4);
    memcpy(&Qword, Query("q", 8).Bytes.data(), 8);
    EXPECT_EQ((uint32_t)Number, Dword) << sText;
    EXPECT_EQ(Number, Qword) << sText;
    EXPECT_EQ(0u, Query("d", 4).Result);
    SYS_REG_Flush();
  }
}

TEST_F(SysRegistry, BinaryDataCannotBeRead) {
  Provide("<Registry v=\"1\" v_OSTRELRegType=\"SYS_REG_TYPE_BINARY\"/>");
  const Answer A = Query("v", 8);
  EXPECT_EQ(1u, A.Result);
  EXPECT_EQ(3u, A.Type);
  EXPECT_EQ("########", A.Bytes);
}

TEST_F(SysRegistry, AListIsReadBackWithTheSizeThatLeavesOutTerminators) {
  SetBytes("N", 7, std::string("a\0bc\0\0", 6));
  struct ROW {
    uint32_t    Capacity;
    uint32_t    Result;
    uint32_t    Size;
    std::string Bytes;
  };
  const std::vector<ROW> Rows = {
      {0, 234, 3, ""},                         // no room
      {1, 234, 3, std::string("\0", 1)},       // "a" is cut, no room is left
      {2, 234, 3, std::string("a\0", 2)},      // one byte is left, none for "bc"
      {3, 0, 3, std::string("a\0\0", 3)},      // enough by the count without terminators
      {4, 0, 4, std::string("a\0b\0", 4)},     // "fits" by that count, and is cut
      {5, 0, 4, std::string("a\0bc\0", 5)},    // no room for the end of the list
      {6, 0, 4, std::string("a\0bc\0\0", 6)},  // twice the size of 3: complete
      {8, 0, 4, std::string("a\0bc\0\0##", 8)},
  };
  for (const ROW& Row : Rows) {
    const Answer A = Query("N", Row.Capacity);
    EXPECT_EQ(Row.Result, A.Result) << Row.Capacity;
    EXPECT_EQ(Row.Size, A.Size) << Row.Capacity;
    EXPECT_EQ(Row.Bytes, A.Bytes) << Row.Capacity;
    EXPECT_EQ(7u, A.Type);
  }
}

TEST_F(SysRegistry, AListOfManyShortStringsNeverLeavesTheBuffer) {
  std::string sList;
  for (int i = 0; i < 20; i++) {
    sList += std::string("x\0", 2);
  }
  SetBytes("N", 7, sList + std::string("\0", 1));
  for (uint32_t Capacity = 0; Capacity < 50; Capacity++) {
    const Answer A = Query("N", Capacity);  // checks the bytes beyond the capacity
    EXPECT_EQ(Capacity < 20 ? 234u : 0u, A.Result) << Capacity;
    EXPECT_EQ(Capacity > 20 ? 21u : 20u, A.Size) << Capacity;
  }
}

TEST_F(SysRegistry, AnEmptyListReadsAsTwoTerminators) {
  SetBytes("N", 7, std::string(2, '\0'));
  EXPECT_EQ(0u, Query("N", 0).Result);
  EXPECT_EQ(0u, Query("N", 0).Size);
  EXPECT_EQ(std::string("\0\0##", 4), Query("N", 4).Bytes);
  EXPECT_EQ(1u, Query("N", 4).Size);
  EXPECT_EQ(std::string("\0", 1), Query("N", 1).Bytes);
  EXPECT_EQ(1u, Query("N", 1).Size);
}

TEST_F(SysRegistry, OfAStringThatIsTwiceInTheFileTheFirstOneCounts) {
  Provide(
      "<Registry N=\"x\" N_OSTRELRegMltStr1=\"first\" N_OSTRELRegMltStr1=\"second\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>");
  EXPECT_EQ(std::string("x\0first\0\0", 9), Query("N", 9).Bytes);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr1=\"second\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AListOfAHundredThousandStringsIsReadAndDeletedInAnyOrder) {
  // A search through the list for each string would take quadratic time.
  const int   NumStrings = 100000;
  std::string sText =
      "<Registry N=\"x\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\" "
      "N_OSTRELRegMltStr4294967297=\"never\"";
  for (int i = NumStrings; i > 0; i--) {
    sText += " N_OSTRELRegMltStr" + std::to_string(i) + "=\"" + std::to_string(i % 10) + "\"";
  }
  Provide(sText + "/>");
  const uint32_t Capacity = 2 * NumStrings + 10;
  const Answer   A        = Query("N", Capacity);
  EXPECT_EQ(0u, A.Result);
  EXPECT_EQ(NumStrings + 2u, A.Size);
  std::string sWant = std::string("x\0", 2);
  for (int i = 1; i <= NumStrings; i++) {
    sWant += std::to_string(i % 10) + std::string(1, '\0');
  }
  sWant += '\0';
  EXPECT_TRUE(A.Bytes.substr(0, sWant.size()) == sWant);  // too long to print
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr4294967297=\"never\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AListOfAHundredThousandStringsIsSetOverAFormerOne) {
  // A search through the list for each string would take minutes.
  const int   NumStrings = 100000;
  std::string sList;
  for (int i = 0; i < NumStrings; i++) {
    sList += std::to_string(i % 10) + std::string(1, '\0');
  }
  sList += '\0';
  SetText("a", "1");
  SetBytes("N", 7, sList);
  SetBytes("N", 7, sList);
  const Answer A = Query("N", 2 * NumStrings + 10);
  EXPECT_EQ(0u, A.Result);
  EXPECT_TRUE(A.Bytes.substr(0, sList.size()) == sList);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AFileOfMoreThan16MebibytesIsRefusedAndKept) {
  const size_t Limit = 16 * 1024 * 1024;
  std::string  sText = "<Registry a=\"1\" a_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>";
  sText.resize(Limit, ' ');
  Provide(sText);
  EXPECT_EQ(0u, Query("a", 10).Result);
  SYS_REG_Flush();
  Provide(sText + " ");
  EXPECT_NE(0u, Query("a", 10).Result);
  SYS_REG_Flush();
  EXPECT_TRUE(Flushed() == sText + " ");
}
