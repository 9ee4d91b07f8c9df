#include "engine/output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "engine/bodies.h"
#include "engine/files.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/terminal.h"
#include "platform/signals.h"

namespace korvel {

namespace {

constexpr OutBlock blank_block() {
  OutBlock b{};
  for (auto& line : b.LINEBUF) line.fill(' ');
  return b;
}

}  // namespace

constinit OutBlock OUTBUF = blank_block();

namespace {

void write_error_stream(std::string_view text) {
  if (on_host()) return send_line(right_trimmed(text.substr(0, text.find('\n'))));
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(2, text.data() + done, text.size() - done);
    if (n <= 0) return;
    done += static_cast<std::size_t>(n);
  }
}

// A full disk or a closed pipe: told once, then the run ends.
void check_output() {
  const int error = main_output().error();
  if (error == 0 || RUNCOM.output_failed) return;
  RUNCOM.output_failed = true;
  RUNCOM.ended = true;
  if (error == EPIPE) return;
  write_error_stream("korvel: " + main_output().name() + ": " + std::strerror(error) +  // NOLINT
                     ", the output is not complete\n");
}

// "script:line: kind: message" with the level and its dots taken off.
void mirror(const char* line, std::string_view kind) {
  std::string_view text = right_trimmed({line, LINELEN});
  const auto start = text.find_first_not_of(" .");
  text.remove_prefix(start == std::string_view::npos ? text.size() : start);
  for (const std::string_view level : {"ERROR", "WARNING"}) {
    if (text.substr(0, level.size()) == level) {
      text.remove_prefix(level.size());
      const auto dots = text.find_first_not_of(". ");
      text.remove_prefix(dots == std::string_view::npos ? text.size() : dots);
    }
  }
  std::string out = running_file();  // of FILE INPUT, or of a procedure
  if (out.empty()) out = RUNCOM.script;
  out += ':';
  out += std::to_string(INPCOM.KLINE);
  out += ": ";
  out += kind;
  out += ": ";
  out += text;
  out += calling_lines();
  out += '\n';
  write_error_stream(out);
}

// Lays a text of one or more lines (parted by '\n') into the block.
void lay(std::string_view text) {
  while (true) {
    const auto end = text.find('\n');
    Line row;
    row.text(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

}  // namespace

constexpr int PAGE = 20;  // lines between two pauses

void OUTLINE() {
  const int n = std::min(OUTBUF.IVL, MAXLINES);
  OUTBUF.lines = 0;
  if (n <= 0) {
    OUTBUF.IVL = 1;
    return;
  }
  bool dropped = false;
  const bool redirected = IOCOM.LOUT != 0;
  const bool mirrored = !redirected && OSCOM.OSCR && IOCOM.L86 != 0;
  const bool to_host = !redirected && on_host() && !IOCOM.O6;
  TextOutput& unit = redirected ? redirect() : main_output();
  for (int i = 0; i < n; ++i) {
    auto& line = OUTBUF.LINEBUF[static_cast<std::size_t>(i)];
    if (line[0] == '~') dropped = true;
    if (!dropped) {
      if (!redirected) ++OUTBUF.ILINE;
      const auto length = static_cast<std::size_t>(LENTRM({line.data(), LINELEN}));
      const std::string_view record(line.data(), length == 0 ? 1 : length);
      if (to_host) {
        send_line(record.substr(0, length));
      } else if (OSCOM.OTALK && OSCOM.OCOLOR && !redirected && unit.descriptor() == 1 &&
                 colours()) {
        std::string room;
        unit.line(coloured(record, room));
      } else {
        unit.line(record);
      }
      if (mirrored) screen_mirror().line(record);
    }
    line.fill(' ');
    // SET PAUSE: a page at a time, for a person at a terminal.
    if (OSCOM.OPAUSE && OSCOM.OTERM && OSCOM.OTALK && OUTBUF.ILINE >= PAGE &&
        (on_host() || isatty(0) == 1)) {
      OUTBUF.ILINE = 0;
      if (!wait_for_enter()) dropped = true;
    }
  }
  OUTBUF.IVL = 1;
  if (OSCOM.OFLUSH) {
    unit.flush();
    flush_host();
    if (mirrored) screen_mirror().flush();
  }
  check_output();
  if (redirected || mirrored) check_redirects();
}

Line::Line() : text_(nullptr) {
  const int row = std::min(OUTBUF.lines, MAXLINES - 1);
  text_ = OUTBUF.LINEBUF[static_cast<std::size_t>(row)].data();
  OUTBUF.lines = row + 1;
  OUTBUF.IVL = row + 1;
}

void Line::text(std::string_view t) {
  const auto room = static_cast<std::size_t>(LINELEN - std::min(cursor_, LINELEN));
  t = t.substr(0, room);
  if (!t.empty()) std::memcpy(text_ + std::min(cursor_, LINELEN), t.data(), t.size());
  cursor_ += static_cast<int>(t.size());
}

void Line::blank(int from, int to) {
  from = std::max(from, 1);
  to = std::min(to, LINELEN);
  if (to >= from) std::memset(text_ + from - 1, ' ', static_cast<std::size_t>(to - from + 1));
}

void WordRows::add(std::string_view word, std::string_view mark) {
  if (!row_) row_.emplace();
  row_->put<"(1X, A, A8)">(mark, word);
  if (++on_line_ == per_line_) end();
}

void WordRows::end() {
  if (row_) OUTLINE();
  row_.reset();
  on_line_ = 0;
}

void say(std::string_view text) {
  lay(text);
  OUTLINE();
}

void warn(std::string_view text) {
  if (!OSCOM.OWARN) return;
  lay(text);
  mirror_warning(OUTBUF.LINEBUF[0].data());
  OUTLINE();
}

void error_line(std::string_view text) {
  lay(text);
  mirror_error(OUTBUF.LINEBUF[0].data());
  OUTLINE();
}

void fail(std::string_view text) {
  error_line(text);
  mark_failed();
}

void mark_failed() {
  OCOM.ODONT = true;
  if (!OSCOM.OTALK) OSCOM.OSCAN = true;
}

void mirror_error(const char* line) {
  ++RUNCOM.failures;
  if (RUNCOM.settings.mirror_errors && !OSCOM.OTALK && !RUNCOM.script.empty())
    mirror(line, "error");
}

void mirror_warning(const char* line) {
  if (RUNCOM.settings.mirror_warnings && !RUNCOM.script.empty()) mirror(line, "warning");
}

void Trace::TRACE(std::string_view name, bool leaving) {
  if (leaving) {
    say<"(' LEAVING ', A)">(name);
  } else {
    say<"(' ENTERING ', A)">(name);
  }
}

void LCUC(char* text, int length) {
  if (length >= 0) {
    for (int i = 0; i < length; ++i) text[i] = upper(text[i]);
  } else {
    for (int i = 0; i < -length; ++i) {
      if (text[i] >= 'A' && text[i] <= 'Z') text[i] = static_cast<char>(text[i] + 32);
    }
  }
}

int LENTRM(std::string_view text) {
  std::size_t n = text.size();
  while (n > 0 && text[n - 1] == ' ') --n;
  return static_cast<int>(n);
}

std::string_view right_trimmed(std::string_view text) {
  return text.substr(0, static_cast<std::size_t>(LENTRM(text)));
}

std::string_view trimmed(std::string_view text) {
  const auto start = text.find_first_not_of(' ');
  return start == std::string_view::npos ? std::string_view{} : right_trimmed(text.substr(start));
}

namespace {

void tell_cause(int code) {
  if (code == -3) error_line(" ...ERROR..FORMAT TOO LONG, LIMIT IS 248 CHARACTERS");
}

}  // namespace

void XXIT(int code) {
  if (RUNCOM.ended) return;
  RUNCOM.ended = true;
  RUNCOM.xxit_code = code;
  OCOM.ODONT = true;
  if (code == 0) return;
  error_line<"(' ...ERROR..STOP ERROR CODE = ', I0)">(code);
  tell_cause(code);
}

void end_unless_talking(int code) {
  if (!OSCOM.OTALK) return XXIT(code);
  tell_cause(code);
  mark_failed();
}

bool stop_requested() { return signal_received() != 0 || RUNCOM.ended; }

}  // namespace korvel
