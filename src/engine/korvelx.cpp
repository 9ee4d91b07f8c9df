// The exported entry of the library.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "engine/console.h"
#include "engine/files.h"
#include "engine/host.h"
#include "engine/output.h"
#include "engine/start_files.h"
#include "korvel.h"
#include "platform/signals.h"

namespace {

constexpr std::int32_t PROBE = 9557;
constexpr std::int32_t REGISTER = -2, STORE = -3;
constexpr std::int32_t LOGGED = 29;
constexpr std::int32_t NO_RUN = -7;
constexpr std::size_t TEXTLENGTH = 128;
constexpr std::size_t STORELENGTH = 4096;

std::atomic<bool> running{false};

// The one run of the process, as long as it lasts. The host's working folder comes back at its end,
// and its signals are left alone.
class OneRun {
 public:
  OneRun() : first_(!running.exchange(true)) {
    if (first_) folder_ = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  }
  OneRun(const OneRun&) = delete;
  OneRun& operator=(const OneRun&) = delete;
  ~OneRun() {
    if (!first_) return;
    if (folder_ >= 0) {
      const int lost = fchdir(folder_);  // a folder that is gone can't come back
      static_cast<void>(lost);
      close(folder_);
    }
    running = false;
  }
  explicit operator bool() const { return first_; }

 private:
  bool first_;
  int folder_ = -1;
  korvel::WriteSignalsOff quiet_;
};

// A line of the entry itself: to the host, or on standard output.
void write_line(std::string_view text) {
  if (korvel::on_host()) {
    while (!text.empty()) {
      const auto end = std::min(text.find('\n'), text.size());
      korvel::send_line(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    return;
  }
  korvel::main_output().attach(1);
  korvel::main_output().line(text);
  korvel::main_output().close();
}

// The host's text as an argument list: parted at blanks outside double quotes.
std::vector<std::string> arguments_of(std::string_view text) {
  std::vector<std::string> list;
  for (;;) {
    const auto start = text.find_first_not_of(' ');
    if (start == std::string_view::npos) return list;
    text.remove_prefix(start);
    const char end_mark = text[0] == '"' ? '"' : ' ';
    if (end_mark == '"') text.remove_prefix(1);
    const auto end = std::min(text.find(end_mark), text.size());
    list.emplace_back(korvel::right_trimmed(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// Host kind of a code that runs the engine, 0 of any other.
int kind_of(std::int32_t code) {
  switch (code) {
    case LOGGED:
    case 166:
    case 167:
    case 327:
      return 16;
    case 307:
    case 337:
      return code / 10;
    default:
      return 0;
  }
}

std::int32_t run(std::int32_t code, int MOS, const char* text) {
  korvel::MACOM.MOS = MOS;
  const std::string_view tail =
      text == nullptr ? std::string_view{} : std::string_view(text, strnlen(text, TEXTLENGTH));
  const bool quoted = code == 167 || code == 307 || code == 337;
  if (quoted && !tail.empty() && tail[0] == '"' && tail.find('"', 1) == std::string_view::npos) {
    write_line("NO CLOSING \"");
  }
  korvel::ConsoleCall call = korvel::KORVELD(arguments_of(tail));
  if (call.status >= 0) {
    write_line(call.answer);
    return call.status;
  }
  call.settings.MOS = MOS;
  if (MOS != 16) call.settings.mirror_errors = call.settings.mirror_warnings = false;
  if (code == LOGGED) call.settings.log = "KORVEL.LOG";
  return korvel::run_korvel(call.settings);
}

// What must not happen in a run ends it, and not the host's process.
std::int32_t guarded_run(std::int32_t code, int MOS, const char* text) {
  try {
    return run(code, MOS, text);
  } catch (const std::bad_alloc&) {
    return korvel::EXIT_NOROOM;
  } catch (...) {
    return korvel::EXIT_INTERNAL;
  }
}

void store(std::int32_t* result, const char* text) {
  try {
    *result =
        text == nullptr ? EINVAL : korvel::store_configuration({text, strnlen(text, STORELENGTH)});
  } catch (...) {
    *result = ENOMEM;
  }
}

}  // namespace

void KORVELX(std::int32_t* code, std::int32_t* result, const char* text) {
  const std::int32_t asked = *code;
  if (asked == -1) {
    *result = PROBE;
    return;
  }
  const int MOS = kind_of(asked);
  if (MOS == 0 && asked != REGISTER && asked != STORE) {
    if (asked > 306) {
      *code = NO_RUN;
    } else if (!running) {
      korvel::MACOM.MOS = 16;
      write_line("Improper KORVEL Ver 11 Installation, Reinstall");
    }
    return;
  }
  const OneRun turn;
  if (asked == REGISTER || asked == STORE) {
    *result = 0;
    if (asked == STORE && turn) {
      store(result, text);
    } else if (asked == STORE) {
      *result = EBUSY;
    } else if (turn) {
      // The one case in which text is no text.
      auto* const record = reinterpret_cast<KORVELHOST*>(const_cast<char*>(text));
      *result = korvel::register_host(record) ? PROBE : -1;
    }
    return;
  }
  if (!turn || (MOS != 16 && !korvel::host_registered())) {
    *code = NO_RUN;
    *result = korvel::EXIT_CALL;
    return;
  }
  korvel::clear_stop();
  *result = guarded_run(asked, MOS, text);
  korvel::clear_stop();
  korvel::MACOM.MOS = 16;
  *code = MOS;
}
