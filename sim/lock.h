// sim/lock.h
// SPDX-License-Identifier: MIT
//
// A pair of keys that opens a lock. The lock owns its keys: what a write to its register meant is
// asked of it.

#ifndef SIM_LOCK_H
#define SIM_LOCK_H

#include <stdint.h>

namespace sim {

struct KEY {
  uint32_t    Value = 0;
  const char* sName = "";
};

struct LOCK_ROW {
  const char* sState        = "";  // its state's name in the device's file
  uint32_t    Register      = 0;   // offset of the register that takes the keys
  uint32_t    Alias         = 0;   // a second offset of that register; 0: none
  KEY         First         = {};
  KEY         Second        = {};
  uint32_t    Control       = 0;      // offset of the register that shows the lock's state
  uint32_t    ClosedBit     = 0;      // set there while it is closed
  uint32_t    OpenBit       = 0;      // set there while it is open
  int         Behind        = -1;     // keys count only while this other lock is open; -1: always
  bool        FollowsIt     = false;  // and it closes with that one
  bool        ThirdKeyKills = false;  // a key written to an open lock keeps it closed until reset
};

// A wrong key, or the right ones in the wrong order, keeps the lock closed until the next reset,
// whatever is written later.
class KeyLock {
 public:
  enum { CLOSED, FIRST_KEY_SEEN, OPEN, DEAD };

  explicit KeyLock(const LOCK_ROW& Row) : row_(&Row) {}

  // False when this key spoilt the sequence; some controllers answer that with a bus error.
  bool WriteKey(uint32_t Key);

  // Some other register was written between the two keys.
  void Interrupt();

  // Software set the lock bit: the keys open it again. A dead lock stays dead.
  void Close();
  void Kill() { State = DEAD; }
  void Reset() { State = CLOSED; }
  bool IsOpen() const { return State == OPEN; }

  // The name of the key, or "a wrong key".
  const char*     NameOf(uint32_t Key) const;
  const LOCK_ROW& Row() const { return *row_; }

  uint32_t State = CLOSED;

 private:
  const LOCK_ROW* row_;
};

}  // namespace sim

#endif
