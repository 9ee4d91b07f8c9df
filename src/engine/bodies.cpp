// Bodies and levels: the stored text as an input, index characters, the start and end of levels.
#include "engine/bodies.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "data/data.h"
#include "data/sample.h"
#include "engine/commands.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"

namespace korvel {
namespace {

struct Levels {
  std::vector<Level> list;
  int IBEG = 1, IEND = -999;  // sample when the outermost level began
};
Levels& state() {
  static Levels s;
  return s;
}

bool word_character(char c) { return NAMCHK(c) >= 0 || c == '_' || c == '$'; }

// Whether the index stands at a place of the text. A single character is replaced wherever it
// stands; a name only as a whole word.
bool index_at(std::string_view text, std::size_t at, std::string_view index) {
  if (text.size() - at < index.size()) return false;
  for (std::size_t k = 0; k < index.size(); ++k) {
    if (upper(text[at + k]) != index[k]) return false;
  }
  if (index.size() == 1) return true;
  const std::size_t behind = at + index.size();
  return (at == 0 || !word_character(text[at - 1])) &&
         (behind == text.size() || !word_character(text[behind]));
}

// The loops whose index counts in the line that is read: those of the running body, longer names
// first, then the outer ones.
std::size_t counting_loops(std::array<const Level*, MAXLEVELS>& loops) {
  std::size_t n = 0;
  const auto& list = state().list;
  for (auto level = list.rbegin(); level != list.rend() && !level->procedure; ++level) {
    if (!level->variable && !level->index.empty()) loops[n++] = &*level;
  }
  std::reverse(loops.begin(), loops.begin() + static_cast<std::ptrdiff_t>(n));
  std::stable_sort(
      loops.begin(), loops.begin() + static_cast<std::ptrdiff_t>(n),
      [](const Level* a, const Level* b) { return a->index.size() > b->index.size(); });
  return n;
}

// Replaces index characters; false when the line holds none.
bool DOSUB(std::string_view text, std::string& out) {
  std::array<const Level*, MAXLEVELS> loops{};
  const std::size_t n = counting_loops(loops);
  if (n == 0) return false;
  const auto level_at = [&](std::size_t at) -> const Level* {
    for (std::size_t k = 0; k < n; ++k) {
      if (index_at(text, at, loops[k]->index)) return loops[k];
    }
    return nullptr;
  };
  std::size_t at = 0;
  while (at < text.size() && level_at(at) == nullptr) ++at;
  if (at == text.size()) return false;
  out.assign(text.substr(0, at));
  while (at < text.size()) {
    if (const Level* level = level_at(at)) {
      out += level->shown;
      at += level->index.size();
    } else {
      out += text[at++];
    }
  }
  if (out.size() > static_cast<std::size_t>(LINMAX)) {
    fail(" ...ERROR..STATEMENT TOO LONG AFTER DO SUBSTITUTION");
    out.clear();
  }
  return true;
}

// A value as it is written into a line: whole numbers as integers, others with up to 8 significant
// digits.
std::string value_text(double value) {
  std::array<char, 40> text{};
  constexpr double WHOLE = 1e15;
  const bool whole = value == std::floor(value) && std::fabs(value) < WHOLE;
  const auto end = whole ? std::to_chars(text.data(), text.data() + text.size(),
                                         static_cast<std::int64_t>(value))
                         : std::to_chars(text.data(), text.data() + text.size(), value,
                                         std::chars_format::general, 8);
  return {text.data(), end.ptr};
}

void end_level(Workspace ws) {
  auto& s = state();
  s.list.pop_back();
  if (!s.list.empty()) return;
  restore_gaps(ws);
  DATCOM.IBEG = s.IBEG;
  DATCOM.IEND = s.IEND;
  DATCOM.NOBS = s.IEND < 1 ? DATCOM.NOBS : s.IEND - s.IBEG + 1;
  if (s.IEND >= 1) set_sample_size(ws);
}

}  // namespace

// ---- Lines of a body

std::string_view stored_label(std::string_view text) {
  const auto start = text.find_first_not_of(' ');
  if (start == std::string_view::npos || NAMCHK(text[start]) != 1) return {};
  std::size_t end = start;
  while (end < text.size() && (NAMCHK(text[end]) >= 0 || text[end] == '_')) ++end;
  return end < text.size() && text[end] == ':' ? text.substr(start, end - start)
                                               : std::string_view{};
}

namespace {

// Where the command word of a stored line stands: behind labels and prefix characters.
std::size_t word_place(std::string_view text) {
  std::size_t at = 0;
  for (;;) {
    at = text.find_first_not_of(" ?^=", at);
    if (at == std::string_view::npos) return text.size();
    const std::string_view label = stored_label(text.substr(at));
    if (label.empty()) return at;
    at += label.size() + 1;
  }
}

std::size_t word_end(std::string_view text, std::size_t at) {
  while (at < text.size() && (NAMCHK(text[at]) >= 0 || text[at] == '_')) ++at;
  return at;
}

}  // namespace

int stored_command(std::string_view text) {
  const std::size_t at = word_place(text);
  const std::size_t end = word_end(text, at);
  if (at == end) return 0;
  std::array<char, KEYLEN> word{};
  const std::size_t n = std::min<std::size_t>(end - at, KEYLEN);
  for (std::size_t k = 0; k < n; ++k) word[k] = upper(text[at + k]);
  return find_command({word.data(), n});
}

std::string_view stored_tail(std::string_view text) {
  return text.substr(word_end(text, word_place(text)));
}

BodyText::BodyText(std::shared_ptr<Body> body, std::int32_t begin, std::int32_t end)
    : body_(std::move(body)), begin_(begin), end_(end), at_(begin) {
  name_ = body_->file;
}

bool BodyText::line(std::string_view& out) {
  if (at_ >= end_) return false;
  const std::string& text = body_->lines[static_cast<std::size_t>(at_++)].text;
  out = DOSUB(text, changed_) ? std::string_view(changed_) : std::string_view(text);
  return true;
}

std::string_view BodyText::rest() {
  changed_.clear();
  for (std::int32_t k = at_; k < end_; ++k) {
    changed_ += body_->lines[static_cast<std::size_t>(k)].text;
    changed_ += '\n';
  }
  return changed_;
}

void BodyText::skip(std::size_t, std::int64_t lines) {
  at_ = static_cast<std::int32_t>(std::min<std::int64_t>(at_ + lines, end_));
}

bool BodyText::rewind() {
  at_ = begin_;
  return true;
}

std::int64_t BodyText::line_number() const {
  const std::int32_t last = std::max(at_ - 1, begin_);
  return last < static_cast<std::int32_t>(body_->lines.size())
             ? body_->lines[static_cast<std::size_t>(last)].line
             : 0;
}

// ---- Levels

const std::vector<Level>& levels() { return state().list; }

bool loop_running() {
  return std::ranges::any_of(state().list, [](const Level& level) { return !level.procedure; });
}

void next_value(Workspace ws, Level& level) {
  level.value = level.from + static_cast<double>(level.pass - 1) * level.step;
  const auto rank = static_cast<int>(state().list.size());
  temporary(temporary_place("DO") + rank - 1) = level.value;
  level.shown = value_text(level.value);
  if (!level.variable) return;
  const int I = VARNUM(ws, level.index);
  if (I <= 0) return;
  const auto x = elements(ws, I);
  if (!x.empty()) x[0] = level.value;
}

bool start_level(Workspace ws, Level level, std::shared_ptr<Body> body, std::int32_t begin,
                 std::int32_t end) {
  auto& s = state();
  if (s.list.size() >= MAXLEVELS) {
    error_line(" ...ERROR..MORE THAN 18 PROC LEVELS");
    end_unless_talking(3);
    if (!RUNCOM.ended) drop_levels(ws);  // each level would come back here with its next line
    return false;
  }
  if (s.list.empty()) {
    s.IBEG = DATCOM.IBEG;
    s.IEND = DATCOM.IEND;
  }
  auto text = std::make_unique<BodyText>(std::move(body), begin, end);
  level.text = text.get();
  level.call_line = INPCOM.KLINE;
  s.list.push_back(std::move(level));
  if (!s.list.back().procedure) next_value(ws, s.list.back());
  open_command_input(std::move(text));
  return true;
}

bool level_ended(Workspace ws, const TextInput* source) {
  auto& s = state();
  if (s.list.empty() || s.list.back().text != source) return false;
  Level& level = s.list.back();
  OCOM.ONOTIF = false;  // a false IF as last line has nothing behind it to drop
  if (!level.procedure && level.pass < level.passes) {
    ++level.pass;
    next_value(ws, level);
    level.text->rewind();
    return true;
  }
  if (!level.procedure && level.tells && OSCOM.OOPUT) {
    std::string last = value_text(level.value);
    constexpr std::size_t WIDTH = 10;
    if (last.size() < WIDTH) last.insert(0, WIDTH - last.size(), ' ');
    say<"(' EXECUTION FINISHED FOR DO LOOP  ', A)">(last);
  }
  end_level(ws);
  return false;
}

void drop_levels(Workspace ws, bool keep_sample) {
  auto& s = state();
  if (s.list.empty()) return;
  close_command_inputs_from(s.list.front().text);
  s.list.resize(1);
  if (keep_sample) {
    s.list.clear();
    forget_gaps();
  } else {
    end_level(ws);
  }
}

void leave_loop(Workspace ws) {
  auto& s = state();
  auto loop = std::find_if(s.list.rbegin(), s.list.rend(),
                           [](const Level& level) { return !level.procedure; });
  if (loop == s.list.rend()) return;
  if (OCOM.OPUT) say<"(' ...NOTE..DO LOOP ENDED AT  ', A)">(value_text(loop->value));
  const auto keep = static_cast<std::size_t>(s.list.rend() - loop) - 1;
  close_command_inputs_from(s.list[keep].text);
  s.list.resize(keep + 1);
  end_level(ws);
}

const std::string* formal_text(std::string_view name) {
  const auto& list = state().list;
  const auto procedure =
      std::find_if(list.rbegin(), list.rend(), [](const Level& level) { return level.procedure; });
  if (procedure == list.rend()) return nullptr;
  for (const auto& [formal, text] : procedure->formals) {
    if (std::ranges::equal(formal, name, [](char a, char b) { return a == upper(b); }))
      return &text;
  }
  return nullptr;
}

std::string calling_lines() {
  constexpr std::size_t SHOWN = 3;  // callers named in a message
  const auto& list = state().list;
  std::string text;
  for (std::size_t k = 0; k < std::min(list.size(), SHOWN); ++k) {
    text += text.empty() ? " (in " : ", ";
    text += list[k].procedure ? "EXECUTE of line " : "DO of line ";
    text += std::to_string(list[k].call_line);
  }
  if (list.size() > SHOWN) text += ", ...";
  if (!text.empty()) text += ')';
  return text;
}

// ---- Capture

namespace {

int closing_command(int opening) { return opening == K_DO ? K_ENDO : K_PROCEND; }

// The place of the line that closes the block whose first line is at `from`; -1 none.
std::int32_t find_end(const Body& body, std::int32_t from, std::int32_t limit, int opening) {
  int depth = 1;
  for (std::int32_t k = from; k < limit; ++k) {
    const int command = stored_command(body.lines[static_cast<std::size_t>(k)].text);
    if (command == opening) ++depth;
    if (command == closing_command(opening) && --depth == 0) return k;
  }
  return -1;
}

}  // namespace

bool capture_block(int opening, Block& block) {
  auto& s = state();
  // A loop within a running body is a range of it, looked for once.
  if (!s.list.empty() && s.list.back().text == &command_stream()) {
    BodyText& text = *s.list.back().text;
    Body& body = *text.body();
    if (body.match.size() != body.lines.size()) body.match.assign(body.lines.size(), -1);
    const auto opener = static_cast<std::size_t>(text.at() - 1);
    if (body.match[opener] < 0) {
      body.match[opener] = find_end(body, text.at(), text.end(), opening);
    }
    const std::int32_t end = body.match[opener];
    if (end < 0) return false;
    block = {text.body(), text.at(), end};
    text.go_to(end + 1);
    return true;
  }
  block.body = std::make_shared<Body>();
  block.body->file = running_file();
  int depth = 1;
  for (BodyLine line; read_stored_line(line);) {
    const int command = stored_command(line.text);
    if (command == opening) ++depth;
    const bool end = command == closing_command(opening) && --depth == 0;
    if (opening == K_DO) echo_stored_line(line.text);
    if (end) {
      block.begin = 0;
      block.end = static_cast<std::int32_t>(block.body->lines.size());
      return true;
    }
    block.body->lines.push_back(std::move(line));
    line = {};
  }
  return false;
}

}  // namespace korvel
