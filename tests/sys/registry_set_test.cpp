// SPDX-License-Identifier: MIT

// Setting and deleting values.

#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "tests/sys/support/registry_calls.h"

// ---- Setting ------------------------------------------------------------------------------------

TEST_F(SysRegistry, ADwordIsStoredAsEightHexDigits) {
  EXPECT_EQ(0u, SetBytes("Speed", 4, "\x78\x56\x34\x12"));
  EXPECT_EQ("<Registry Speed=\"0x12345678\" Speed_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>\r\n",
            Flushed());
}

TEST_F(SysRegistry, ANumberTakesTheBytesThereAreOverAZero) {
  const std::string sBytes("\xF1\xF2\xF3\xF4\xF5\xF6\xF7\xF8\xF9", 9);
  const char* const Dwords[] = {"0x00000000", "0x000000F1", "0x0000F2F1",
                                "0x00F3F2F1", "0xF4F3F2F1", "0xF4F3F2F1"};
  for (size_t Size = 0; Size < 6; Size++) {
    EXPECT_EQ(0u, SetBytes("v", 4, sBytes.substr(0, Size)));
    EXPECT_EQ(Dwords[Size], Flushed().substr(strlen("<Registry v=\""), 10)) << Size;
  }
}

TEST_F(SysRegistry, AQwordOf4BytesFillsItsLowHalf) {
  EXPECT_EQ(0u, SetBytes("v", 11, "\x78\x56\x34\x12"));
  EXPECT_EQ("<Registry v=\"0x0000000012345678\" v_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>\r\n",
            Flushed());
  EXPECT_EQ(0u, SetBytes("v", 11, "\x01\x02\x03\x04\x05\x06\x07\xF8\x09"));
  EXPECT_EQ("<Registry v=\"0xF807060504030201\" v_OSTRELRegType=\"SYS_REG_TYPE_QWORD\"/>\r\n",
            Flushed());
}

