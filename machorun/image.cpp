// SPDX-License-Identifier: MIT

#include "machorun/image.h"

#include <stdio.h>
#include <string.h>
#include <sys/mman.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace {

constexpr uint32_t MAGIC_UNIVERSAL = 0xBEBAFECA;  // stored big-endian
constexpr uint32_t MAGIC_64        = 0xFEEDFACF;
constexpr uint32_t CPU_X86_64      = 0x01000007;
constexpr uint32_t TYPE_EXECUTE    = 2;
constexpr uint32_t TYPE_DYLIB      = 6;

enum : uint32_t {
  COMMAND_REQUIRED       = 0x80000000,  // a loader that does not know the command must stop
  COMMAND_SYMTAB         = 0x2,
  COMMAND_LOAD_DYLIB     = 0xC,
  COMMAND_SEGMENT        = 0x19,
  COMMAND_DYLD_INFO      = 0x22,
  COMMAND_DYLD_INFO_ONLY = 0x22 | COMMAND_REQUIRED,
  COMMAND_MAIN           = 0x28 | COMMAND_REQUIRED,
};

enum : uint32_t {
  SECTION_TYPE_MASK       = 0xFF,
  SECTION_INIT_POINTERS   = 0x9,
  SECTION_TERM_POINTERS   = 0xA,
  SECTION_THREAD_VARIABLE = 0x13,
  SECTION_INIT_OFFSETS    = 0x16,
};

struct Header {
  uint32_t Magic, CpuType, CpuSubtype, FileType, NumCommands, CommandBytes, Flags, Reserved;
};

struct Command {
  uint32_t Type, Size;
};

struct Segment {
  uint32_t Type, Size;
  char     acName[16];
  uint64_t Address, MemorySize, FileOffset, FileSize;
  int32_t  MaxProtection, Protection;
  uint32_t NumSections, Flags;
};

struct Section {
  char     acName[16], acSegment[16];
  uint64_t Address, Size;
  uint32_t Offset, Align, RelocOffset, NumRelocs, Flags, Reserved1, Reserved2, Reserved3;
};

struct DylibCommand {
  uint32_t Type, Size, NameOffset, Timestamp, CurrentVersion, CompatibilityVersion;
};

struct SymtabCommand {
  uint32_t Type, Size, SymbolOffset, NumSymbols, StringOffset, StringSize;
};

struct DyldInfoCommand {
  uint32_t Type, Size;
  uint32_t RebaseOffset, RebaseSize, BindOffset, BindSize, WeakBindOffset, WeakBindSize;
  uint32_t LazyBindOffset, LazyBindSize, ExportOffset, ExportSize;
};

struct MainCommand {
  uint32_t Type, Size;
  uint64_t EntryOffset, StackSize;
};

struct SymbolEntry {
  uint32_t Name;
  uint8_t  Type, Section;
  uint16_t Description;
  uint64_t Value;
};

std::vector<std::unique_ptr<Image>> Images;

[[noreturn]] void Refuse(const std::string& sWhat) {
  throw std::runtime_error(sWhat);
}

// The bytes of the x86-64 slice. A read beyond its end is refused.
class File {
 public:
  explicit File(const std::string& sPath) {
    std::ifstream Stream(sPath, std::ios::binary);
    if (!Stream) {
      Refuse(sPath + ": cannot be read");
    }
    Bytes_.assign(std::istreambuf_iterator<char>(Stream), {});
    if (Read<uint32_t>(0) == MAGIC_UNIVERSAL) {
      KeepSlice();
    }
    const auto Head = Read<Header>(0);
    if (Head.Magic != MAGIC_64 || Head.CpuType != CPU_X86_64 ||
        (Head.FileType != TYPE_EXECUTE && Head.FileType != TYPE_DYLIB)) {
      Refuse(sPath + ": is no Mach-O executable or library for x86-64");
    }
    uint64_t At = sizeof(Header);
    for (uint32_t i = 0; i < Head.NumCommands; i++) {
      const auto Entry = Read<Command>(At);
      if (Entry.Size < sizeof(Command)) {
        Refuse(sPath + ": has a load command without a size");
      }
      CommandOffsets.push_back(At);
      At += Entry.Size;
    }
  }

  template <class T>
  T Read(uint64_t Offset) const {
    T Value;
    memcpy(&Value, At(Offset, sizeof(T)), sizeof(T));
    return Value;
  }

