// How far a long command has come, for somebody who waits at a terminal.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace korvel {

// Whether anything may be shown on standard error: it is a terminal, and not one that belongs to a
// host's process (show_progress(false)).
bool progress_shown();
void show_progress(bool on);

// Once two seconds have passed, a line such as " READING DATA ... 43%" stands on standard error and
// is written over as the work goes on; the destructor takes it away. Nothing is written when
// standard error is no terminal.
class Progress {
 public:
  // `total`: work in any unit, 0 when it is not known (then nothing is shown). `wanted` off:
  // silent.
  Progress(std::string_view what, std::uint64_t total, bool wanted);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();
  // So much more is done. Any thread may call it; costs one atomic add when nothing is shown.
  void add(std::uint64_t done) {
    const std::uint64_t now = done_.fetch_add(done, std::memory_order_relaxed) + done;
    if (live_) show(now);
  }

  // Takes the line away before something else is printed; it comes back as the work goes on.
  void hide();

 private:
  void show(std::uint64_t done);

  std::string what_;
  std::uint64_t total_;
  bool live_;
  std::atomic<std::uint64_t> done_{0};
  std::mutex mutex_;  // of the two below
  std::chrono::steady_clock::time_point next_;
  bool shown_ = false;
};

}  // namespace korvel