TEST_F(SysRegistry, NumbersWithoutDataAreZeroForNoBytesAndElseRefused) {
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, "v", 4, nullptr, 0));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "w", 4, nullptr, 4));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "w", 4, nullptr, 1));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "w", 11, nullptr, 8));
  EXPECT_EQ("<Registry v=\"0x00000000\" v_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, ATextIsStoredAsGivenAndItsSizeIgnored) {
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, "v", 1, "a <&'> \xC3\xA4", 2));
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, "w", 1, nullptr, 99));
  EXPECT_EQ(
      "<Registry v=\"a <&'> \xC3\xA4\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\" w=\"\" "
      "w_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListGivesOneAttributePerString) {
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0bc\0\0", 6)));
  EXPECT_EQ(
      "<Registry N=\"a\" N_OSTRELRegMltStr1=\"bc\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListOfAnotherSizeIsRefusedAndChangesNothing) {
  SetText("N", "before");
  const std::string sBytes("a\0bc\0\0\0", 7);
  EXPECT_EQ(1u, SetBytes("N", 7, sBytes.substr(0, 5)));
  EXPECT_EQ(1u, SetBytes("N", 7, sBytes));
  EXPECT_EQ(1u, SetBytes("N", 7, ""));
  EXPECT_EQ(1u, SetBytes("N", 7, std::string(1, '\0')));
  EXPECT_EQ(1u, SetBytes("N", 7, std::string(3, '\0')));
  EXPECT_EQ(1u, SetBytes("N", 7, "unterminated"));
  EXPECT_EQ(1u, SYS_REG_SetValue(USER, "N", 7, nullptr, 6));
  EXPECT_EQ("<Registry N=\"before\" N_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, AListWithoutTerminatorIsNotReadBeyondItsSize) {
  // The heap block ends with the data, so that a sanitizer reports a read beyond it.
  for (uint32_t Size = 1; Size < 4; Size++) {
    char* pData = static_cast<char*>(malloc(Size));
    memset(pData, 'x', Size);
    EXPECT_EQ(1u, SYS_REG_SetValue(USER, "N", 7, pData, Size));
    pData[0] = 0;
    EXPECT_EQ(1u, SYS_REG_SetValue(USER, "N", 7, pData, Size));
    free(pData);
  }
}

TEST_F(SysRegistry, AnEmptyListIsTwoZeroBytes) {
  EXPECT_EQ(0u, SetBytes("N", 7, std::string(2, '\0')));
  EXPECT_EQ("<Registry N=\"\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, TheFirstStringOfAListMayBeEmptyTheOthersEndIt) {
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("\0b\0\0", 4)));
  EXPECT_EQ(1u, SetBytes("M", 7, std::string("a\0\0b\0\0", 6)));
  EXPECT_EQ(
      "<Registry N=\"\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, TheOtherTypesCannotBeSet) {
  for (const uint32_t Type : {0u, 2u, 3u, 5u, 6u, 8u, 9u, 10u, 12u, 0xFFFFFFFFu}) {
    EXPECT_EQ(1u, SYS_REG_SetValue(USER, "v", Type, "\0\0\0\0\0\0\0", 8)) << Type;
  }
  EXPECT_EQ(EMPTY_FILE, Flushed());
}

TEST_F(SysRegistry, AnEmptyNameComesBeforeTheTypeIsLookedAt) {
  EXPECT_EQ(0u, SYS_REG_SetValue(USER, " ", 3, "", 0));
}

TEST_F(SysRegistry, SettingAgainKeepsTheAttributesPlaces) {
  SetText("a", "1");
  SetText("b", "2");
  SetDword("a", 5);
  EXPECT_EQ(
      "<Registry a=\"0x00000005\" a_OSTRELRegType=\"SYS_REG_TYPE_DWORD\" b=\"2\" "
      "b_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AScalarOverAListLeavesItsFurtherStrings) {
  SetBytes("N", 7, std::string("a\0b\0c\0\0", 7));
  SetText("N", "x");
  EXPECT_EQ(
      "<Registry N=\"x\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegMltStr2=\"c\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListClearsEveryFormerEntryWhateverItsType) {
  SetText("before", "");
  SetBytes("N", 7, std::string("a\0b\0c\0d\0\0", 9));
  SetText("N", "x");
  SetText("after", "");
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("e\0f\0\0", 5)));
  EXPECT_EQ(
      "<Registry before=\"\" before_OSTRELRegType=\"SYS_REG_TYPE_SZ\" after=\"\" "
      "after_OSTRELRegType=\"SYS_REG_TYPE_SZ\" N=\"e\" N_OSTRELRegMltStr1=\"f\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AListClearsStringsAfterAGapAndNothingElse) {
  Provide(
      "<Registry N=\"o\" N_OSTRELRegMltStr2=\"o\" N_OSTRELRegMltStr10=\"o\" N=\"twice\" "
      "N_OSTRELRegMltStr999999999=\"o\" "
      "N_OSTRELRegMltStr=\"k\" N_OSTRELRegMltStrX=\"k\" N_OSTRELRegMltStr1x=\"k\" "
      "N_OSTRELRegMltStr0=\"k\" NN=\"k\" N_OSTRELRegTyp=\"k\" M_OSTRELRegMltStr1=\"k\"/>");
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("n\0\0", 3)));
  EXPECT_EQ(
      "<Registry N_OSTRELRegMltStr=\"k\" N_OSTRELRegMltStrX=\"k\" N_OSTRELRegMltStr1x=\"k\" "
      "N_OSTRELRegMltStr0=\"k\" NN=\"k\" N_OSTRELRegTyp=\"k\" M_OSTRELRegMltStr1=\"k\" N=\"n\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, AnIndexOfTenDigitsIsNotOneOfAList) {
  // In 32 bits 4294967297 would be 1.
  const std::string sOthers = "N_OSTRELRegMltStr1000000000=\"k\" N_OSTRELRegMltStr4294967297=\"k\"";
  Provide("<Registry " + sOthers + "/>");
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0b\0\0", 5)));
  EXPECT_EQ(std::string("a\0b\0\0#", 6), Query("N", 6).Bytes);
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("c\0\0", 3)));
  EXPECT_EQ(std::string("c\0\0#", 4), Query("N", 4).Bytes);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry " + sOthers + "/>", Flushed());
}

TEST_F(SysRegistry, AnIndexWithALeadingZeroIsNotOneOfAList) {
  const std::string sOthers = "N_OSTRELRegMltStr01=\"k\" N_OSTRELRegMltStr0=\"k\"";
  Provide("<Registry N=\"a\" " + sOthers + " N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>");
  EXPECT_EQ(std::string("a\0\0#", 4), Query("N", 4).Bytes);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry " + sOthers + "/>\r\n", Flushed());
  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0b\0\0", 5)));
  EXPECT_EQ(std::string("a\0b\0\0#", 6), Query("N", 6).Bytes);
  EXPECT_EQ("<Registry " + sOthers +
                " N=\"a\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
            Flushed());
}

