// sim/registers.h
//
// Registers as tables of data: address, value after reset, what a write may do to each bit, names.

#ifndef SIM_REGISTERS_H
#define SIM_REGISTERS_H

#include <stdint.h>

#include <span>
#include <string>
#include <vector>

namespace sim {

struct REGISTER {
  const char* sName;
  uint32_t    Address;
  uint32_t    Reset;
  uint32_t    Writable;    // bits that take what is written
  uint32_t    ClearByOne;  // bits that writing 1 clears
  uint32_t    SetOnly;     // bits that software can set and not clear
  const char* sFields;     // "NAME bit, NAME high:low, ...", from bit 0 up
};

struct FIELD {
  std::string sName;
  uint32_t    Lsb;
  uint32_t    Width;

  uint32_t Mask() const { return (Width == 32 ? ~0u : (1u << Width) - 1) << Lsb; }
  uint32_t Get(uint32_t Word) const { return (Word & Mask()) >> Lsb; }
};

std::vector<FIELD> ParseFields(const char* sFields);

// The fields of a word as a person reads them: single bits by name when set, others "NAME=hex".
std::string DecodeFields(const char* sFields, uint32_t Value);

// The values behind a table.
class RegisterFile {
 public:
  explicit RegisterFile(std::span<const REGISTER> Table) : table_(Table), values_(Table.size()) {
    ResetAll();
  }

  void ResetAll();

  // The index of the register at the address, -1 when there is none.
  int Find(uint32_t Address) const;

  // A write as the table's masks let it through.
  void Write(int Index, uint32_t Value);

  uint32_t&       operator[](int Index) { return values_[static_cast<size_t>(Index)]; }
  uint32_t        operator[](int Index) const { return values_[static_cast<size_t>(Index)]; }
  const REGISTER& Row(int Index) const { return table_[static_cast<size_t>(Index)]; }
  int             Count() const { return static_cast<int>(table_.size()); }

 private:
  std::span<const REGISTER> table_;
  std::vector<uint32_t>     values_;
};

// A pair of keys that opens a lock. A wrong key, or the right ones in the wrong order, keeps the
// lock closed until the next reset, whatever is written later.
class KeyLock {
 public:
  enum { CLOSED, FIRST_KEY_SEEN, OPEN, DEAD };

  KeyLock(uint32_t Key1, uint32_t Key2) : key1_(Key1), key2_(Key2) {}

  // False when this key spoilt the sequence; some controllers answer that with a bus error.
  bool WriteKey(uint32_t Key);

  // Some other register was written between the two keys.
  void Interrupt();

  // Software set the lock bit: the keys open it again. A dead lock stays dead.
  void Close();
  void Kill() { State = DEAD; }
  void Reset() { State = CLOSED; }
  bool IsOpen() const { return State == OPEN; }

  // Whether a key written to an open lock kills it; otherwise it is ignored.
  bool     ThirdKeyKills = false;
  uint32_t State         = CLOSED;

 private:
  uint32_t key1_, key2_;
};

}  // namespace sim

#endif