  const uint8_t* At(uint64_t Offset, uint64_t Length) const {
    if (Offset > Bytes_.size() || Length > Bytes_.size() - Offset) {
      Refuse("the file ends inside of what it describes");
    }
    return Bytes_.data() + Offset;
  }

  std::string Text(uint64_t Offset, uint64_t Limit) const {
    const char* sText = reinterpret_cast<const char*>(At(Offset, Limit));
    return std::string(sText, strnlen(sText, Limit));
  }

  std::vector<uint64_t> CommandOffsets;

 private:
  void KeepSlice() {
    const uint32_t NumSlices = __builtin_bswap32(Read<uint32_t>(4));
    for (uint32_t i = 0; i < NumSlices; i++) {
      const uint64_t Entry = 8 + 20ull * i;
      if (__builtin_bswap32(Read<uint32_t>(Entry)) == CPU_X86_64) {
        const uint64_t       Offset = __builtin_bswap32(Read<uint32_t>(Entry + 8));
        const uint64_t       Length = __builtin_bswap32(Read<uint32_t>(Entry + 12));
        const uint8_t*       pSlice = At(Offset, Length);
        std::vector<uint8_t> Slice(pSlice, pSlice + Length);
        Bytes_.swap(Slice);
        return;
      }
    }
    Refuse("the universal file has no x86-64 slice");
  }

  std::vector<uint8_t> Bytes_;
};

struct Binding {
  uint32_t Segment;
  uint64_t Offset;
  int64_t  Addend;
  Import   Wanted;
};

struct Rebase {
  uint32_t Segment;
  uint64_t Offset;
};

// Reads the byte codes in which the linker lists the fixups.
class Codes {
 public:
  Codes(const File& Source, uint64_t Offset, uint64_t Size)
      : p_(Source.At(Offset, Size)), pEnd_(p_ + Size) {}

  bool AtEnd() const { return p_ == pEnd_; }

  uint8_t Byte() {
    if (AtEnd()) {
      Refuse("the fixups end in the middle");
    }
    return *p_++;
  }

  uint64_t Unsigned() {
    uint64_t Value = 0;
    for (unsigned Shift = 0;; Shift += 7) {
      const uint8_t Next = Byte();
      if (Shift < 64) {
        Value |= static_cast<uint64_t>(Next & 0x7F) << Shift;
      }
      if ((Next & 0x80) == 0) {
        return Value;
      }
    }
  }

  int64_t Signed() {
    uint64_t Value = 0;
    for (unsigned Shift = 0;;) {
      const uint8_t Next = Byte();
      if (Shift < 64) {
        Value |= static_cast<uint64_t>(Next & 0x7F) << Shift;
      }
      Shift += 7;
      if ((Next & 0x80) == 0) {
        if ((Next & 0x40) != 0 && Shift < 64) {
          Value |= ~0ull << Shift;
        }
        return static_cast<int64_t>(Value);
      }
    }
  }

  std::string Text() {
    std::string sText;
    while (const uint8_t Next = Byte()) {
      sText.push_back(static_cast<char>(Next));
    }
    return sText;
  }

 private:
  const uint8_t* p_;
  const uint8_t* pEnd_;
};

std::vector<Rebase> ReadRebases(Codes Code) {
  std::vector<Rebase> Rebases;
  uint32_t            Segment = 0;
  uint64_t            Offset  = 0;
  const auto          Repeat  = [&](uint64_t Count, uint64_t Skip) {
    for (uint64_t i = 0; i < Count; i++) {
      Rebases.push_back({Segment, Offset});
      Offset += 8 + Skip;
    }
  };
  while (!Code.AtEnd()) {
    const uint8_t Op    = Code.Byte();
    const uint8_t Value = Op & 0x0F;
    switch (Op & 0xF0) {
      case 0x00:  // done
        return Rebases;
      case 0x10:  // kind of fixup: 1, a pointer
        if (Value != 1) {
          Refuse("rebases something that is no pointer");
        }
        break;
      case 0x20:  // segment and offset
        Segment = Value;
        Offset  = Code.Unsigned();
        break;
      case 0x30:  // skip bytes
        Offset += Code.Unsigned();
        break;
      case 0x40:  // skip pointers
        Offset += 8u * Value;
        break;
      case 0x50:
        Repeat(Value, 0);
        break;
      case 0x60:
        Repeat(Code.Unsigned(), 0);
        break;
      case 0x70:
        Repeat(1, Code.Unsigned());
        break;
      case 0x80: {
        const uint64_t Count = Code.Unsigned();
        Repeat(Count, Code.Unsigned());
        break;
      }
      default:
        Refuse("has an unknown rebase code");
    }
  }
  return Rebases;
}

