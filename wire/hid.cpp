// SPDX-License-Identifier: MIT

// A stand-in for the HID library that OpenOCD's CMSIS-DAP driver uses (libhidapi-hidraw.so.0), put
// before it by LD_LIBRARY_PATH. Its devices are simulated adapters (quobe-wire), named by the
// environment:
//
//   QUOBE_WIRE="SERIAL=PORT ..."    ports of 127.0.0.1
//
// It has the ten functions that this driver imports, and passes reports as they are.

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <wchar.h>

enum { REPORT_SIZE = 64, MAX_SERIAL = 64 };

// The layout is the library's own.
struct hid_device_info {
  char*            path;
  unsigned short   vendor_id;
  unsigned short   product_id;
  wchar_t*         serial_number;
  unsigned short   release_number;
  wchar_t*         manufacturer_string;
  wchar_t*         product_string;
  unsigned short   usage_page;
  unsigned short   usage;
  int              interface_number;
  hid_device_info* next;
  int              bus_type;
};

struct hid_device {
  int           Socket;
  unsigned      NumBytes;  // of a report that has not come whole yet
  unsigned char aReport[REPORT_SIZE];
};

// One allocation for a device of the list: the strings follow it.
struct LISTED {
  hid_device_info Info;
  char            acPath[16];
  wchar_t         acSerial[MAX_SERIAL];
  wchar_t         acMaker[8];
  wchar_t         acProduct[32];
};

static hid_device_info* NewDevice(const char* sSerial, int Port) {
  LISTED* pDevice = static_cast<LISTED*>(calloc(1, sizeof(LISTED)));
  if (pDevice == nullptr) {
    return nullptr;
  }
  snprintf(pDevice->acPath, sizeof(pDevice->acPath), "%d", Port);
  swprintf(pDevice->acSerial, MAX_SERIAL, L"%s", sSerial);
  swprintf(pDevice->acMaker, 8, L"Quobe");
  swprintf(pDevice->acProduct, 32, L"Simulated CMSIS-DAP");
  pDevice->Info.path                = pDevice->acPath;
  pDevice->Info.vendor_id           = 0x1209;
  pDevice->Info.product_id          = 0x0001;
  pDevice->Info.serial_number       = pDevice->acSerial;
  pDevice->Info.manufacturer_string = pDevice->acMaker;
  pDevice->Info.product_string      = pDevice->acProduct;
  return &pDevice->Info;
}

extern "C" {

#define EXPORT __attribute__((visibility("default")))

EXPORT int hid_init(void) {
  return 0;
}

EXPORT int hid_exit(void) {
  return 0;
}

EXPORT hid_device_info* hid_enumerate(unsigned short, unsigned short) {
  const char*       sList  = getenv("QUOBE_WIRE");
  hid_device_info*  pFirst = nullptr;
  hid_device_info** ppLast = &pFirst;
  char              acSerial[MAX_SERIAL];
  int               Port     = 0;
  int               NumChars = 0;
  while (sList != nullptr && sscanf(sList, " %63[^= ]=%d%n", acSerial, &Port, &NumChars) == 2) {
    hid_device_info* pNew = NewDevice(acSerial, Port);
    if (pNew == nullptr) {
      break;
    }
    *ppLast = pNew;
    ppLast  = &pNew->next;
    sList += NumChars;
  }
  return pFirst;
}

EXPORT void hid_free_enumeration(hid_device_info* pInfo) {
  while (pInfo != nullptr) {
    hid_device_info* pNext = pInfo->next;
    free(pInfo);
    pInfo = pNext;
  }
}

EXPORT hid_device* hid_open_path(const char* sPath) {
  hid_device* pDevice = static_cast<hid_device*>(calloc(1, sizeof(hid_device)));
  if (pDevice == nullptr) {
    return nullptr;
  }
  sockaddr_in Address     = {};
  Address.sin_family      = AF_INET;
  Address.sin_port        = htons(static_cast<uint16_t>(atoi(sPath)));
  Address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  pDevice->Socket         = socket(AF_INET, SOCK_STREAM, 0);
  const int One           = 1;
  if (pDevice->Socket < 0 ||
      connect(pDevice->Socket, reinterpret_cast<sockaddr*>(&Address), sizeof(Address)) != 0) {
    if (pDevice->Socket >= 0) {
      close(pDevice->Socket);
    }
    free(pDevice);
    return nullptr;
  }
  setsockopt(pDevice->Socket, IPPROTO_TCP, TCP_NODELAY, &One, sizeof(One));
  return pDevice;
}

EXPORT void hid_close(hid_device* pDevice) {
  if (pDevice != nullptr) {
    close(pDevice->Socket);
    free(pDevice);
  }
}

// The first byte is the number of the report, 0, and does not travel.
EXPORT int hid_write(hid_device* pDevice, const unsigned char* pData, size_t Length) {
  unsigned char aReport[REPORT_SIZE] = {};
  if (Length == 0 || Length > REPORT_SIZE + 1) {
    return -1;
  }
  memcpy(aReport, pData + 1, Length - 1);
  return send(pDevice->Socket, aReport, REPORT_SIZE, MSG_NOSIGNAL) == REPORT_SIZE
             ? static_cast<int>(Length)
             : -1;
}

EXPORT int hid_read_timeout(hid_device* pDevice, unsigned char* pData, size_t Length, int Timeout) {
  while (pDevice->NumBytes < REPORT_SIZE) {
    pollfd    Socket = {pDevice->Socket, POLLIN, 0};
    const int Ready  = poll(&Socket, 1, Timeout);
    if (Ready == 0 || (Ready < 0 && errno == EINTR)) {
      return 0;
    }
    const ssize_t NumRead = recv(pDevice->Socket, pDevice->aReport + pDevice->NumBytes,
                                 REPORT_SIZE - pDevice->NumBytes, 0);
    if (NumRead <= 0) {
      return -1;
    }
    pDevice->NumBytes += static_cast<unsigned>(NumRead);
  }
  const size_t NumBytes = Length < size_t{REPORT_SIZE} ? Length : size_t{REPORT_SIZE};
  memcpy(pData, pDevice->aReport, NumBytes);
  pDevice->NumBytes = 0;
  return static_cast<int>(NumBytes);
}

EXPORT const wchar_t* hid_error(hid_device*) {
  return L"the simulated adapter does not answer";
}

}  // extern "C"
