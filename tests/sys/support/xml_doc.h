// tests/sys/support/xml_doc.h
// SPDX-License-Identifier: MIT
//
// XML documents as the tests make and check them.

#ifndef TESTS_SYS_SUPPORT_XML_DOC_H
#define TESTS_SYS_SUPPORT_XML_DOC_H

#include <gtest/gtest.h>

#include <string>

#include "sys/xml.h"

// A document that is freed with the test; NULL when the text could not be parsed.
class Doc {
 public:
  explicit Doc(XmlDocument* pDoc) : m_pDoc(pDoc) {}
  ~Doc() { SYS_XML_FreeDoc(m_pDoc); }
  Doc(Doc&& Other) noexcept : m_pDoc(Other.Release()) {}
  Doc& operator=(Doc&& Other) noexcept {
    SYS_XML_FreeDoc(m_pDoc);
    m_pDoc = Other.Release();
    return *this;
  }

  // The caller frees it.
  XmlDocument* Release() {
    XmlDocument* pDoc = m_pDoc;
    m_pDoc            = nullptr;
    return pDoc;
  }
  XmlDocument* Get() const { return m_pDoc; }
  XmlElement*  Root() const { return SYS_XML_GetRoot(m_pDoc); }
  std::string  Text() const {
     std::string   sText(0x100000, '#');
     const int32_t Length = SYS_XML_StoreDoc(m_pDoc, sText.data(), 0x100000);
     EXPECT_GE(Length, 0);
     sText.resize(Length < 0 ? 0 : (size_t)Length);
     return sText;
  }

 private:
  XmlDocument* m_pDoc;
};

inline Doc Parse(const std::string& sText, int32_t* pError = nullptr) {
  return Doc(SYS_XML_ParseDoc(sText.c_str(), pError));
}

// Parses and returns 0, or the reason for the failure.
inline int32_t ParseError(const std::string& sText) {
  int32_t      Error = 12345;
  XmlDocument* pDoc  = SYS_XML_ParseDoc(sText.c_str(), &Error);
  EXPECT_EQ(Error == 0, pDoc != nullptr);
  SYS_XML_FreeDoc(pDoc);
  return Error;
}

// Parses, writes back and returns the text; "error n" when it could not be parsed.
inline std::string Canonical(const std::string& sText) {
  int32_t   Error;
  const Doc Result = Parse(sText, &Error);
  return Result.Get() == nullptr ? "error " + std::to_string(Error) : Result.Text();
}

#endif