constexpr uint8_t NAME_MAY_BE_ABSENT = 1;

// Adds Count bindings like *pNext, with a gap of Skip bytes between their pointers.
void AddBindings(uint64_t Count, uint64_t Skip, int64_t Library,
                 const std::vector<std::string>& Libraries, Binding* pNext,
                 std::vector<Binding>* pBindings) {
  if (Library < 1 || static_cast<size_t>(Library) > Libraries.size()) {
    Refuse("binds " + pNext->Wanted.sName + " to no particular library");
  }
  pNext->Wanted.sLibrary = Libraries[static_cast<size_t>(Library - 1)];
  for (uint64_t i = 0; i < Count; i++) {
    pBindings->push_back(*pNext);
    pNext->Offset += 8 + Skip;
  }
}

std::vector<Binding> ReadBindings(Codes Code, const std::vector<std::string>& Libraries) {
  std::vector<Binding> Bindings;
  Binding              Next    = {};
  int64_t              Library = 0;
  const auto           Bind    = [&](uint64_t Count, uint64_t Skip) {
    AddBindings(Count, Skip, Library, Libraries, &Next, &Bindings);
  };
  while (!Code.AtEnd()) {
    const uint8_t Op    = Code.Byte();
    const uint8_t Value = Op & 0x0F;
    switch (Op & 0xF0) {
      case 0x00:  // done; the lazy list has one after each name
        break;
      case 0x10:
        Library = Value;
        break;
      case 0x20:
        Library = static_cast<int64_t>(Code.Unsigned());
        break;
      case 0x30:  // 0: this image, -1: the main program, -2: any image
        Library = Value == 0 ? 0 : static_cast<int8_t>(Value | 0xF0);
        break;
      case 0x40:
        Next.Wanted.sName       = Code.Text();
        Next.Wanted.MayBeAbsent = (Value & NAME_MAY_BE_ABSENT) != 0;
        break;
      case 0x50:  // kind of fixup: 1, a pointer
        if (Value != 1) {
          Refuse("binds something that is no pointer");
        }
        break;
      case 0x60:
        Next.Addend = Code.Signed();
        break;
      case 0x70:
        Next.Segment = Value;
        Next.Offset  = Code.Unsigned();
        break;
      case 0x80:
        Next.Offset += Code.Unsigned();
        break;
      case 0x90:
        Bind(1, 0);
        break;
      case 0xA0:
        Bind(1, Code.Unsigned());
        break;
      case 0xB0:
        Bind(1, 8u * Value);
        break;
      case 0xC0: {
        const uint64_t Count = Code.Unsigned();
        Bind(Count, Code.Unsigned());
        break;
      }
      default:
        Refuse("has an unknown bind code");
    }
  }
  return Bindings;
}

// What the load commands say. Read before anything is mapped.
struct Layout {
  std::vector<Segment>     Segments;
  std::vector<Section>     Sections;
  std::vector<std::string> Libraries;
  std::vector<Rebase>      Rebases;
  std::vector<Binding>     Bindings;
  SymtabCommand            Symtab      = {};
  uint64_t                 EntryOffset = 0;
};

void ReadSegment(const File& Source, uint64_t At, Layout* pLayout) {
  const auto Entry = Source.Read<Segment>(At);
  pLayout->Segments.push_back(Entry);
  for (uint32_t i = 0; i < Entry.NumSections; i++) {
    const auto Part = Source.Read<Section>(At + sizeof(Segment) + i * sizeof(Section));
    switch (Part.Flags & SECTION_TYPE_MASK) {
      case SECTION_THREAD_VARIABLE:
        Refuse("has thread-local variables");
      case SECTION_INIT_OFFSETS:
        Refuse("has initialisers by offset");
      case SECTION_TERM_POINTERS:
        Refuse("has a termination function");
      default:
        pLayout->Sections.push_back(Part);
    }
  }
}

