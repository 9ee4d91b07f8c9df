// Command lines from a host, its stop button, and STOP.
#include <cstring>
#include <vector>

#include "engine/host.h"
#include "engine/host_state.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "platform/signals.h"

namespace korvel {
namespace {

constexpr std::string_view STOPBUTTON = "STOP RESET";

class HostInput final : public TextInput {
 public:
  HostInput() : reply_(KORVEL_LINE_ROOM + 1, ' ') { name_ = "HOST"; }

  bool line(std::string_view& out) override {
    if (again_) {
      again_ = false;
    } else if (!next()) {
      return false;
    }
    ++number_;
    out = last_;
    return true;
  }
  void unread() override {
    again_ = true;
    --number_;
  }
  // A host is asked for one line after the other; only what it has sent already is at hand.
  std::string_view rest() override { return left_; }
  void skip(std::size_t n, std::int64_t lines) override {
    left_.remove_prefix(n);
    number_ += lines;
  }
  bool rewind() override { return false; }
  std::int64_t line_number() const override { return number_; }
  bool terminal() const override { return true; }
  bool shows_prompt() const override { return true; }

 private:
  // The next line into last_. False at the end, and when the host asks for a stop.
  bool next() {
    if (left_.empty() && !ask()) return false;
    const auto end = std::min(left_.find('\n'), left_.size());
    last_ = left_.substr(0, end);
    left_.remove_prefix(std::min(end + 1, left_.size()));
    if (last_.ends_with('\r')) last_.remove_suffix(1);
    return true;
  }

  bool ask() {
    if (ended_ || stop_requested()) return false;
    const int n = MACDEP(M_LINE, reply_, 0);
    if (n < 0) {
      ended_ = true;
      return false;
    }
    left_ = right_trimmed({reply_.data(), static_cast<std::size_t>(n)});
    if (OSCOM.ODMMP) raw_line(" STOP BUTTON:" + std::string(left_) + ":END BUTTON");
    if (left_ == STOPBUTTON) {
      left_ = {};
      HOST.reset = true;
      ask_to_stop();
      return false;
    }
    if (HOST.at_prompt) forget_signal();  // a stop that came while nothing was running
    return !stop_requested();
  }

  std::vector<char> reply_;  // the last answer, in which left_ and last_ lie
  std::string_view left_;    // of it, what has not been handed on
  std::string_view last_;
  std::int64_t number_ = 0;
  bool again_ = false;
  bool ended_ = false;
};

}  // namespace

std::unique_ptr<TextInput> host_input() { return std::make_unique<HostInput>(); }

AtPrompt::AtPrompt() { HOST.at_prompt = true; }
AtPrompt::~AtPrompt() { HOST.at_prompt = false; }

void talk_again() {
  OSCOM.OTALK = true;
  OSCOM.OECHO = OSCOM.OBAT = OSCOM.OSCAN = false;
  IOCOM.O5 = false;
}

void take_stop(Workspace ws) {
  return_to_first_input(ws);
  talk_again();
  if (!HOST.reset) return say(" ...NOTE..COMMAND STOPPED");
  HOST.reset = false;
  if (OSCOM.ODMMP) say(" STOP BUTTON PRESSED:");
  std::memset(INPCOM.COMWRD, ' ', KEYLEN);
  RESET(ws);
}

bool stop_on_host(Workspace ws, std::string word) {
  LCUC(word.data(), static_cast<int>(word.size()));
  if (word == "STOP") return true;
  if (word == "HOLD") {
    tell_host(word);
  } else if (word.empty() || word == "RESET") {
    std::memcpy(INPCOM.COMWRD, "RESET   ", KEYLEN);
    RESET(ws);
  } else {
    fail(" ...ERROR..SYNTAX ERROR");
    return false;
  }
  return_to_first_input(ws);
  talk_again();
  return false;
}

}  // namespace korvel
