// Stored bodies of DO loops and procedures, and the levels that replay them.
//
// A body is a list of whole commands (continued lines joined), kept as typed. A level replays a
// range of a body: it is an input like a file, pushed on the stack of the reader's inputs, so that
// everything that reads lines (READ data, blocks, GOTO) works in it. DO loops and procedures share
// the levels; there may be MAXLEVELS of them. A body in use is held by its levels: deleting or
// redefining the procedure can't pull it away.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/workspace.h"
#include "platform/text_input.h"

namespace korvel {

inline constexpr int MAXLEVELS = 18;

// A stored command and the line of its file.
struct BodyLine {
  std::string text;
  std::int64_t line = 0;
};
struct Body {
  std::string name;  // of the procedure; empty for a loop at the top
  std::string file;  // file it was read from, for messages; empty: the input of the run
  std::vector<BodyLine> lines;
  std::vector<std::int32_t>
      match;  // of a line with DO: the place of its ENDO, -1 not looked for yet
};

// What a line of a body is to the blocks around it. Labels and prefix characters are passed over.
int stored_command(std::string_view text);             // rank in the command table, 0 none
std::string_view stored_label(std::string_view text);  // the word in front of ":", empty none
std::string_view stored_tail(std::string_view text);   // what stands behind the command word

// The lines [begin, end) of a body as an input, index characters replaced.
class BodyText final : public TextInput {
 public:
  BodyText(std::shared_ptr<Body> body, std::int32_t begin, std::int32_t end);
  bool line(std::string_view& out) override;
  void unread() override { --at_; }
  std::string_view rest() override;
  void skip(std::size_t n, std::int64_t lines) override;
  bool rewind() override;
  std::int64_t line_number() const override;
  bool terminal() const override { return false; }

  const std::shared_ptr<Body>& body() const { return body_; }
  std::int32_t at() const { return at_; }
  void go_to(std::int32_t line) { at_ = line; }
  std::int32_t begin() const { return begin_; }
  std::int32_t end() const { return end_; }

 private:
  std::shared_ptr<Body> body_;
  std::int32_t begin_, end_, at_;
  std::string changed_;  // the line last given out, when something was replaced in it
};

// A DO loop or procedure that is running.
struct Level {
  BodyText* text = nullptr;  // its input
  bool procedure = false;
  bool tells = true;      // a loop prints its beginning and end
  std::string index;      // characters or name by which the body writes the value
  bool variable = false;  // the index is a variable; nothing is replaced in the body
  double from = 1, step = 1, value = 1;
  std::int64_t passes = 1, pass = 1;
  std::string shown;  // the value as it is written into lines
  std::vector<std::pair<std::string, std::string>> formals;  // name (up-cased), text
  std::int64_t call_line = 0;                                // line of the DO or EXECUTE
};

// Running levels, outermost first. Empty: commands come from the input itself.
const std::vector<Level>& levels();
bool loop_running();  // a DO loop is among them
// The input on top ended: a loop goes back to its first line (true), or its level ends.
bool level_ended(Workspace ws, const TextInput* source);
// Drops all levels with their inputs, and those opened from them; the sample of the outermost start
// comes back unless `keep_sample`.
void drop_levels(Workspace ws, bool keep_sample = false);
// A true ENDIF: leaves the innermost loop, with everything inside it.
void leave_loop(Workspace ws);
// The text of a formal argument of the running procedure, by its name in either case; null when
// there is none of that name.
const std::string* formal_text(std::string_view name);
// " (in DO of line 12)" for messages of a line that is being replayed, else empty.
std::string calling_lines();

// Starts a level on a range of a body. False, after the message that ends the run, beyond the
// limit.
bool start_level(Workspace ws, Level level, std::shared_ptr<Body> body, std::int32_t begin,
                 std::int32_t end);
void next_value(Workspace ws, Level& level);

// Reads the lines of a block up to the command that closes it (K_ENDO, K_PROCEND), counting inner
// blocks; from a running body its range is found instead. False at the end of the input.
struct Block {
  std::shared_ptr<Body> body;
  std::int32_t begin = 0, end = 0;
};
bool capture_block(int opening, Block& block);
// The error of a block whose end is missing; none when the person has given it up.
void block_without_end();
// What goes with the command that a false IF drops: the lines of its block (DO, PROCEDUR, TEST,
// NLINEAR, SYSTEM, RESTRICT lines) and the data of a READ. By themselves they would mean something
// else.
void drop_block(Workspace ws);

// Handlers.
void DO(Workspace ws);       // DO
void DOEND(Workspace ws);    // ENDO and PROCEND outside their block
void GOTOX(Workspace ws);    // GOTO
void PROCDEF(Workspace ws);  // PROCEDUR
void EXECS(Workspace ws);    // EXECUTE

// FILE PROC name: loads every procedure of a file. False after a reported failure.
bool load_procedures(Workspace ws, std::string_view typed);

}  // namespace korvel