Layout ReadLayout(const File& Source) {
  Layout          Result;
  DyldInfoCommand Info = {};
  for (const uint64_t At : Source.CommandOffsets) {
    const auto Entry = Source.Read<Command>(At);
    switch (Entry.Type) {
      case COMMAND_SEGMENT:
        ReadSegment(Source, At, &Result);
        break;
      case COMMAND_LOAD_DYLIB: {
        const auto Dylib = Source.Read<DylibCommand>(At);
        if (Dylib.NameOffset > Dylib.Size) {
          Refuse("depends on a library whose name lies outside of its command");
        }
        Result.Libraries.push_back(
            Source.Text(At + Dylib.NameOffset, Dylib.Size - Dylib.NameOffset));
        break;
      }
      case COMMAND_SYMTAB:
        Result.Symtab = Source.Read<SymtabCommand>(At);
        break;
      case COMMAND_DYLD_INFO:
      case COMMAND_DYLD_INFO_ONLY:
        Info = Source.Read<DyldInfoCommand>(At);
        break;
      case COMMAND_MAIN:
        Result.EntryOffset = Source.Read<MainCommand>(At).EntryOffset;
        break;
      default:
        if ((Entry.Type & COMMAND_REQUIRED) != 0) {
          char acText[64];
          snprintf(acText, sizeof(acText), "needs load command 0x%X", Entry.Type);
          Refuse(acText);
        }
    }
  }
  Result.Rebases  = ReadRebases(Codes(Source, Info.RebaseOffset, Info.RebaseSize));
  Result.Bindings = ReadBindings(Codes(Source, Info.BindOffset, Info.BindSize), Result.Libraries);
  for (auto& Lazy :
       ReadBindings(Codes(Source, Info.LazyBindOffset, Info.LazyBindSize), Result.Libraries)) {
    Lazy.Wanted.MayBeAbsent = true;  // Darwin looks for it at the first call only
    Result.Bindings.push_back(Lazy);
  }
  // Weak bindings join equal definitions of several images; with one image there is nothing to
  // join.
  return Result;
}

constexpr uint64_t PAGE = 4096;

void MapSegments(const File& Source, const Layout& Plan, Image* pImage) {
  uint64_t Low = UINT64_MAX, High = 0;
  for (const Segment& Part : Plan.Segments) {
    if (Part.Protection != 0 || Part.FileSize != 0) {  // not the guard at address 0
      Low  = Part.Address < Low ? Part.Address : Low;
      High = Part.Address + Part.MemorySize > High ? Part.Address + Part.MemorySize : High;
    }
  }
  if (Low >= High || High - Low > 1ull << 30 || Low % PAGE != 0) {
    Refuse("has segments that do not fit");
  }
  pImage->Size = High - Low;
  void* pPlace =
      mmap(nullptr, pImage->Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pPlace == MAP_FAILED) {
    Refuse("memory for it cannot be had");
  }
  pImage->pStart = static_cast<uint8_t*>(pPlace);
  pImage->Slide  = static_cast<int64_t>(reinterpret_cast<uint64_t>(pPlace) - Low);
  for (const Segment& Part : Plan.Segments) {
    if (Part.FileSize != 0) {
      if (Part.FileSize > Part.MemorySize) {
        Refuse("has a segment that is larger in the file than in memory");
      }
      memcpy(pImage->pStart + (Part.Address - Low), Source.At(Part.FileOffset, Part.FileSize),
             Part.FileSize);
    }
  }
}

uint64_t* FixupPlace(const Layout& Plan, const Image& Target, uint32_t Segment, uint64_t Offset) {
  if (Segment >= Plan.Segments.size() || Offset > Plan.Segments[Segment].MemorySize ||
      Plan.Segments[Segment].MemorySize - Offset < sizeof(uint64_t)) {
    Refuse("has a fixup outside of its segment");
  }
  return reinterpret_cast<uint64_t*>(Plan.Segments[Segment].Address + Offset +
                                     static_cast<uint64_t>(Target.Slide));
}

void ApplyFixups(const Layout& Plan, const Image& Target,
                 void* (*pfResolve)(const Import& Wanted)) {
  for (const Rebase& Move : Plan.Rebases) {
    *FixupPlace(Plan, Target, Move.Segment, Move.Offset) += static_cast<uint64_t>(Target.Slide);
  }
  for (const Binding& Bind : Plan.Bindings) {
    *FixupPlace(Plan, Target, Bind.Segment, Bind.Offset) =
        reinterpret_cast<uint64_t>(pfResolve(Bind.Wanted)) + static_cast<uint64_t>(Bind.Addend);
  }
}