// What docs/registry.md says about such names, row by row.
TEST_F(SysRegistry, ATextNamedLikeAStringOfAListSharesItsAttribute) {
  const char* const sTextName = "N_OSTRELRegMltStr1";
  const std::string sTwo("a\0bc\0\0", 6);
  const std::string sOne("a\0\0", 3);

  SetText(sTextName, "x");
  EXPECT_EQ(0u, SetBytes("N", 7, sTwo));
  EXPECT_EQ("bc", Text(sTextName));
  EXPECT_EQ(0u, SetBytes("N", 7, sOne));
  EXPECT_EQ(0u, TypeOnly(sTextName));
  EXPECT_EQ(1u, Query(sTextName, 8).Result);
  EXPECT_EQ(sOne + "#", Query("N", 4).Bytes);

  EXPECT_EQ(0u, SetText(sTextName, "x"));
  EXPECT_EQ(std::string("a\0x\0\0#", 6), Query("N", 6).Bytes);

  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ(0u, TypeOnly(sTextName));
  EXPECT_EQ(1u, Query(sTextName, 8).Result);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, sTextName));
  EXPECT_EQ(EMPTY_FILE, Flushed());

  EXPECT_EQ(0u, SetBytes("N", 7, std::string("a\0b\0c\0\0", 7)));
  SetText(sTextName, "x");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, sTextName));
  EXPECT_EQ(sOne + "#", Query("N", 4).Bytes);
  EXPECT_EQ(
      "<Registry N=\"a\" N_OSTRELRegMltStr2=\"c\" N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n",
      Flushed());
}

TEST_F(SysRegistry, ATextNamedLikeATypeIsTheType) {
  SetText("N", "x");
  EXPECT_EQ(0u, SetText("N_OSTRELRegType", "y"));
  uint32_t Type = 77;
  EXPECT_EQ(1u, TypeOnly("N", &Type));
  EXPECT_EQ(0xFFFFFFFFu, Type);
  EXPECT_EQ("y", Text("N_OSTRELRegType"));
}

TEST_F(SysRegistry, AQuoteInATextMakesTheStoreUnreadable) {
  EXPECT_EQ(0u, SetText("v", "x\"y"));
  EXPECT_EQ("<Registry v=\"x\"y\" v_OSTRELRegType=\"SYS_REG_TYPE_SZ\"/>\r\n", Flushed());
  EXPECT_EQ(2u, TypeOnly("v"));
  EXPECT_EQ(EMPTY_FILE, File());
}

// ---- Deleting -----------------------------------------------------------------------------------

TEST_F(SysRegistry, DeletingRemovesTheValueAndItsCompanions) {
  SetText("a", "1");
  SetBytes("N", 7, std::string("x\0y\0z\0\0", 7));
  SetDword("b", 2);
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "a"));
  EXPECT_EQ(2u, TypeOnly("N"));
  EXPECT_EQ("<Registry b=\"0x00000002\" b_OSTRELRegType=\"SYS_REG_TYPE_DWORD\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, DeletingWhatIsNotThereFails) {
  EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "none"));
  Provide("<Registry v=\"1\" v_OSTRELRegType=\"???\"/>");
  SYS_REG_Flush();
  EXPECT_EQ(1u, SYS_REG_DeleteValue(USER, "v"));
}

TEST_F(SysRegistry, DeletingAListEndsAtTheFirstMissingString) {
  Provide(
      "<Registry N=\"a\" N_OSTRELRegMltStr1=\"b\" N_OSTRELRegMltStr3=\"d\" "
      "N_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr3=\"d\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, DeletingAScalarLeavesStringsOfAFormerList) {
  SetBytes("N", 7, std::string("a\0b\0\0", 5));
  SetText("N", "x");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "N"));
  EXPECT_EQ("<Registry N_OSTRELRegMltStr1=\"b\"/>\r\n", Flushed());
}

TEST_F(SysRegistry, DeletingAValueWithoutDataSucceeds) {
  Provide("<Registry v_OSTRELRegType=\"SYS_REG_TYPE_BINARY\"/>");
  EXPECT_EQ(0u, SYS_REG_DeleteValue(USER, "v"));
  EXPECT_EQ("<Registry/>\r\n", Flushed());
}
