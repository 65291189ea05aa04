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
    Add(Trim(sLine.substr(0, Equal)), Trim(sLine.substr(Equal + 1)));
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

bool KeyFile::Save(const std::string& sPath, const std::string& sHeading,
                   std::string* psError) const {
  std::string sText = "# " + sHeading + "\n";
  for (const auto& [sKey, sValue] : lines_) {
    sText += sKey;
    sText += " = ";
    sText += sValue;
    sText += '\n';
  }
  const std::string sTemp = Format("%s.%ld.tmp", sPath.c_str(), static_cast<long>(getpid()));
  const int         File  = open(sTemp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  bool              Good  = File >= 0 && WriteAll(File, sText) && fsync(File) == 0;
  if (File >= 0) {
    Good = close(File) == 0 && Good;
  }
  if (!Good || rename(sTemp.c_str(), sPath.c_str()) != 0) {
    *psError = sPath + ": " + strerror(errno);
    unlink(sTemp.c_str());
    return false;
  }
  SyncDirectoryOf(sPath);
  return true;
}

void KeyFile::Add(const std::string& sKey, const std::string& sValue) {
  lines_.emplace_back(sKey, sValue);
}

std::string KeyFile::Get(const std::string& sKey, const std::string& sDefault) const {
  for (const auto& [sName, sValue] : lines_) {
    if (sName == sKey) {
      return sValue;
    }
  }
  return sDefault;
}

}  // namespace sim
