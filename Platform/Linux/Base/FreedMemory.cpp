// SPDX-License-Identifier: MIT
#include "Platform/Linux/Base/FreedMemory.h"

#include <malloc.h>

namespace monitor::platform {

void keepFreedMemory() {
#ifdef __GLIBC__
  // Both: setting one of them ends the library's own adjusting of the other.
  (void)::mallopt(M_MMAP_THRESHOLD, 4 << 20);
  (void)::mallopt(M_TRIM_THRESHOLD, 16 << 20);
#endif
}

}  // namespace monitor::platform
