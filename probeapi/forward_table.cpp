// SPDX-License-Identifier: MIT

#include "probeapi/forward.h"

#define FORWARD(Name) void* FORWARD_Slot_##Name;
#include "probeapi/names.inc"
#undef FORWARD

// Numbers the names for the count below, and refuses one that is in the list twice.
#define FORWARD(Name) INDEX_##Name,
enum {
#include "probeapi/names.inc"
  NUM_NAMES
};
#undef FORWARD
// The list is all that says which functions exist; a line lost in an edit would go unnoticed.
static_assert(NUM_NAMES == FORWARD_NUM_FUNCTIONS,
              "a name is missing, or one too many is in the list");
