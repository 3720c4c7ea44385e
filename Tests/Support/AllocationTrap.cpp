// SPDX-License-Identifier: MIT
// The program's allocator is the C library's with a look at the watch before it. Under a sanitizer, whose
// allocator it is then, the sanitizer's own hooks do the same.
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "Tests/Support/RealtimeWatch.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// GCC 12 has this function but not the header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));

namespace monitor::test {
namespace {
void allocated(const volatile void*, std::size_t) {
  noteIfWatched(RealtimeOffence::Allocation, "malloc");
}
void freed(const volatile void*) {
  noteIfWatched(RealtimeOffence::Allocation, "free");
}
}  // namespace

void prepareAllocationTrap() {
  __sanitizer_install_malloc_and_free_hooks(allocated, freed);
}

}  // namespace monitor::test

#else

namespace monitor::test {
void prepareAllocationTrap() {}
}  // namespace monitor::test

#define VESK_WRAPPER extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void* __libc_valloc(std::size_t size);
void* __libc_pvalloc(std::size_t size);
void __libc_free(void* memory);
}

namespace {
void note(const char* what) noexcept {
  monitor::test::noteIfWatched(monitor::test::RealtimeOffence::Allocation, what);
}
bool isPowerOfTwo(std::size_t number) noexcept {
  return number != 0 && (number & (number - 1)) == 0;
}
}  // namespace

VESK_WRAPPER void* malloc(std::size_t size) noexcept {
  note("malloc");
  return __libc_malloc(size);
}

VESK_WRAPPER void* calloc(std::size_t count, std::size_t size) noexcept {
  note("calloc");
  return __libc_calloc(count, size);
}

VESK_WRAPPER void* realloc(void* memory, std::size_t size) noexcept {
  note("realloc");
  return __libc_realloc(memory, size);
}

VESK_WRAPPER void* reallocarray(void* memory, std::size_t count, std::size_t size) noexcept {
  note("reallocarray");
  if (size != 0 && count > SIZE_MAX / size) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_realloc(memory, count * size);
}

VESK_WRAPPER void* memalign(std::size_t alignment, std::size_t size) noexcept {
  note("memalign");
  return __libc_memalign(alignment, size);
}

VESK_WRAPPER void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  note("aligned_alloc");
  return __libc_memalign(alignment, size);
}

VESK_WRAPPER int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  note("posix_memalign");
  if (alignment % sizeof(void*) != 0 || !isPowerOfTwo(alignment)) return EINVAL;
  void* allocated = __libc_memalign(alignment, size);
  if (allocated == nullptr) return ENOMEM;
  *memory = allocated;
  return 0;
}

VESK_WRAPPER void* valloc(std::size_t size) noexcept {
  note("valloc");
  return __libc_valloc(size);
}

VESK_WRAPPER void* pvalloc(std::size_t size) noexcept {
  note("pvalloc");
  return __libc_pvalloc(size);
}

VESK_WRAPPER void free(void* memory) noexcept {
  if (memory == nullptr) return;  // nothing happens, and much code counts on it
  note("free");
  __libc_free(memory);
}

#endif
