// SPDX-License-Identifier: MIT

// The forwarding functions, called from this executable and from a module outside it. Each test
// runs in its own process, so every first call resolves.

#include "probeapi/forward.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <utility>

#include "tests/probeapi/forward_shapes.h"

#ifndef WITHOUT_XSAVE  // set to 1 where the stubs are built as for a processor without XSAVE
#define WITHOUT_XSAVE 0
#endif

extern "C" {
const char* QUOBE_Open(void);
const char* QUOBEARM_Open(void);
int         QUOBE_IsOpen(void);
void        QUOBE_SetSpeed(long* pWritten);
int64_t     QUOBE_GetSpeed(void);
void        QUOBE_Step(void);
}

// AddressSanitizer calls this when a process ends, before it searches for leaks. The search takes
// longer than the rest of a child, and one test starts 630 of them.
static bool    IsLeakCheckOff;
extern "C" int __lsan_is_turned_off(void);
extern "C" int __lsan_is_turned_off(void) {
  return IsLeakCheckOff;
}

static const char* const Names[] = {
#define FORWARD(Name) #Name,
#include "probeapi/names.inc"
#undef FORWARD
};

static void* const* const Slots[] = {
#define FORWARD(Name) &FORWARD_Slot_##Name,
#include "probeapi/names.inc"
#undef FORWARD
};

template <class FUNCTION>
static FUNCTION* FromCaller(const char* sName) {
  static void* hCaller = dlopen(FORWARD_CALLER_MODULE, RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(nullptr, hCaller) << dlerror();
  return reinterpret_cast<FUNCTION*>(dlsym(hCaller, sName));
}

// Each call twice: the first resolves, the second goes straight through.
TEST(Forward, IntegersInRegistersAndOnTheStackPass) {
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(1 + 2 * 20 + 3 * 300 + 4 * 4000 + 5 * 50000 + 6 * 600000 + 7 * 7000000LL +
                  8 * 80000000LL + 9 * 900000000LL - 10 * 1000000000LL,
              FromCaller<int64_t()>("CALLER_Integers")());
  }
}

TEST(Forward, DoublesFloatsAndIntegersMixedPass) {
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(1.5 + 2 * 2.5 + 3 * 3.5 + 4 * 4.5 + 5 * 5.5 + 6 * 6.5 + 7 * 7.5 + 8 * 8.5 + 9 * 9.5 +
                  10 * 10.5 + 11 * 11,
              FromCaller<double()>("CALLER_Doubles")());
  }
}

TEST(Forward, VariadicArgumentsPass) {
  for (int i = 0; i < 2; i++) {
    char acBuffer[200] = "";
    FromCaller<int(char*, int)>("CALLER_Variadic")(acBuffer, sizeof(acBuffer));
    EXPECT_STREQ("-1 2.25 text 1234567890123 1.0 2.0 3.0 4.0 5.0 6.0 7.0 8.0", acBuffer);
  }
}

TEST(Forward, StructuresByValuePassBothWays) {
  for (int i = 0; i < 2; i++) {
    const LARGE_STRUCT Large = FromCaller<LARGE_STRUCT()>("CALLER_LargeStruct")();
    for (int k = 0; k < 5; k++) {
      EXPECT_EQ(11 + k, Large.Values[k]);
    }
    const MIXED_STRUCT Mixed = FromCaller<MIXED_STRUCT()>("CALLER_MixedStruct")();
    EXPECT_EQ(2.5, Mixed.Real);
    EXPECT_EQ(21, Mixed.Whole);
  }
}

TEST(Forward, WideVectorsPassWhole) {
  if (!HAVE_WIDE_CODE || WITHOUT_XSAVE) {
    GTEST_SKIP() << "no AVX here";
  }
  for (int i = 0; i < 2; i++) {
    double aResult[8] = {};
    FromCaller<void(double*)>("CALLER_Vector")(aResult);
    for (int k = 0; k < WIDE_VECTOR_ITEMS; k++) {
      EXPECT_EQ(101.0 * (k + 1), aResult[k]) << k;
    }
  }
}

TEST(Forward, WidestVectorsPassWhole) {
  if (!HAVE_WIDEST_CODE || WITHOUT_XSAVE) {
    GTEST_SKIP() << "no AVX-512 here";
  }
  for (int i = 0; i < 2; i++) {
    double aResult[8] = {};
    FromCaller<void(double*)>("CALLER_WidestVector")(aResult);
    for (int k = 0; k < WIDEST_VECTOR_ITEMS; k++) {
      EXPECT_EQ(101.0 * (k + 1), aResult[k]) << k;
    }
  }
}

#if defined(__x86_64__)
TEST(Forward, NumberOfVectorRegistersOfAVariadicCallPasses) {
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(3, FromCaller<int()>("CALLER_NumVectorRegisters")());
  }
}
#endif

TEST(Forward, PointerArgumentsReachTheCallersMemory) {
  long Written = 0;
  QUOBE_SetSpeed(&Written);
  EXPECT_EQ(4711, Written);
}

TEST(Forward, TwinsOfTheTwoFamiliesAreResolvedSeparately) {
  EXPECT_EQ(nullptr, FORWARD_Slot_QUOBE_Open);
  EXPECT_STREQ("QUOBEARM_Open", QUOBEARM_Open());
  EXPECT_EQ(nullptr, FORWARD_Slot_QUOBE_Open);
  EXPECT_NE(nullptr, FORWARD_Slot_QUOBEARM_Open);
  EXPECT_STREQ("QUOBE_Open", QUOBE_Open());
  EXPECT_NE(FORWARD_Slot_QUOBE_Open, FORWARD_Slot_QUOBEARM_Open);
}

