// SPDX-License-Identifier: MIT

#include "sim/keyfile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "sim/text.h"

namespace sim {

static const size_t MAX_BYTES = 64 << 20;  // no device needs a tenth of it

bool KeyFile::Load(const std::string& sPath, std::string* psError) {
  sPath_ = sPath;
  lines_.clear();
  FILE* pFile = fopen(sPath.c_str(), "r");
  if (pFile == nullptr) {
    *psError = sPath + ": " + strerror(errno);
    return false;
  }
  std::string sContent;
  char        acBuffer[16384];
  size_t      NumBytes = 0;
  while (sContent.size() <= MAX_BYTES &&
         (NumBytes = fread(acBuffer, 1, sizeof(acBuffer), pFile)) > 0) {
    sContent.append(acBuffer, NumBytes);
  }
  // Half a file read would soon be half a file written.
  const int Error = ferror(pFile) != 0 ? errno : sContent.size() > MAX_BYTES ? EFBIG : 0;
  fclose(pFile);
  if (Error != 0) {
    *psError = sPath + ": " + strerror(Error);
    return false;
  }

  int LineNo = 0;
  for (const std::string& sLine : Split(sContent, '\n')) {
    LineNo++;
    if (sLine.empty() || sLine[0] == '#') {
      continue;
    }
    const size_t Equal = sLine.find('=');
    if (Equal == std::string::npos || Trim(sLine.substr(0, Equal)).empty()) {
      *psError = Format("%s:%d: expected \"key = value\"", sPath.c_str(), LineNo);
      return false;
    }
    lines_.push_back({Trim(sLine.substr(0, Equal)), Trim(sLine.substr(Equal + 1)), LineNo});
  }
  return true;
}

static bool WriteAll(int File, const std::string& sText) {
  size_t Done = 0;
  while (Done < sText.size()) {
    const ssize_t Result = write(File, sText.data() + Done, sText.size() - Done);
    if (Result < 0 && errno == EINTR) {
      continue;
    }
    if (Result <= 0) {
      return false;
    }
    Done += static_cast<size_t>(Result);
  }
  return true;
}

// Makes the rename itself last; a directory that cannot be synced (some file systems) is left so.
static void SyncDirectoryOf(const std::string& sPath) {
  const size_t      Slash = sPath.rfind('/');
  const std::string sDir  = Slash == std::string::npos ? "." : sPath.substr(0, Slash + 1);
  const int         Dir   = open(sDir.c_str(), O_RDONLY | O_CLOEXEC);
  if (Dir >= 0) {
    fsync(Dir);
    close(Dir);
  }
}

bool ReplaceFile(const std::string& sPath, const std::string& sText, LASTING Lasting,
                 std::string* psError) {
  const std::string sTemp = Format("%s.%ld.tmp", sPath.c_str(), static_cast<long>(getpid()));
  const int         File  = open(sTemp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  bool Good  = File >= 0 && WriteAll(File, sText) && (Lasting != FOR_GOOD || fsync(File) == 0);
  int  Error = errno;
  if (File >= 0 && close(File) != 0 && Good) {
    Good  = false;
    Error = errno;
  }
  if (Good && rename(sTemp.c_str(), sPath.c_str()) != 0) {
    Good  = false;
    Error = errno;
  }
  if (!Good) {
    *psError = sPath + ": " + strerror(Error);
    unlink(sTemp.c_str());
    return false;
  }
  if (Lasting == FOR_GOOD) {
    SyncDirectoryOf(sPath);
  }
  return true;
}

std::string KeyFile::Text(const std::string& sHeading) const {
  std::string sText = "# " + sHeading + "\n";
  for (const KEY_LINE& Line : lines_) {
    sText += Line.sKey;
    sText += " = ";
    sText += Line.sValue;
    sText += '\n';
  }
  return sText;
}

std::string KeyFile::Place(const KEY_LINE& Line) const {
  return Line.LineNo != 0 ? Format("%s:%d: ", sPath_.c_str(), Line.LineNo)
         : sPath_.empty() ? ""
                          : sPath_ + ": ";
}

void KeyFile::Add(const std::string& sKey, const std::string& sValue) {
  lines_.push_back({sKey, sValue});
}

void KeyFile::Add(const KeyFile& Other) {
  lines_.insert(lines_.end(), Other.lines_.begin(), Other.lines_.end());
}

std::string KeyFile::Get(const std::string& sKey, const std::string& sDefault) const {
  for (const KEY_LINE& Line : lines_) {
    if (Line.sKey == sKey) {
      return Line.sValue;
    }
  }
  return sDefault;
}

}  // namespace sim
