// SPDX-License-Identifier: MIT
#pragma once

namespace monitor::platform {

// For a program that samples the machine again and again. A snapshot of a thousand processes is a megabyte,
// freed before the next one is taken: given back to the kernel each time, all of it has to be zeroed and
// mapped anew. From here on this process keeps up to 16 MiB of what it freed, and takes blocks of up to 4 MiB
// from there. Call it before other threads start; it does nothing with a C library that cannot be told.
void keepFreedMemory();

}  // namespace monitor::platform
