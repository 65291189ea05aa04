// tests/sys/support/temp_dir.h
// SPDX-License-Identifier: MIT
//
// A directory for one test, and its files as strings.

#ifndef TESTS_SYS_SUPPORT_TEMP_DIR_H
#define TESTS_SYS_SUPPORT_TEMP_DIR_H

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

// Removed with its contents when destroyed. It is in memory if possible, because the tests make
// tens of thousands of files.
class TempDir {
 public:
  TempDir() {
    std::string sPath = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    sPath += "/quobe_sys_XXXXXX";
    if (mkdtemp(sPath.data()) == nullptr) {
      abort();
    }
    m_sPath = sPath;
  }
  ~TempDir() {
    std::error_code Ignored;
    std::filesystem::remove_all(m_sPath, Ignored);
  }
  TempDir(const TempDir&)            = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The path of sName in the directory; the directory itself for none.
  std::string Path(const std::string& sName = "") const {
    return sName.empty() ? m_sPath : m_sPath + "/" + sName;
  }

 private:
  std::string m_sPath;
};

inline std::string ReadFile(const std::string& sPath) {
  std::ifstream     File(sPath, std::ios::binary);
  std::stringstream Text;
  Text << File.rdbuf();
  return Text.str();
}

// Ends the program if the file cannot be written: a test must not take the old contents for the
// new.
inline void WriteFile(const std::string& sPath, const std::string& sText) {
  std::ofstream File(sPath, std::ios::binary | std::ios::trunc);
  File << sText;
  File.close();
  if (!File) {
    perror(sPath.c_str());
    abort();
  }
}

// Returns the permission bits of a file or a directory; 0 if it does not exist.
inline uint32_t PermissionsOf(const std::string& sPath) {
  struct stat Status;
  return stat(sPath.c_str(), &Status) == 0 ? (uint32_t)Status.st_mode & 07777u : 0;
}

// Sets the process's umask while it exists.
class Umask {
 public:
  explicit Umask(mode_t Mask) : m_Before(umask(Mask)) {}
  ~Umask() { umask(m_Before); }
  Umask(const Umask&)            = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t m_Before;
};

// If the tests run as root, which no permission stops, this runs them as another user while it
// exists.
class Unprivileged {
 public:
  Unprivileged() : m_IsRoot(geteuid() == 0) {
    if (m_IsRoot && seteuid(65534) != 0) {
      abort();
    }
  }
  ~Unprivileged() {
    if (m_IsRoot && seteuid(0) != 0) {
      abort();
    }
  }
  Unprivileged(const Unprivileged&)            = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  bool m_IsRoot;
};

#endif
