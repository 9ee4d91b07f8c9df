#include "platform/memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace korvel {

void* reserve_memory(std::size_t n) {
  void* p =
      mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  // Large areas are touched in bulk: huge pages save most of the page faults. The ends stay on
  // small pages, so that a workspace that is hardly used stays small.
  constexpr std::size_t huge = std::size_t{1} << 21;
  if (n >= 32 * huge) {
    const auto start = reinterpret_cast<std::uintptr_t>(p);
    const std::size_t lead = (huge - start % huge) % huge + huge;
    const std::size_t length = (n - lead) / huge * huge - huge;
    madvise(static_cast<char*>(p) + lead, length, MADV_HUGEPAGE);
  }
  return p;
}

void release_memory(void* p, std::size_t n) {
  if (p != nullptr) munmap(p, n);
}

std::size_t available_memory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long size = sysconf(_SC_PAGESIZE);
  return pages > 0 && size > 0 ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(size)
                               : 0;
}

}  // namespace korvel