void ReadSymbols(const File& Source, const SymtabCommand& Symtab, Image* pImage) {
  constexpr uint8_t TYPE_DEBUG = 0xE0, TYPE_PRIVATE = 0x10, TYPE_MASK = 0x0E, TYPE_SECTION = 0x0E,
                    TYPE_EXTERNAL = 0x01;
  for (uint32_t i = 0; i < Symtab.NumSymbols; i++) {
    const auto Entry = Source.Read<SymbolEntry>(Symtab.SymbolOffset + i * sizeof(SymbolEntry));
    if ((Entry.Type & TYPE_DEBUG) != 0 || (Entry.Type & TYPE_MASK) != TYPE_SECTION ||
        Entry.Name >= Symtab.StringSize) {
      continue;
    }
    const std::string sName =
        Source.Text(Symtab.StringOffset + Entry.Name, Symtab.StringSize - Entry.Name);
    auto* pAddress = reinterpret_cast<uint8_t*>(Entry.Value + static_cast<uint64_t>(pImage->Slide));
    pImage->Symbols[pAddress] = sName;
    if ((Entry.Type & TYPE_EXTERNAL) != 0 && (Entry.Type & TYPE_PRIVATE) == 0) {
      pImage->Exports[sName] = pAddress;
    }
  }
}

void FindInitialisers(const Layout& Plan, Image* pImage) {
  for (const Section& Part : Plan.Sections) {
    if ((Part.Flags & SECTION_TYPE_MASK) == SECTION_INIT_POINTERS) {
      const auto* ppFirst =
          reinterpret_cast<uint8_t* const*>(Part.Address + static_cast<uint64_t>(pImage->Slide));
      pImage->Initialisers.assign(ppFirst, ppFirst + Part.Size / sizeof(*ppFirst));
    }
  }
}

// Protects each segment as it asks: code cannot be written, data cannot be run.
void Protect(const Layout& Plan, const Image& Target) {
  constexpr uint32_t READ_ONLY_AFTER_FIXUPS = 0x10;
  for (const Segment& Part : Plan.Segments) {
    if (Part.Protection == 0 && Part.FileSize == 0) {
      continue;
    }
    // The bits for read, write and execute are the same on both systems.
    int Protection = 0;
    Protection |= (Part.Protection & 1) != 0 ? PROT_READ : 0;
    Protection |= (Part.Protection & 2) != 0 ? PROT_WRITE : 0;
    Protection |= (Part.Protection & 4) != 0 ? PROT_EXEC : 0;
    if ((Part.Flags & READ_ONLY_AFTER_FIXUPS) != 0) {
      Protection &= ~PROT_WRITE;
    }
    void* pPlace = reinterpret_cast<void*>(Part.Address + static_cast<uint64_t>(Target.Slide));
    if (mprotect(pPlace, (Part.MemorySize + PAGE - 1) / PAGE * PAGE, Protection) != 0) {
      Refuse("its segments cannot be protected");
    }
  }
}

}  // namespace

std::vector<Import> ListImports(const std::string& sPath) {
  std::vector<Import> Imports;
  for (const Binding& Bind : ReadLayout(File(sPath)).Bindings) {
    Imports.push_back(Bind.Wanted);
  }
  return Imports;
}

Image* LoadImage(const std::string& sPath, void* (*pfResolve)(const Import& Wanted)) {
  const File   Source(sPath);
  const Layout Plan = ReadLayout(Source);
  auto         pNew = std::make_unique<Image>();
  pNew->sPath       = sPath;
  MapSegments(Source, Plan, pNew.get());
  ApplyFixups(Plan, *pNew, pfResolve);
  ReadSymbols(Source, Plan.Symtab, pNew.get());
  FindInitialisers(Plan, pNew.get());
  Protect(Plan, *pNew);
  if (Plan.EntryOffset != 0) {
    pNew->EntryPoint = reinterpret_cast<uint64_t>(pNew->pStart) + Plan.EntryOffset;
  }
  Images.push_back(std::move(pNew));
  return Images.back().get();
}

const Image* FindImage(const void* pAddress) {
  const auto* p = static_cast<const uint8_t*>(pAddress);
  for (const auto& pImage : Images) {
    if (p >= pImage->pStart && p < pImage->pStart + pImage->Size) {
      return pImage.get();
    }
  }
  return nullptr;
}

std::string DescribeAddress(const void* pAddress) {
  char         acText[32];
  auto*        p      = static_cast<uint8_t*>(const_cast<void*>(pAddress));
  const Image* pImage = FindImage(pAddress);
  if (pImage != nullptr) {
    auto Behind = pImage->Symbols.upper_bound(p);
    if (Behind != pImage->Symbols.begin()) {
      --Behind;
      snprintf(acText, sizeof(acText), " + %ld", static_cast<long>(p - Behind->first));
      return Behind->second + acText;
    }
  }
  snprintf(acText, sizeof(acText), "%p", pAddress);
  return acText;
}
