// SPDX-License-Identifier: MIT

// The XML loader with any text, compared with its model, and with what the writer makes of it.
#include "fuzz/fuzz_input.h"
#include "sys/xml.h"
#include "tests/sys/support/registry_model.h"

// Returns the document's text. It always fits, because the input is short.
static std::string Store(const XmlDocument* pDoc) {
  static char   acText[SYS_XML_MAX_TEXT];
  const int32_t NumBytes = SYS_XML_StoreDoc(pDoc, acText, sizeof(acText));
  FUZZ_EXPECT(NumBytes > 0);
  return std::string(acText, (size_t)NumBytes);
}

static std::string ParseAndStore(const std::string& sText) {
  const FUZZ_BLOCK Block(sText);
  int32_t          Error = 1;
  XmlDocument*     pDoc  = SYS_XML_ParseDoc(Block.Get(), &Error);
  FUZZ_EXPECT(pDoc != NULL ? Error == 0 : Error < 0);
  const std::string sStored = pDoc == NULL ? "" : Store(pDoc);
  SYS_XML_FreeDoc(pDoc);
  return sStored;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  const std::string sText   = FUZZ_INPUT(pData, NumBytes).Text();
  const std::string sStored = ParseAndStore(sText);
  const MODEL_TREE  Model   = MODEL_Parse(sText);
  FUZZ_EXPECT(sStored == (Model == nullptr ? "" : MODEL_Write(*Model)));
  // Read again, the text that was written is written unchanged.
  FUZZ_EXPECT(sStored == ParseAndStore(sStored));
  return 0;
}
