#include "probeapi/forward.h"

#define FORWARD(Name) void* FORWARD_Slot_##Name;
#include "probeapi/names.inc"
#undef FORWARD

#define FORWARD(Name) +1
static_assert(0
#include "probeapi/names.inc"
                  == FORWARD_NUM_FUNCTIONS,
              "a name is missing from the list, or one too many is in it");
#undef FORWARD
