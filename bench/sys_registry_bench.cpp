// SPDX-License-Identifier: MIT

// Ten thousand values in one key: set, query, flush to a file, load again and query, beside a GKeyFile
// and an SQLite database in memory, which are saved to a file and loaded from it as a whole.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bench/support/peer_bench.h"
#include "sys/registry.h"

#if BENCH_HAS_GLIB
#include <glib.h>
#endif
#if BENCH_HAS_SQLITE3
#include <sqlite3.h>
#endif

namespace {

std::string           sDir;     // for all files, removed at the end
std::vector<uint32_t> aResult;  // what the last queries gave

const std::vector<std::string>& GetNames() {
  static std::vector<std::string> asName;
  while (asName.size() < 10000) {
    asName.push_back("Value" + std::to_string(asName.size()));
  }
  return asName;
}

// A value that is not the same for all names.
uint32_t ValueOf(size_t Index) {
  return (uint32_t)Index * 2654435761u;
}

std::string Answer() {
  std::string All;
  for (const uint32_t Value : aResult) {
    All += std::to_string(Value) + ' ';
  }
  return All;
}

// ---- Ours ---------------------------------------------------------------------------------------

RegistryKeyHandle* OpenKey() {
  return SYS_REG_OpenKey(HKEY_CURRENT_USER, "Software\\Bench");
}

void SetValues(RegistryKeyHandle* hKey, size_t NumValues) {
  for (size_t i = 0; i < NumValues; i++) {
    const uint32_t Value = ValueOf(i);
    SYS_REG_SetValue(hKey, GetNames()[i].c_str(), SYS_REG_TYPE_DWORD, &Value, sizeof(Value));
  }
}

void QueryValues(RegistryKeyHandle* hKey, size_t NumValues) {
  aResult.resize(NumValues);
  for (size_t i = 0; i < NumValues; i++) {
    uint32_t Size = sizeof(uint32_t);
    SYS_REG_QueryValue(hKey, GetNames()[i].c_str(), NULL, &aResult[i], &Size);
  }
}

std::string GetStorePath() {
  return sDir + "/Library/Application Support/OSTREL/OSTREL_REG_HKEY_CURRENT_USER.xml";
}

void RunOurs(size_t NumValues) {
  unlink(GetStorePath().c_str());
  RegistryKeyHandle* hKey = OpenKey();
  SetValues(hKey, NumValues);
  QueryValues(hKey, NumValues);
  SYS_REG_CloseKey(hKey);
  SYS_REG_Flush();
  hKey = OpenKey();
  QueryValues(hKey, NumValues);
  SYS_REG_CloseKey(hKey);
  SYS_REG_Flush();
}

// ---- GKeyFile -----------------------------------------------------------------------------------

#if BENCH_HAS_GLIB
void QueryKeyFile(GKeyFile* pFile, size_t NumValues) {
  aResult.resize(NumValues);
  for (size_t i = 0; i < NumValues; i++) {
    aResult[i] = (uint32_t)g_key_file_get_uint64(pFile, "Bench", GetNames()[i].c_str(), NULL);
  }
}

void RunKeyFile(size_t NumValues) {
  const std::string sPath = sDir + "/keyfile";
  GKeyFile*         pFile = g_key_file_new();
  for (size_t i = 0; i < NumValues; i++) {
    g_key_file_set_uint64(pFile, "Bench", GetNames()[i].c_str(), ValueOf(i));
  }
  QueryKeyFile(pFile, NumValues);
  // Not g_key_file_save_to_file(), which waits for the disk.
  size_t NumBytes;
  gchar* pText = g_key_file_to_data(pFile, &NumBytes, NULL);
  FILE*  pOut  = fopen(sPath.c_str(), "wb");
  fwrite(pText, 1, NumBytes, pOut);
  fclose(pOut);
  g_free(pText);
  g_key_file_free(pFile);
  pFile = g_key_file_new();
  g_key_file_load_from_file(pFile, sPath.c_str(), G_KEY_FILE_NONE, NULL);
  QueryKeyFile(pFile, NumValues);
  g_key_file_free(pFile);
}
#endif

// ---- SQLite -------------------------------------------------------------------------------------

#if BENCH_HAS_SQLITE3
void QueryTable(sqlite3* pDb, size_t NumValues) {
  sqlite3_stmt* pQuery;
  sqlite3_prepare_v2(pDb, "SELECT value FROM bench WHERE name = ?", -1, &pQuery, NULL);
  aResult.resize(NumValues);
  for (size_t i = 0; i < NumValues; i++) {
    const std::string& sName = GetNames()[i];
    sqlite3_bind_text(pQuery, 1, sName.c_str(), (int)sName.size(), SQLITE_STATIC);
    sqlite3_step(pQuery);
    aResult[i] = (uint32_t)sqlite3_column_int64(pQuery, 0);
    sqlite3_reset(pQuery);
  }
  sqlite3_finalize(pQuery);
}

void RunSqlite(size_t NumValues) {
  const std::string sPath = sDir + "/database";
  sqlite3*          pDb;
  sqlite3_stmt*     pInsert;
  sqlite3_open(":memory:", &pDb);
  sqlite3_exec(pDb,
               "CREATE TABLE bench (name TEXT PRIMARY KEY, value INTEGER) WITHOUT ROWID; BEGIN",
               NULL, NULL, NULL);
  sqlite3_prepare_v2(pDb, "INSERT OR REPLACE INTO bench VALUES (?, ?)", -1, &pInsert, NULL);
  for (size_t i = 0; i < NumValues; i++) {
    const std::string& sName = GetNames()[i];
    sqlite3_bind_text(pInsert, 1, sName.c_str(), (int)sName.size(), SQLITE_STATIC);
    sqlite3_bind_int64(pInsert, 2, ValueOf(i));
    sqlite3_step(pInsert);
    sqlite3_reset(pInsert);
  }
  sqlite3_finalize(pInsert);
  sqlite3_exec(pDb, "COMMIT", NULL, NULL, NULL);
  QueryTable(pDb, NumValues);
  sqlite3_int64  NumBytes;
  unsigned char* pImage = sqlite3_serialize(pDb, "main", &NumBytes, 0);
  FILE*          pFile  = fopen(sPath.c_str(), "wb");
  fwrite(pImage, 1, (size_t)NumBytes, pFile);
  fclose(pFile);
  sqlite3_free(pImage);
  sqlite3_close(pDb);

  pImage = (unsigned char*)sqlite3_malloc64((sqlite3_uint64)NumBytes);
  pFile  = fopen(sPath.c_str(), "rb");
  if (fread(pImage, 1, (size_t)NumBytes, pFile) != (size_t)NumBytes) {
    abort();
  }
  fclose(pFile);
  sqlite3_open(":memory:", &pDb);
  sqlite3_deserialize(pDb, "main", pImage, NumBytes, NumBytes, SQLITE_DESERIALIZE_FREEONCLOSE);
  QueryTable(pDb, NumValues);
  sqlite3_close(pDb);
}
#endif

// ---- Growth -------------------------------------------------------------------------------------

template <typename RUN>
void AddSizes(RUN Run) {
  for (const size_t Size : {1000u, 2000u, 5000u, 10000u}) {
    BENCH_AddSize((int64_t)Size, (int64_t)Size, [=] { Run(Size); });
  }
}

std::string MakeList(size_t NumStrings) {
  std::string sList;
  for (size_t i = 0; i < NumStrings; i++) {
    sList += std::to_string(i % 10) + '\0';
  }
  return sList + '\0';
}

void AddGrowth() {
  BENCH_Growth("set, query, flush, load, query: for each value", 1.5);
  AddSizes([](size_t NumValues) { RunOurs(NumValues); });

  // Loading is a small part of it.
  BENCH_Growth("query, 20 times each: for each query", 1.5);
  for (const size_t NumValues : {1000u, 2000u, 5000u, 10000u}) {
    BENCH_AddSize((int64_t)NumValues, 20 * (int64_t)NumValues, [=] {
      RegistryKeyHandle* hKey = OpenKey();
      for (int Pass = 0; Pass < 20; Pass++) {
        QueryValues(hKey, NumValues);
      }
      SYS_REG_CloseKey(hKey);
      SYS_REG_Flush();
    });
  }

  BENCH_Growth("keys: make and open again, for each", 1.5);
  AddSizes([](size_t NumKeys) {
    unlink(GetStorePath().c_str());
    for (int Pass = 0; Pass < 2; Pass++) {
      for (size_t i = 0; i < NumKeys; i++) {
        SYS_REG_CloseKey(SYS_REG_OpenKey(HKEY_CURRENT_USER, GetNames()[i].c_str()));
      }
    }
    SYS_REG_Flush();
  });

  BENCH_Growth("a list: set over itself, query and delete, for each string", 1.5,
               "level up to 20,000 strings; beyond that their records, texts and table entries are "
               "more than the second-level cache holds");
  for (const size_t NumStrings : {5000u, 20000u, 80000u, 320000u}) {
    const std::string sList = MakeList(NumStrings);
    BENCH_AddSize((int64_t)NumStrings, (int64_t)NumStrings, [=] {
      std::string        sBuffer(sList.size() + 100, 0);
      uint32_t           Size = (uint32_t)sBuffer.size();
      RegistryKeyHandle* hKey = OpenKey();
      for (int Pass = 0; Pass < 2; Pass++) {
        SYS_REG_SetValue(hKey, "List", SYS_REG_TYPE_MULTI_SZ, sList.data(), (uint32_t)sList.size());
      }
      SYS_REG_QueryValue(hKey, "List", NULL, sBuffer.data(), &Size);
      SYS_REG_DeleteValue(hKey, "List");
      SYS_REG_CloseKey(hKey);
      SYS_REG_Flush();
    });
  }
}

}  // namespace

int main(int NumArgs, char** pasArgs) {
  char acDir[] = "/tmp/quobe_bench_XXXXXX";
  if (mkdtemp(acDir) == NULL) {
    return 1;
  }
  sDir = acDir;
  setenv("HOME", acDir, 1);
  const size_t NumValues = 10000;
  BENCH_Job("registry", "Registry store: open, set, query, flush, load, query");
  BENCH_Row("10,000 values in one key", 0.50,
            "a quarter of the time is the search in the table, once for each new name and each "
            "query; the "
            "rest is spread over some twenty functions (perf)");
  BENCH_Add(
      "ours", [=] { RunOurs(NumValues); }, Answer);
#if BENCH_HAS_GLIB
  BENCH_Add(
      "GKeyFile", [=] { RunKeyFile(NumValues); }, Answer);
#endif
#if BENCH_HAS_SQLITE3
  BENCH_Add(
      "SQLite", [=] { RunSqlite(NumValues); }, Answer);
#endif
  AddGrowth();
  const int Result = BENCH_Main(NumArgs, pasArgs);
  SYS_REG_Flush();
  std::filesystem::remove_all(sDir);
  return Result;
}
