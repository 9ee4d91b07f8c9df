// The output channel: every printed line of the system passes through LINEBUF and OUTLINE.
//
// A routine composes one or more lines and sends them:
//     Line row;                                        // the next line of the block, blank
//     row.put<"(1X, A8, I7, G13.5)">(NAME(ws, var), n, mean);
//     OUTLINE();                                       // sends the block, blanks it, IVL = 1
// Each Line that is made before the next OUTLINE is one line further down in the block. For the
// frequent case of one line there are say, warn and fail. Formats are checked when the program is
// built: a wrong descriptor, a wrong kind of argument or column 131 stops the build.
//
// Levels are part of the text: " ...ERROR.." goes through fail (which marks the command as failed),
// " ...WARNING.." through warn (silent under SET NOWARN), the rest through say.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "data/format.h"
#include "engine/shared_areas.h"

namespace korvel {

inline constexpr int MAXLINES = 32;  // lines of one block; callers use at most 22

// The block of lines. Blank after every send.
struct OutBlock {
  std::array<std::array<char, LINELEN>, MAXLINES> LINEBUF;
  int IVL = 1;    // lines of the block that are to be sent
  int lines = 0;  // lines handed out to Line objects since the last send
  int ILINE = 0;  // lines sent to the normal output since the last pause
};
extern OutBlock OUTBUF;

// Sends IVL lines. A line that begins with "~" ends the block silently.
void OUTLINE();

class Line {
 public:
  Line();
  // Edits the arguments under FMT from the line's cursor on.
  template <FixedText FMT, class... Args>
  void put(const Args&... args) {
    cursor_ = compose<FMT>(text_, LINELEN, cursor_, args...);
  }
  // Copies text at the cursor; what passes column 130 is cut.
  void text(std::string_view t);
  // Blanks columns from..to (from 1).
  void blank(int from, int to);
  // Moves the cursor to a column (from 1).
  void column(int c) { cursor_ = c - 1; }
  int cursor() const { return cursor_; }
  char* data() { return text_; }

 private:
  char* text_;
  int cursor_ = 0;
};

// A list of words, so many a line, each in 8 columns behind a blank and, for a menu, a mark. end()
// sends the last line.
class WordRows {
 public:
  explicit WordRows(int per_line) : per_line_(per_line) {}
  void add(std::string_view word, std::string_view mark = {});
  void end();

 private:
  std::optional<Line> row_;
  int per_line_;
  int on_line_ = 0;
};

// One line, or several parted by '\n'.
void say(std::string_view text);
template <FixedText FMT, class... Args>
void say(const Args&... args) {
  Line row;
  row.put<FMT>(args...);
  OUTLINE();
}

// A warning: printed only under SET WARN.
void warn(std::string_view text);
void mirror_warning(const char* line);
template <FixedText FMT, class... Args>
void warn(const Args&... args) {
  if (!OSCOM.OWARN) return;
  Line row;
  row.put<FMT>(args...);
  mirror_warning(row.data());
  OUTLINE();
}

// A failure of the running command: prints the line, mirrors it on standard error in a batch run,
// sets ODONT and, when the run does not talk, OSCAN. `error_line` prints and mirrors alike but
// leaves the flags alone (unknown commands, ignored sub-commands).
void fail(std::string_view text);
void error_line(std::string_view text);
void mark_failed();                   // the flags of fail
void mirror_error(const char* line);  // the copy on standard error
template <FixedText FMT, class... Args>
void error_line(const Args&... args) {
  Line row;
  row.put<FMT>(args...);
  mirror_error(row.data());
  OUTLINE();
}
template <FixedText FMT, class... Args>
void fail(const Args&... args) {
  error_line<FMT>(args...);
  mark_failed();
}

// Under SET CONTINUE a failed estimation stops neither the loop it stands in nor the run.
class ContinueGuard {
 public:
  ContinueGuard() : scan_(OSCOM.OSCAN) {}
  ContinueGuard(const ContinueGuard&) = delete;
  ContinueGuard& operator=(const ContinueGuard&) = delete;
  ~ContinueGuard() {
    if (!OSCOM.OCONT || !OCOM.ODONT) return;
    OCOM.ODONT = false;
    OSCOM.OSCAN = scan_;
  }

 private:
  bool scan_;
};

// A warning line that means failure: printed under SET WARN like any warning, but counted and
// mirrored as an error, so that a run which goes over to scan mode here doesn't end as if all were
// well.
template <FixedText FMT, class... Args>
void fail_warning(const Args&... args) {
  Line row;
  row.put<FMT>(args...);
  mirror_error(row.data());
  if (!OSCOM.OWARN) OUTBUF.IVL = 0;
  if (!OSCOM.OWARN) row.blank(1, LINELEN);
  OUTLINE();
  mark_failed();
}

// Announces a routine under SET TRACE, at its start and at its end. Costs one test otherwise.
class Trace {
 public:
  explicit Trace(std::string_view name) : name_(name) {
    if (OSCOM.OTRACE) [[unlikely]]
      TRACE(name_, false);
  }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;
  ~Trace() {
    if (OSCOM.OTRACE) [[unlikely]]
      TRACE(name_, true);
  }
  static void TRACE(std::string_view name, bool leaving);

 private:
  std::string_view name_;
};

// Up-cases (length > 0) or down-cases (length < 0) the ASCII letters of text.
void LCUC(char* text, int length);
// Length without trailing blanks.
int LENTRM(std::string_view text);
std::string_view trimmed(std::string_view text);  // both ends
std::string_view right_trimmed(std::string_view text);
inline char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
// 1 a letter of either case, 0 a digit, -1 any other.
inline int NAMCHK(char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return 1;
  return c >= '0' && c <= '9' ? 0 : -1;
}

// Ends the run: prints the stop line for a non-zero code and asks the command loop to leave. The
// caller returns at once.
void XXIT(int code);
// A mistake that ends a run from a file. In a talking run the command has failed and no more: a
// typing error must not cost anybody the workspace.
void end_unless_talking(int code);

// True when the user has asked to stop (Ctrl-C, a signal): long loops ask at safe points and
// return.
bool stop_requested();

}  // namespace korvel
