#include "platform/mapped_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace korvel {
namespace {

// What the handler knows of a mapped file. `begin` is set last and cleared first: 0 is a free slot.
struct Region {
  std::atomic<std::uintptr_t> begin{0}, end{0};
  char* start = nullptr;
  std::atomic<bool> cut{false};
};

constexpr int NREGIONS = 64;  // more than there are units
std::array<Region, NREGIONS> regions;
std::mutex listing;          // of opening and closing; never taken by the handler
int open_files = 0;          // slots in use
struct sigaction before {};  // the handler that ours stands in front of

std::uintptr_t page_size() {
  static const auto size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  return size;
}

Region* region_of(std::uintptr_t place) {
  for (Region& r : regions) {
    const std::uintptr_t begin = r.begin.load(std::memory_order_acquire);
    const std::uintptr_t end = r.end.load(std::memory_order_relaxed) + page_size();
    if (begin != 0 && place >= begin && place < end) return &r;
  }
  return nullptr;
}

// Puts a page of line ends where the file has none any more. It is filled first and then moved
// there, so that another thread never sees it half done; both calls go straight to the system.
bool replace_page(const Region& r, std::uintptr_t place) {
  const std::size_t size = page_size();
  char* const at = r.start + (place - r.begin.load()) / size * size;
  void* const page =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return false;
  std::memset(page, '\n', size);
  return mremap(page, size, size, MREMAP_MAYMOVE | MREMAP_FIXED, at) != MAP_FAILED;
}

void on_fault(int number, siginfo_t* what, void* context) {
  const int kept = errno;
  const auto place = reinterpret_cast<std::uintptr_t>(what->si_addr);
  Region* const region = what->si_code == BUS_ADRERR ? region_of(place) : nullptr;
  const bool ours = region != nullptr && replace_page(*region, place);
  if (ours && place < region->end.load()) region->cut.store(true);
  errno = kept;
  if (ours) return;
  if ((before.sa_flags & SA_SIGINFO) != 0) {
    before.sa_sigaction(number, what, context);
  } else if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN) {
    before.sa_handler(number);
  } else {
    sigaction(SIGBUS, &before, nullptr);  // the access is tried again and ends as it always did
  }
}

// The free slot that now holds the region, -1 when there is none.
int enter(char* start, std::size_t n) {
  const auto begin = reinterpret_cast<std::uintptr_t>(start);
  const std::scoped_lock lock(listing);
  for (int i = 0; i < NREGIONS; ++i) {
    Region& r = regions[static_cast<std::size_t>(i)];
    if (r.begin.load() != 0) continue;
    if (open_files++ == 0) {
      struct sigaction action {};
      action.sa_sigaction = on_fault;
      action.sa_flags = SA_SIGINFO;
      sigemptyset(&action.sa_mask);
      sigaction(SIGBUS, &action, &before);
    }
    r.start = start;
    r.cut.store(false);
    r.end.store(begin + n);
    r.begin.store(begin, std::memory_order_release);
    return i;
  }
  return -1;
}

void leave(int slot) {
  const std::scoped_lock lock(listing);
  regions[static_cast<std::size_t>(slot)].begin.store(0);
  if (--open_files == 0) sigaction(SIGBUS, &before, nullptr);
}

}  // namespace

bool MappedFile::map(int fd, std::size_t n) {
  // A page behind the text, whatever its size is. It comes into being when it is looked at.
  void* const p = mmap(nullptr, n + page_size(), PROT_READ, MAP_PRIVATE, fd, 0);
  if (p == MAP_FAILED) return false;
  slot_ = enter(static_cast<char*>(p), n);
  fd_ = slot_ < 0 ? -1 : fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (fd_ < 0) {
    const int error = slot_ < 0 ? ENOMEM : errno;
    if (slot_ >= 0) leave(slot_);
    munmap(p, n + page_size());
    errno = error;
    return false;
  }
  start_ = static_cast<char*>(p);
  size_ = n;
  return true;
}

MappedFile::~MappedFile() {
  if (start_ == nullptr) return;
  leave(slot_);
  munmap(start_, size_ + page_size());
  close(fd_);
}

bool MappedFile::cut_off() const {
  if (start_ == nullptr) return false;
  // The rest of the last page that is left reads as zeros, without a fault.
  struct stat now {};
  return regions[static_cast<std::size_t>(slot_)].cut.load() ||
         (fstat(fd_, &now) == 0 && static_cast<std::size_t>(now.st_size) < size_);
}

void MappedFile::release(std::string_view part) const {
  const auto from = reinterpret_cast<std::uintptr_t>(part.data());
  const std::uintptr_t first = (from + page_size() - 1) / page_size() * page_size();
  const std::uintptr_t last = (from + part.size()) / page_size() * page_size();
  if (last <= first) return;
  madvise(start_ + (first - reinterpret_cast<std::uintptr_t>(start_)), last - first, MADV_DONTNEED);
}

}  // namespace korvel
