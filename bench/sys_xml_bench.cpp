// SPDX-License-Identifier: MIT

// Loading a document from a file and writing it into memory, beside pugixml and rapidxml.
//
// The documents are what the registry store writes: keys with six values each, a value being two
// attributes. The peers are set up for the same job: names and values ended by a zero, no entities.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "bench/support/peer_bench.h"
#include "sys/xml.h"

#if BENCH_HAS_PUGIXML
#include <pugixml.hpp>
#endif
#if BENCH_HAS_RAPIDXML
#include <rapidxml/rapidxml.hpp>
#include <rapidxml/rapidxml_utils.hpp>
#endif

namespace {

const uint32_t TEXT_SIZE = 0x100000;

std::vector<char> aText(TEXT_SIZE);  // what the last writer wrote
size_t            TextLength;

// Removes its file with the program.
struct FILE_OF_TEXT {
  std::string sPath;

  explicit FILE_OF_TEXT(const std::string& sText) : sPath("/tmp/quobe_bench_XXXXXX") {
    close(mkstemp(sPath.data()));
    std::ofstream(sPath, std::ios::binary) << sText;
  }
  ~FILE_OF_TEXT() { unlink(sPath.c_str()); }
  FILE_OF_TEXT(const FILE_OF_TEXT&)            = delete;
  FILE_OF_TEXT& operator=(const FILE_OF_TEXT&) = delete;
};

void AddValues(XmlDocument* pDoc, XmlElement* pKey, uint32_t Number) {
  static const char* const asName[] = {"Device", "Speed", "SerialNo", "LastFile", "Flags", "Count"};
  for (const std::string sName : asName) {
    const bool IsText = sName == "Device" || sName == "LastFile";
    char       acValue[64];
    snprintf(acValue, sizeof(acValue), IsText ? "some text %u of a value" : "0x%.8X", Number);
    SYS_XML_SetAttr(pDoc, pKey, sName.c_str(), acValue);
    SYS_XML_SetAttr(pDoc, pKey, (sName + "_OSTRELRegType").c_str(),
                    IsText ? "SYS_REG_TYPE_SZ" : "SYS_REG_TYPE_DWORD");
  }
}

std::string Store(const XmlDocument* pDoc) {
  std::string sText(TEXT_SIZE, 0);
  sText.resize((size_t)SYS_XML_StoreDoc(pDoc, sText.data(), TEXT_SIZE));
  return sText;
}

// A document of at least so many bytes of text.
XmlDocument* MakeDoc(size_t NumBytes) {
  XmlDocument* pDoc = SYS_XML_CreateDoc("Registry");
  XmlElement*  pTop = NULL;
  for (uint32_t i = 0;; i++) {
    char acName[16];
    if (i % 16 == 0) {
      snprintf(acName, sizeof(acName), "Group%u", i / 16);
      pTop = SYS_XML_FindOrAddChild(pDoc, SYS_XML_GetRoot(pDoc), acName);
    }
    snprintf(acName, sizeof(acName), "Key%u", i);
    AddValues(pDoc, SYS_XML_FindOrAddChild(pDoc, pTop, acName), i);
    if ((i + 1) * 490 >= NumBytes) {
      return pDoc;
    }
  }
}

// ---- Answers: all names and values in their order -----------------------------------------------

void Append(const XmlElement* pElement, std::string* pAll) {
  for (; pElement != NULL; pElement = pElement->pNext) {
    *pAll += '<' + std::string(pElement->sName);
    for (const XmlAttribute* pAttr = pElement->pFirstAttr; pAttr != NULL; pAttr = pAttr->pNext) {
      *pAll += ' ' + std::string(pAttr->sName) + '=' + pAttr->sValue;
    }
    Append(pElement->pFirstChild, pAll);
    *pAll += '>';
  }
}

std::string TextWithoutBlanks() {
  std::string sText;
  for (size_t i = 0; i < TextLength; i++) {
    if (aText[i] != ' ' && aText[i] != '\r' && aText[i] != '\n') {
      sText += aText[i];
    }
  }
  return sText;
}

// ---- Loading ------------------------------------------------------------------------------------

void AddOurLoad(const char* sPath) {
  BENCH_Add(
      "ours", [=] { SYS_XML_FreeDoc(SYS_XML_LoadDoc(sPath, NULL)); },
      [=] {
        XmlDocument* pDoc = SYS_XML_LoadDoc(sPath, NULL);
        std::string  All;
        Append(SYS_XML_GetRoot(pDoc), &All);
        SYS_XML_FreeDoc(pDoc);
        return All;
      });
}

#if BENCH_HAS_PUGIXML
void Append(pugi::xml_node Node, std::string* pAll) {
  for (; Node; Node = Node.next_sibling()) {
    *pAll += '<' + std::string(Node.name());
    for (const pugi::xml_attribute Attr : Node.attributes()) {
      *pAll += ' ' + std::string(Attr.name()) + '=' + Attr.value();
    }
    Append(Node.first_child(), pAll);
    *pAll += '>';
  }
}

void AddPugixmlLoad(const char* sPath) {
  BENCH_Add(
      "pugixml",
      [=] {
        pugi::xml_document Doc;
        benchmark::DoNotOptimize(Doc.load_file(sPath, pugi::parse_minimal, pugi::encoding_utf8));
      },
      [=] {
        pugi::xml_document Doc;
        Doc.load_file(sPath, pugi::parse_minimal, pugi::encoding_utf8);
        std::string All;
        Append(Doc.first_child(), &All);
        return All;
      });
}
#endif

#if BENCH_HAS_RAPIDXML
void Append(const rapidxml::xml_node<>* pNode, std::string* pAll) {
  for (; pNode != NULL; pNode = pNode->next_sibling()) {
    *pAll += '<' + std::string(pNode->name());
    for (const rapidxml::xml_attribute<>* pAttr = pNode->first_attribute(); pAttr != NULL;
         pAttr                                  = pAttr->next_attribute()) {
      *pAll += ' ' + std::string(pAttr->name()) + '=' + pAttr->value();
    }
    Append(pNode->first_node(), pAll);
    *pAll += '>';
  }
}

void AddRapidxmlLoad(const char* sPath) {
  static constexpr int FLAGS = rapidxml::parse_no_entity_translation;
  BENCH_Add(
      "rapidxml",
      [=] {
        rapidxml::file<>         File(sPath);
        rapidxml::xml_document<> Doc;
        Doc.parse<FLAGS>(File.data());
        benchmark::DoNotOptimize(Doc.first_node());
      },
      [=] {
        rapidxml::file<>         File(sPath);
        rapidxml::xml_document<> Doc;
        Doc.parse<FLAGS>(File.data());
        std::string All;
        Append(Doc.first_node(), &All);
        return All;
      });
}
#endif

void AddLoad(const char* sRow, double Goal, const char* sPath, const char* sNote = "") {
  BENCH_Row(sRow, Goal, sNote);
  AddOurLoad(sPath);
#if BENCH_HAS_PUGIXML
  AddPugixmlLoad(sPath);
#endif
#if BENCH_HAS_RAPIDXML
  AddRapidxmlLoad(sPath);
#endif
}

// ---- Writing ------------------------------------------------------------------------------------

#if BENCH_HAS_PUGIXML
struct TEXT_WRITER : pugi::xml_writer {
  void write(const void* pBytes, size_t NumBytes) override {
    memcpy(aText.data() + TextLength, pBytes, NumBytes);
    TextLength += NumBytes;
  }
};
#endif

void AddWrite(const char* sRow, double Goal, const XmlDocument* pDoc, const char* sPath,
              const char* sNote = "") {
  BENCH_Row(sRow, Goal, sNote);
  BENCH_Add(
      "ours", [=] { TextLength = (size_t)SYS_XML_StoreDoc(pDoc, aText.data(), TEXT_SIZE); },
      TextWithoutBlanks);
#if BENCH_HAS_PUGIXML
  auto* pPeer = new pugi::xml_document;  // for the whole run
  pPeer->load_file(sPath, pugi::parse_minimal, pugi::encoding_utf8);
  const unsigned Format =
      pugi::format_indent | pugi::format_no_declaration | pugi::format_no_escapes;
  BENCH_Add(
      "pugixml",
      [=] {
        TEXT_WRITER Writer;
        TextLength = 0;
        pPeer->save(Writer, "  ", Format, pugi::encoding_utf8);
      },
      TextWithoutBlanks);
#else
  (void)sPath;
#endif
}

// ---- Growth -------------------------------------------------------------------------------------

void AddGrowth() {
  static std::vector<FILE_OF_TEXT*> apFile;  // for the whole run
  BENCH_Growth("load, for each byte of text", 1.5);
  for (const size_t NumBytes : {16000u, 64000u, 256000u, 900000u}) {
    XmlDocument* pDoc  = MakeDoc(NumBytes);
    auto*        pFile = new FILE_OF_TEXT(Store(pDoc));
    SYS_XML_FreeDoc(pDoc);
    apFile.push_back(pFile);
    BENCH_AddSize((int64_t)NumBytes, (int64_t)NumBytes,
                  [=] { SYS_XML_FreeDoc(SYS_XML_LoadDoc(pFile->sPath.c_str(), NULL)); });
  }
  atexit([] {
    for (const FILE_OF_TEXT* pFile : apFile) {
      delete pFile;
    }
  });
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  BENCH_Job("xml", "XML documents: loading from a file, writing into memory");
  XmlDocument* const pSmall  = MakeDoc(1000);
  XmlDocument* const pMiddle = MakeDoc(64000);
  XmlDocument* const pLarge  = MakeDoc(920000);
  const FILE_OF_TEXT Small(Store(pSmall));
  const FILE_OF_TEXT Middle(Store(pMiddle));
  const FILE_OF_TEXT Large(Store(pLarge));
  AddLoad("load 1 KiB", 0.95, Small.sPath.c_str());
  AddLoad("load 64 KiB", 0.65, Middle.sPath.c_str());
  AddLoad("load 900 KiB", 0.60, Large.sPath.c_str(),
          "the file, its text and the records are 2.6 MB, more than the second-level cache, so the "
          "time is that of memory; counting lines while reading, and prefetching, changed nothing");
  AddWrite("write 1 KiB", 0.35, pSmall, Small.sPath.c_str());
  AddWrite("write 64 KiB", 0.35, pMiddle, Middle.sPath.c_str());
  AddWrite("write 900 KiB", 0.45, pLarge, Large.sPath.c_str(),
           "records and text are more than the second-level cache holds; of 64 KiB the same code "
           "takes 0.31");
  AddGrowth();
  const int Result = BENCH_Main(NumArgs, pasArgs);
  SYS_XML_FreeDoc(pSmall);
  SYS_XML_FreeDoc(pMiddle);
  SYS_XML_FreeDoc(pLarge);
  return Result;
}
