// SPDX-License-Identifier: MIT

// Names and addresses of hosts.

#include <netdb.h>
#include <stdlib.h>
#include <string.h>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"
#include "machorun/socket_address.h"

namespace {

constexpr FlagPair LookupFlags[] = {
    {darwin::AI_FLAG_PASSIVE, AI_PASSIVE},         {darwin::AI_FLAG_CANONNAME, AI_CANONNAME},
    {darwin::AI_FLAG_NUMERICHOST, AI_NUMERICHOST}, {darwin::AI_FLAG_ALL, AI_ALL},
    {darwin::AI_FLAG_ADDRCONFIG, AI_ADDRCONFIG},   {darwin::AI_FLAG_V4MAPPED, AI_V4MAPPED},
    {darwin::AI_FLAG_NUMERICSERV, AI_NUMERICSERV},
};

constexpr FlagPair NameFlags[] = {
    {darwin::NI_FLAG_NOFQDN, NI_NOFQDN},     {darwin::NI_FLAG_NUMERICHOST, NI_NUMERICHOST},
    {darwin::NI_FLAG_NAMEREQD, NI_NAMEREQD}, {darwin::NI_FLAG_NUMERICSERV, NI_NUMERICSERV},
    {darwin::NI_FLAG_DGRAM, NI_DGRAM},
};

struct Code {
  int Darwin, Host;
};

constexpr Code Codes[] = {
    {darwin::EAI_CODE_AGAIN, EAI_AGAIN},     {darwin::EAI_CODE_BADFLAGS, EAI_BADFLAGS},
    {darwin::EAI_CODE_FAIL, EAI_FAIL},       {darwin::EAI_CODE_FAMILY, EAI_FAMILY},
    {darwin::EAI_CODE_MEMORY, EAI_MEMORY},   {darwin::EAI_CODE_NONAME, EAI_NONAME},
    {darwin::EAI_CODE_NONAME, EAI_NODATA},   {darwin::EAI_CODE_NONAME, EAI_ADDRFAMILY},
    {darwin::EAI_CODE_SERVICE, EAI_SERVICE}, {darwin::EAI_CODE_SOCKTYPE, EAI_SOCKTYPE},
    {darwin::EAI_CODE_SYSTEM, EAI_SYSTEM},   {darwin::EAI_CODE_OVERFLOW, EAI_OVERFLOW},
};

int CodeToDarwin(int Host) {
  if (Host == 0) {
    return 0;
  }
  for (const Code& Row : Codes) {
    if (Row.Host == Host) {
      return Row.Darwin;
    }
  }
  Unknown("name look-up code %d", Host);
}

// The text is this system's.
const char* CodeText(int Darwin) {
  for (const Code& Row : Codes) {
    if (Row.Darwin == Darwin) {
      return gai_strerror(Row.Host);
    }
  }
  Unknown("the text of name look-up code %d", Darwin);
}

// A copy of a socket address in Darwin's form; null for a family without one.
void* CopyAddress(const sockaddr* pHost) {
  if (pHost == nullptr || (pHost->sa_family != AF_INET && pHost->sa_family != AF_INET6)) {
    return nullptr;
  }
  void* p = calloc(1, sizeof(darwin::SockaddrIn6));
  AddressToDarwin(pHost, p, sizeof(darwin::SockaddrIn6));
  return p;
}

void FreeLookup(darwin::Addrinfo* pFirst) {
  while (pFirst != nullptr) {
    darwin::Addrinfo* pNext = pFirst->pNext;
    free(pFirst->pAddress);
    free(pFirst->sCanonicalName);
    delete pFirst;
    pFirst = pNext;
  }
}

int Lookup(const char* sHost, const char* sService, const darwin::Addrinfo* pHints,
           darwin::Addrinfo** ppFirst) {
  addrinfo  HostHints  = {};
  addrinfo* pHostFirst = nullptr;
  if (pHints != nullptr) {
    HostHints.ai_flags = static_cast<int>(
        FlagsToHost(static_cast<uint32_t>(pHints->Flags), LookupFlags, "getaddrinfo flags"));
    HostHints.ai_family   = FamilyToHost(pHints->Family);
    HostHints.ai_socktype = pHints->SocketType;
    HostHints.ai_protocol = pHints->Protocol;
    Trace("getaddrinfo(%s, flags 0x%x, family %d, type %d)", sHost == nullptr ? "" : sHost,
          static_cast<unsigned>(pHints->Flags), pHints->Family, pHints->SocketType);
  }
  const int Result =
      getaddrinfo(sHost, sService, pHints == nullptr ? nullptr : &HostHints, &pHostFirst);
  if (Result != 0) {
    return CodeToDarwin(Result);
  }
  darwin::Addrinfo** ppNext = ppFirst;
  for (const addrinfo* p = pHostFirst; p != nullptr; p = p->ai_next) {
    auto* pNew       = new darwin::Addrinfo{};
    pNew->Flags      = pHints == nullptr ? 0 : pHints->Flags;
    pNew->Family     = FamilyToDarwin(p->ai_family);
    pNew->SocketType = p->ai_socktype;
    pNew->Protocol   = p->ai_protocol;
    pNew->pAddress   = CopyAddress(p->ai_addr);
    pNew->AddressLength =
        p->ai_family == AF_INET ? sizeof(darwin::SockaddrIn) : sizeof(darwin::SockaddrIn6);
    pNew->sCanonicalName = p->ai_canonname == nullptr ? nullptr : strdup(p->ai_canonname);
    *ppNext              = pNew;
    ppNext               = &pNew->pNext;
  }
  *ppNext = nullptr;
  freeaddrinfo(pHostFirst);
  return 0;
}

int Name(const void* pAddress, uint32_t Length, char* pHost, uint32_t HostSize, char* pService,
         uint32_t ServiceSize, int Flags) {
  HostAddress     Host;
  const socklen_t HostLength = AddressToHost(pAddress, Length, &Host);
  const auto      HostFlags =
      static_cast<int>(FlagsToHost(static_cast<uint32_t>(Flags), NameFlags, "getnameinfo flags"));
  return CodeToDarwin(
      getnameinfo(&Host.Any, HostLength, pHost, HostSize, pService, ServiceSize, HostFlags));
}

const Shim Table[] = {
    Bound("_gai_strerror", &CodeText),
    Bound("_getaddrinfo", &Lookup),
    Bound("_freeaddrinfo", &FreeLookup),
    Bound("_getnameinfo", &Name),
};

}  // namespace

std::span<const Shim> NameShims() {
  return Table;
}
