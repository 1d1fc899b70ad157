#include "platform/memory.h"

#include <malloc.h>

namespace platform::memory {

void shareHeap() { ::mallopt(M_ARENA_MAX, 1); }

void giveBack() { ::malloc_trim(0); }

} // namespace platform::memory
