// SPDX-License-Identifier: MIT

#include "sim/lock.h"

namespace sim {

bool KeyLock::WriteKey(uint32_t Key) {
  if (State == CLOSED && Key == row_->First.Value) {
    State = FIRST_KEY_SEEN;
    return true;
  }
  if (State == FIRST_KEY_SEEN && Key == row_->Second.Value) {
    State = OPEN;
    return true;
  }
  if (State == OPEN && !row_->ThirdKeyKills) {
    return true;
  }
  State = DEAD;
  return false;
}

void KeyLock::Interrupt() {
  if (State == FIRST_KEY_SEEN) {
    State = DEAD;
  }
}

void KeyLock::Close() {
  if (State != DEAD) {
    State = CLOSED;
  }
}

const char* KeyLock::NameOf(uint32_t Key) const {
  return Key == row_->First.Value    ? row_->First.sName
         : Key == row_->Second.Value ? row_->Second.sName
                                     : "a wrong key";
}

}  // namespace sim