TEST(Forward, FunctionIsResolvedOnce) {
  EXPECT_EQ(1, QUOBE_IsOpen());
  void* const pFirst = FORWARD_Slot_QUOBE_IsOpen;
  EXPECT_EQ(2, QUOBE_IsOpen());
  EXPECT_EQ(pFirst, FORWARD_Slot_QUOBE_IsOpen);
  // A slot that is set is used as it is, here with another function in it.
  FORWARD_Slot_QUOBE_Open = reinterpret_cast<void*>(+[]() -> const char* { return "mine"; });
  EXPECT_STREQ("mine", QUOBE_Open());
}

TEST(Forward, SymbolWhoseValueIsNullReturnsZeroAndStaysUnresolved) {
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(0, QUOBE_GetSpeed());
    EXPECT_EQ(0.0,
              reinterpret_cast<double (*)(double)>(reinterpret_cast<void*>(&QUOBE_GetSpeed))(1.5));
    EXPECT_EQ(nullptr, FORWARD_Slot_QUOBE_GetSpeed);
  }
}

TEST(Forward, MissingFunctionClosesTheLibraryAndIsPrintedWithTheReason) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        QUOBE_Step();
      },
      testing::ExitedWithCode(1),
      "^library closed\nFunction not found: QUOBE_Step \\(.*QUOBE_Step.*\\)\\. Exiting "
      "now\\.\n$");
}

TEST(Forward, AllSlotsAreEmptyBeforeTheFirstCall) {
  for (size_t i = 0; i < FORWARD_NUM_FUNCTIONS; i++) {
    EXPECT_EQ(nullptr, *Slots[i]) << Names[i];
  }
}

// Every entry must use its own slot and resolve its own name. Each is called with a function in its
// slot; and each name that the library lacks must be in the message of the failed call.
static size_t LastCalled;

template <size_t Index>
static void NoteCall() {
  LastCalled = Index;
}

template <size_t... Indices>
static void ExpectOwnSlots(std::index_sequence<Indices...>) {
  static void (*const Notes[])() = {&NoteCall<Indices>...};
  for (size_t i = 0; i < sizeof...(Indices); i++) {
    *const_cast<void**>(Slots[i]) = reinterpret_cast<void*>(Notes[i]);
  }
  for (size_t i = 0; i < sizeof...(Indices); i++) {
    void (*pEntry)() = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, Names[i]));
    ASSERT_NE(nullptr, pEntry) << Names[i];
    LastCalled = FORWARD_NUM_FUNCTIONS;
    pEntry();
    EXPECT_EQ(i, LastCalled) << Names[i];
  }
}

TEST(Forward, EachEntryJumpsThroughItsOwnSlot) {
  ExpectOwnSlots(std::make_index_sequence<FORWARD_NUM_FUNCTIONS>());
}

// The names that the library has, one whose value is null included.
static std::set<std::string> NamesInLibrary() {
  void* const           hLibrary = dlopen(FORWARD_LIBRARY, RTLD_LAZY);
  std::set<std::string> Found;
  for (const char* sName : Names) {
    dlerror();
    dlsym(hLibrary, sName);
    if (dlerror() == nullptr) {
      Found.insert(sName);
    }
  }
  dlclose(hLibrary);
  return Found;
}

// Calls the entry in a child. Stores what it printed and returns how it ended.
static int CallInChild(const char* sName, std::string* pPrinted) {
  int Ends[2];
  EXPECT_EQ(0, pipe(Ends));
  const pid_t Child = fork();
  if (Child == 0) {
    IsLeakCheckOff = true;
    dup2(Ends[1], 1);
    reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, sName))();
    _exit(99);
  }
  close(Ends[1]);
  char    acBytes[2048];
  ssize_t Length;
  while ((Length = read(Ends[0], acBytes, sizeof(acBytes))) > 0) {
    pPrinted->append(acBytes, static_cast<size_t>(Length));
  }
  close(Ends[0]);
  int Status = -1;
  waitpid(Child, &Status, 0);
  return Status;
}

TEST(Forward, EachEntryAsksForItsOwnName) {
  const std::set<std::string> InLibrary = NamesInLibrary();
  ASSERT_GE(InLibrary.size(), 12u);
  ASSERT_LE(InLibrary.size(), 13u);
  for (const char* sName : Names) {
    if (InLibrary.count(sName) != 0) {
      continue;  // it would run, without the arguments that it needs
    }
    std::string       Printed;
    const int         Status = CallInChild(sName, &Printed);
    const std::string Begin  = std::string("library closed\nFunction not found: ") + sName + " (";
    const std::string End    = "). Exiting now.\n";
    EXPECT_TRUE(WIFEXITED(Status)) << sName << " " << Status;
    EXPECT_EQ(1, WEXITSTATUS(Status)) << sName;
    ASSERT_GT(Printed.size(), Begin.size() + End.size()) << Printed;
    EXPECT_EQ(Begin, Printed.substr(0, Begin.size()));
    EXPECT_EQ(End, Printed.substr(Printed.size() - End.size()));
  }
}
