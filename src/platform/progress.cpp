#include "platform/progress.h"

#include <unistd.h>

#include <algorithm>

namespace korvel {
namespace {

constexpr auto SILENT = std::chrono::seconds(2);
constexpr auto STEP = std::chrono::milliseconds(200);

bool allowed = true;

void write_terminal(std::string_view text) {
  if (write(2, text.data(), text.size()) < 0) return;  // nobody to tell
}

}  // namespace

bool progress_shown() { return allowed && isatty(2) == 1; }
void show_progress(bool on) { allowed = on; }

Progress::Progress(std::string_view what, std::uint64_t total, bool wanted)
    : what_(what),
      total_(total),
      live_(wanted && total > 0 && progress_shown()),
      next_(std::chrono::steady_clock::now() + SILENT) {}

Progress::~Progress() { hide(); }

void Progress::hide() {
  const std::scoped_lock lock(mutex_);
  if (shown_) write_terminal("\r" + std::string(what_.size() + 11, ' ') + "\r");
  shown_ = false;
}

void Progress::show(std::uint64_t done) {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) return;  // another thread is at it
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + STEP;
  shown_ = true;
  const auto share = static_cast<int>(100.0 * static_cast<double>(std::min(done, total_)) /
                                      static_cast<double>(total_));
  write_terminal("\r " + what_ + " ... " + std::to_string(share) + "%");
}

}  // namespace korvel
