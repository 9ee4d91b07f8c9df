// CONVERT: one text file into another, line by line, or into pieces (routine UNFORMAT).
//   reads the command text, OPTCOM; sets the failure flags. Touches no variable.
//
// CONVERT infile outfile / options, or INUNIT= and OUTUNIT= for files that FILE has attached. Every
// written file is complete or not there at all.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "data/data.h"
#include "engine/files.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/units.h"

namespace korvel {
namespace {

constexpr auto CONVOPT = option_table(
    logical("FSPLIT"), logical("LIST"), logical("REWIND"), logical("TOPC"), logical("TOCDC"),
    logical("REUSE"), logical("TOMAC"), logical("DELCOM"), logical("TOSUN"), logical("TOUNIX"),
    logical("DELETE"), logical("CRLCUC"), logical("CLOSE"), logical("ADDCR"), logical("SCAN"),
    logical("CHANGE"), logical("MSFLAHEY"), logical("DELTAB"), logical("INSERT"),
    logical("LONGVERS"), logical("LONGMAIL"), logical("LABELCON"), logical("TOQUAD"),
    logical("FROMSPSS"), logical("ADDQUOTE"),  //
    integer("INUNIT"), integer("OUTUNIT"), integer("LINES"), integer("BEG"), integer("END"),
    integer("LABELROW"), integer("SKIPLINE"),  //
    variable("SUFFIX"), variable("ACCESS"), variable("FORM"));

constexpr std::int64_t NO_LIMIT = INT64_MAX;
constexpr std::int64_t MOST_PIECES = 9999;
constexpr std::int64_t LINES_BETWEEN_STOPS = 4096;

bool given(int place) { return OPTCOM.lgiven[static_cast<std::size_t>(place)]; }
bool number_given(int place) { return OPTCOM.igiven[static_cast<std::size_t>(place)]; }
int number(int place) { return OPTCOM.IOPT[static_cast<std::size_t>(place)]; }
bool flag(int place) { return OPTCOM.LOPT[static_cast<std::size_t>(place)]; }

// ---- The command

// A file as the command names it: by a unit or by a name.
struct FileName {
  int unit = 0;
  std::string_view typed;
};
struct Names {
  FileName in, out;
  std::size_t options = 0;  // 0-based place behind the "/"
};

// The names: words, or texts in quotes. A "/" that stands alone, or that begins the word behind
// both names, opens the options; elsewhere it belongs to a name.
bool take_names(Names& names) {
  const std::string_view text = command_typed();
  auto at = static_cast<std::size_t>(SCNCOM.ISTART);
  int count = 0;
  names.options = text.size();
  while (at < text.size()) {
    if (text[at] == ' ' || text[at] == ',') {
      ++at;
      continue;
    }
    const bool quoted = text[at] == '"' || text[at] == '\'';
    const std::size_t start = quoted ? at + 1 : at;
    const std::size_t end = std::min(
        quoted ? text.find(text[at], start) : text.find_first_of(" ,", start), text.size());
    const std::string_view word = text.substr(start, end - start);
    if (!quoted && (word == "/" || (count == 2 && word[0] == '/'))) {
      names.options = at + 1;
      break;
    }
    if (++count > 2) {
      fail(" ...ERROR..SYNTAX ERROR");
      return false;
    }
    (count == 1 ? names.in : names.out).typed = word;
    at = quoted ? end + 1 : end;
  }
  return true;
}

// Makes the words behind the "/" the option tokens of the command.
bool take_options(const Names& names) {
  const auto at = static_cast<int>(names.options);
  const auto words = std::span(TOKCOM.token).subspan(1, static_cast<std::size_t>(SCNCOM.NWORDS));
  SCNCOM.NOPS = 0;
  for (Token t : words) {
    if (t.position + static_cast<int>(t.text.size()) <= at) continue;
    if (t.position < at) {  // "/WORD"
      const auto cut = static_cast<std::size_t>(at - t.position);
      t = {t.text.substr(cut), t.typed.substr(cut), t.value, at};
    }
    if (SCNCOM.NOPS == MAXOPS) {
      fail(" ...ERROR..STATEMENT TOO LONG");
      return false;
    }
    TOKCOM.token[static_cast<std::size_t>(++SCNCOM.NOPS)] = t;
  }
  return true;
}

// Conversions for machines, mail and packages that are not served here.
bool options_available() {
  const auto refuse = [](std::string_view word) {
    fail<"(' ...ERROR..OPTION ', A, ' IS NOT AVAILABLE ON THIS SYSTEM')">(word);
    return false;
  };
  int place[4] = {0, 0, 0, 0};
  for (const OptionWord& w : CONVOPT.words) {
    const int here = place[static_cast<int>(w.kind)]++;
    for (const std::string_view absent :
         {"TOCDC", "REUSE", "TOSUN", "DELETE", "CRLCUC", "SCAN", "CHANGE", "MSFLAHEY", "INSERT",
          "LONGVERS", "LONGMAIL", "LABELCON", "TOQUAD", "FROMSPSS", "LABELROW", "ACCESS", "FORM"}) {
      if (w.word != absent) continue;
      const bool wanted = w.kind == OptionKind::Logical ? given(here) && flag(here)
                          : w.kind == OptionKind::Integer
                              ? number_given(here)
                              : !OPTCOM.VOPT[static_cast<std::size_t>(here)].text.empty();
      if (wanted) return refuse(absent);
    }
  }
  return true;
}

// ---- The lines

enum class LineEnd : std::uint8_t { as_it_is, lf, cr_lf, cr };

struct Conversion {
  LineEnd line_end = LineEnd::as_it_is;
  bool blank_tabs = false, blank_commas = false, quotes = false, list = false;
  std::int64_t first = 1, last = NO_LIMIT;  // lines that are taken
  std::int64_t piece = NO_LIMIT;            // lines of one file
};

bool take_conversion(Conversion& c) {
  const bool unix_end = flag(CONVOPT.place("TOUNIX")), mac_end = flag(CONVOPT.place("TOMAC"));
  const bool pc_end = flag(CONVOPT.place("TOPC")) || flag(CONVOPT.place("ADDCR"));
  if (int{unix_end} + int{mac_end} + int{pc_end} > 1) {
    fail(" ...ERROR..ONLY ONE OF TOUNIX, TOPC AND TOMAC MAY BE GIVEN");
    return false;
  }
  c.line_end = unix_end  ? LineEnd::lf
               : mac_end ? LineEnd::cr
               : pc_end  ? LineEnd::cr_lf
                         : LineEnd::as_it_is;
  c.blank_tabs = flag(CONVOPT.place("DELTAB"));
  c.blank_commas = flag(CONVOPT.place("DELCOM"));
  c.quotes = flag(CONVOPT.place("ADDQUOTE"));
  c.list = flag(CONVOPT.place("LIST")) && OCOM.OPUT && !OCOM.OCRY;
  if (number_given(CONVOPT.place("BEG"))) c.first = number(CONVOPT.place("BEG"));
  if (number_given(CONVOPT.place("END"))) c.last = number(CONVOPT.place("END"));
  const std::int64_t skipped = number(CONVOPT.place("SKIPLINE"));
  const std::int64_t lines =
      number_given(CONVOPT.place("LINES")) ? number(CONVOPT.place("LINES")) : NO_LIMIT;
  if (c.first < 1 || c.last < c.first || skipped < 0 || lines < 1) {
    fail(" ...ERROR..BEG, END, LINES AND SKIPLINE ARE INCONSISTENT");
    return false;
  }
  c.first = std::max(c.first, skipped + 1);
  if (!flag(CONVOPT.place("FSPLIT"))) {
    if (lines < NO_LIMIT) c.last = std::min(c.last, c.first + lines - 1);
    return true;
  }
  if (lines == NO_LIMIT) {
    fail(" ...ERROR..FSPLIT NEEDS LINES=");
    return false;
  }
  c.piece = lines;
  return true;
}

// Takes the next line, without its end, off the front of text: LF, CR LF or CR ends it.
struct TextLine {
  std::string_view text, end;
};
TextLine next_line(std::string_view& text) {
  const std::size_t at = std::min(text.find_first_of("\r\n"), text.size());
  std::size_t n = at < text.size() ? 1 : 0;
  if (n == 1 && text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n') n = 2;
  const TextLine line{text.substr(0, at), text.substr(at, n)};
  text.remove_prefix(at + n);
  return line;
}

// Calls take(line) for the lines wanted until it returns false; returns how many there were.
template <class F>
std::int64_t for_lines(std::string_view text, const Conversion& c, F&& take) {
  std::int64_t taken = 0;
  for (std::int64_t i = 1; !text.empty() && i <= c.last; ++i) {
    const TextLine line = next_line(text);
    if (i < c.first) continue;
    if (!take(line)) break;
    ++taken;
  }
  return taken;
}

void convert_line(const Conversion& c, const TextLine& line, std::string& out) {
  out.clear();
  if (c.quotes) out += '"';
  for (char ch : line.text) {
    if ((ch == '\t' && c.blank_tabs) || (ch == ',' && c.blank_commas)) ch = ' ';
    if (ch == '"' && c.quotes) out += '"';  // a quote inside is doubled
    out += ch;
  }
  if (c.quotes) out += '"';
  if (!c.list) return;
  for (std::size_t at = 0; at == 0 || at < out.size(); at += LINELEN - 1) {
    Line row;
    row.put<"(1X)">();
    row.text(std::string_view(out).substr(at, LINELEN - 1));
    OUTLINE();
  }
}

// ---- The files

// name.ext becomes name<k>.ext, or name<k>.<SUFFIX>.
std::string piece_name(std::string_view typed, std::int64_t k, std::string_view suffix) {
  const std::size_t slash = typed.rfind('/');
  const std::size_t base = slash == std::string_view::npos ? 0 : slash + 1;
  std::size_t dot = typed.rfind('.');
  if (dot == std::string_view::npos || dot <= base) dot = typed.size();
  std::string name(typed.substr(0, dot));
  name += std::to_string(k);
  if (suffix.empty()) return name += typed.substr(dot);
  if (suffix[0] != '.') name += '.';
  return name += suffix;
}

bool is_input(const std::string& input, const std::string& output) {
  std::error_code none;
  if (input != output && !std::filesystem::equivalent(input, output, none)) return false;
  fail<"(' ...ERROR..OUTPUT FILE IS THE INPUT FILE:', A)">(output);
  return true;
}

// Writes the lines of one file: at most c.piece from the front of `text`, which moves on. Nothing
// is left of a file that could not be written, or when the user has stopped the command.
bool write_file(const Conversion& c, std::string_view& text, const std::string& input,
                const FileName& name, std::int64_t count) {
  const std::string path =
      name.unit > 0 ? unit_path(name.unit) : resolve_write_name(std::string(name.typed));
  if (is_input(input, path)) return false;
  FileOutput file;
  if (!open_output_file(file, name.unit, name.typed, WriteMode::replace)) return false;
  std::string out;
  for (std::int64_t i = 0; i < count; ++i) {
    if (i % LINES_BETWEEN_STOPS == 0 && stop_requested()) {
      file.abandon();
      return false;
    }
    const TextLine line = next_line(text);
    convert_line(c, line, out);
    out += c.line_end == LineEnd::lf      ? std::string_view("\n")
           : c.line_end == LineEnd::cr_lf ? std::string_view("\r\n")
           : c.line_end == LineEnd::cr    ? std::string_view("\r")
                                          : line.end;
    file.write(out);
  }
  if (!commit_output_file(file)) return false;
  if (OCOM.OPUT) say<"(' ...NOTE..', I8, ' LINES WRITTEN TO ', A)">(count, file.path());
  return true;
}

void convert(const Conversion& c, std::string_view text, const std::string& input,
             const FileName& out) {
  const std::int64_t lines = for_lines(text, c, [](const TextLine&) { return true; });
  for (std::int64_t i = 1; i < c.first && !text.empty(); ++i) next_line(text);
  if (c.piece == NO_LIMIT) {
    write_file(c, text, input, out, lines);
    return;
  }
  const std::int64_t pieces = (lines + c.piece - 1) / c.piece;
  if (pieces > MOST_PIECES) {
    return fail<"(' ...ERROR..', I0, ' FILES ARE TOO MANY, USE MORE LINES')">(pieces);
  }
  if (pieces == 0) return warn(" ...WARNING..NO LINES FOUND, NOTHING IS WRITTEN");
  const std::string_view suffix = OPTCOM.VOPT[CONVOPT.place("SUFFIX")].typed;
  for (std::int64_t k = 1; k <= pieces; ++k) {
    const std::string name = piece_name(out.typed, k, suffix);
    const std::int64_t here = std::min(c.piece, lines - (k - 1) * c.piece);
    if (!write_file(c, text, input, {0, name}, here)) return;
  }
}

}  // namespace

void UNFORMAT(Workspace ws) {
  const Trace trace("UNFORMAT");
  // 1. Names and options.
  Names names;
  if (!take_names(names) || !take_options(names)) return;
  OPTION(ws, CONVOPT);
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  if (!options_available()) return;
  if (names.in.typed.empty()) names.in.unit = number(CONVOPT.place("INUNIT"));
  if (names.out.typed.empty()) names.out.unit = number(CONVOPT.place("OUTUNIT"));
  for (const FileName& f : {names.in, names.out}) {
    if (f.typed.empty() && f.unit < 1) {
      return fail(" ...ERROR..INPUT AND OUTPUT FILE MUST BE GIVEN");
    }
    if (reserved_unit(f.unit)) return;
  }
  Conversion c;
  if (!take_conversion(c)) return;
  if (c.piece < NO_LIMIT && names.out.unit > 0) {
    return fail(" ...ERROR..FSPLIT NEEDS THE NAME OF AN OUTPUT FILE");
  }
  // 2. The input, from its start, or with NOREWIND from where READ has stopped.
  const bool rewind = !given(CONVOPT.place("REWIND")) || flag(CONVOPT.place("REWIND"));
  DataUnit* const unit = open_data_unit(names.in.unit, names.in.typed, rewind);
  if (unit == nullptr) return;
  const std::string input = unit->path;
  // 3. The lines.
  const std::string_view text = unit->rest();
  if (unit->text->error() != 0) {
    fail<"(' ...ERROR..READ ERROR ON FILE ', A)">(input);
  } else {
    convert(c, text, input, names.out);
  }
  // An output of the same name would have been refused, so that the unit is still there.
  close_data_unit(unit);
}

}  // namespace korvel
