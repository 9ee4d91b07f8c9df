// Where the data of a READ come from: the command stream, units, files, enciphered and fetched
// files, workbooks; and what form they have.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "data/containers.h"
#include "data/read_job.h"
#include "data/read_options.h"
#include "engine/files.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/set.h"
#include "platform/child.h"

namespace korvel {
namespace {

constexpr std::size_t SHOWN_NAME = 60;  // characters of a file name in messages

bool syntax_error() {
  fail(" ...ERROR..SYNTAX ERROR IN SPECIFYING READ UNIT OR PARENTHESES");
  return false;
}

// The end of the name tells the form: what a URL asks for behind "?" and a .gz are passed over.
std::string name_of_form(std::string_view name) {
  if (is_url(name)) name = name.substr(0, name.find_first_of("?#"));
  if (name_ends_with(name, ".GZ")) name.remove_suffix(3);
  return std::string(name);
}

// The form that is asked for.
FileForm form_by_name(const ReadJob& job) {
  const auto on = [](int place) { return logical_option(place); };
  if (on(READOPT.place("DIF")) || name_ends_with(job.form_name, ".DIF")) return FileForm::dif;
  if (on(READOPT.place("DB")) || on(READOPT.place("TSP")) || name_ends_with(job.form_name, ".DB")) {
    return FileForm::databank;
  }
  if (on(READOPT.place("BINARY")) || on(READOPT.place("SBINARY")) || format_option() == "BINARY") {
    return FileForm::korvbin;
  }
  return on(READOPT.place("KORVEL")) ? FileForm::korvdata : FileForm::text;
}

// Workbooks of other programs, which can't be read as they stand.
bool foreign_workbook(std::string_view name) {
  constexpr std::array<std::string_view, 6> TAILS = {".XLS", ".XLSB", ".ODS",
                                                     ".WK1", ".WKS",  ".NUMBERS"};
  return std::ranges::any_of(TAILS,
                             [&](std::string_view tail) { return name_ends_with(name, tail); });
}
bool workbook(std::string_view name) {
  return name_ends_with(name, ".XLSX") || name_ends_with(name, ".XLSM");
}

bool export_it(const ReadJob& job) {
  fail<"(' ...ERROR..FILE ', A, ': THIS FORM IS NOT READ')">(job.shown);
  say(" ...NOTE..OPEN IT IN ITS PROGRAM, SAVE THE SHEET AS .csv AND READ THAT FILE");
  return false;
}

void show_name(ReadJob& job, std::string_view name) {
  job.shown = name.substr(name.size() > SHOWN_NAME ? name.size() - SHOWN_NAME : 0);
}

// Reads on in a copy that this READ has made and that goes when it ends.
bool take_copy(ReadJob& job, const std::string& copy) {
  if (copy.empty()) return false;
  job.temporary = copy;
  job.unit = open_data_unit(0, copy, true);
  return job.unit != nullptr;
}

// The first sheet of a workbook as comma-separated text, by the program that Debian packages for
// it.
bool convert_workbook(ReadJob& job) {
  if (!logical_option(READOPT.place("NAMES")) && SCNCOM.NF == 0) {
    fail(" ...ERROR..NO VARIABLES LISTED FOR XLS READ");
    return false;
  }
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  const std::string path = job.unit->path;
  close_data_unit(job.unit);
  job.unit = nullptr;
  const std::string copy = private_file("sheet.csv");
  if (copy.empty()) return false;
  std::string last;  // what the program said last
  ChildIo io;
  io.output = copy;
  io.line = [&last](std::string_view line) {
    if (!trimmed(line).empty()) last = trimmed(line);
    return true;
  };
  // A name that begins with "-" would be taken for an option.
  const std::array<std::string, 2> words = {"xlsx2csv", path[0] == '-' ? "./" + path : path};
  const ChildEnd end = run_child(words, io);
  job.temporary = copy;
  if (end.error == ENOENT) {
    fail<"(' ...ERROR..FILE ', A, ' NEEDS THE PROGRAM xlsx2csv (PACKAGE xlsx2csv)')">(job.shown);
    say(" ...NOTE..INSTALL IT, OR SAVE THE SHEET AS .csv AND READ THAT FILE");
    return false;
  }
  if (!end.good()) {
    fail<"(' ...ERROR..FILE ', A, ' COULD NOT BE CONVERTED: ', A)">(
        job.shown, std::string_view(last).substr(0, SHOWN_NAME));
    say(" ...NOTE..SAVE THE SHEET AS .csv AND READ THAT FILE");
    return false;
  }
  job.spreadsheet = true;
  return take_copy(job, copy);
}

// The enciphered file is looked up first, so that a wrong name is called one.
bool decipher(ReadJob& job) {
  const std::string path = job.unit->path;
  close_data_unit(job.unit);
  job.unit = nullptr;
  const std::string plain = decipher_file(path);
  if (plain.empty()) return false;
  OCOM.OCRY = true;  // from here on nothing is printed
  return take_copy(job, plain);
}

// The file or unit, opened, under the name that messages show.
bool open_file(ReadJob& job, int unit) {
  const bool rewind = logical_option(READOPT.place("REWIND"));
  show_name(job, job.file);
  if (unit == 0 && foreign_workbook(job.form_name)) return export_it(job);
  if (unit == 0 && is_url(job.file)) {
    if (!take_copy(job, fetch_url(job.file))) return false;
  } else {
    job.unit = open_data_unit(unit, job.file, rewind);
    if (job.unit == nullptr) return false;
    if (unit > 0) job.form_name = name_of_form(job.unit->path);
    show_name(job, job.unit->path);
  }
  if (logical_option(READOPT.place("CRYPT")) && !decipher(job)) return false;
  if (workbook(job.form_name)) return convert_workbook(job);
  if (foreign_workbook(job.form_name)) return export_it(job);
  if (logical_option(READOPT.place("BACKSPAC"))) job.unit->backspace();
  return true;
}

// Text with lone CR at its line ends gets LF in their place.
void change_line_ends(ReadJob& job) {
  constexpr std::size_t LOOKED_AT = std::size_t{1} << 16;
  std::string_view& text = job.cursor.text;
  const std::string_view head = text.substr(0, LOOKED_AT);
  if (head.find('\r') == std::string_view::npos || head.find('\n') != std::string_view::npos)
    return;
  if (text.find('\n') != std::string_view::npos) return;
  job.converted = text;
  std::ranges::replace(job.converted, '\r', '\n');
  text = job.converted;
  job.cursor.source = nullptr;
}

// UTF-16 without its mark, and files that are no text at all.
bool is_text(const ReadJob& job) {
  const std::string_view head = job.cursor.text.substr(0, 64);
  if (std::ranges::count(head, '\0') < 2) return true;
  fail<"(' ...ERROR..FILE ', A, ' IS NOT PLAIN TEXT')">(job.shown);
  say(" ...NOTE..SAVE IT AS TEXT IN UTF-8, OR AS .csv, AND READ THAT FILE");
  return false;
}

// The text of a file from the place where this READ begins.
bool take_text(ReadJob& job, FileForm form) {
  TextInput& source = *job.unit->text;
  if (source_failed(job)) return false;
  job.first_line = source.line_number();
  const bool to_end = logical_option(READOPT.place("EOF")) ||
                      logical_option(READOPT.place("ALL")) || form != FileForm::text ||
                      name_ends_with(job.form_name, ".CSV") ||
                      name_ends_with(job.form_name, ".TSV");
  if (source.whole() || (to_end && !source.terminal())) {
    job.cursor.text = source.rest();
    job.cursor.source = source.whole() ? &source : nullptr;
  } else {
    job.cursor.feed = &source;
    job.cursor.hold = &job.hold;
  }
  return !source_failed(job);
}

}  // namespace

std::string_view format_option() {
  return OPTCOM.VOPT[static_cast<std::size_t>(READOPT.place("FORMAT"))].text;
}

bool name_ends_with(std::string_view name, std::string_view tail) {
  if (name.size() < tail.size()) return false;
  return std::ranges::equal(name.substr(name.size() - tail.size()), tail,
                            [](char a, char b) { return upper(a) == b; });
}

bool source_failed(const ReadJob& job) {
  if (job.unit == nullptr || job.unit->text->error() == 0) return false;
  fail<"(' ...ERROR..READ ERROR ON FILE ', A, ': ', A)">(job.shown, job.unit->text->cause());
  return true;
}

bool reads_a_file() {
  if (SCNCOM.file || integer_given(READOPT.place("UNIT"))) return true;
  return SCNCOM.INPAR > 0 ? SCNCOM.INPAR != IOCOM.L5
                          : IOCOM.INDATA != IOCOM.L5 || !trimmed(word_setting("READFILE")).empty();
}

bool open_source(ReadJob& job, FileForm& form) {
  // 1. A file by name, else a unit, else what SET names.
  const bool by_option = integer_given(READOPT.place("UNIT"));
  int unit = 0;
  if (SCNCOM.file) {
    job.file = SCNCOM.file_name;
  } else if (by_option) {
    unit = integer_option(READOPT.place("UNIT"));
  } else if (SCNCOM.INPAR > 0) {
    unit = SCNCOM.INPAR;
  } else if (const std::string_view set = trimmed(word_setting("READFILE")); !set.empty()) {
    job.file = set;
  } else {
    unit = IOCOM.INDATA;
  }
  job.stream = job.file.empty() && !SCNCOM.file && unit == IOCOM.L5;
  job.form_name = name_of_form(job.file);
  form = form_by_name(job);
  set_unpack_folder(RUNCOM.vtemp);
  // 2. Databanks have a file for each variable when none is named.
  if (form == FileForm::databank && job.stream) {
    job.stream = false;
    return true;
  }
  if (job.stream) {
    if (form != FileForm::text || logical_option(READOPT.place("CRYPT"))) return syntax_error();
    TextInput& source = command_stream();
    job.first_line = source.line_number();
    if (source.whole()) {
      job.cursor.text = source.rest();
    } else {
      job.cursor.feed = &source;
      job.cursor.hold = &job.hold;
    }
    return true;
  }
  if (SCNCOM.file && trimmed(job.file).empty()) return syntax_error();
  if (job.file.empty() && (unit < 1 || unit == 2 || unit == 3 || unit == 6 || unit == 8)) {
    fail<"(' ...ERROR..INVALID READ UNIT ', I0)">(unit);
    return false;
  }
  // 3. The file. Its first bytes have the last word on its form.
  if (!open_file(job, unit)) return false;
  if (unit > 0) form = form_by_name(job);
  if (!take_text(job, form)) return false;
  const FileForm magic = form_by_magic(job.cursor.text.substr(job.cursor.at));
  if (magic != FileForm::text) form = magic;
  if (form != FileForm::text) return true;
  if (!is_text(job)) return false;
  change_line_ends(job);
  return true;
}

void leave_source(ReadJob& job) {
  job.cursor.progress = nullptr;
  const bool in_place = job.cursor.feed == nullptr && job.hold.empty() && job.cursor.at > 0;
  if (in_place && job.stream) {
    command_stream().skip(job.cursor.at, job.cursor.line);
  } else if (in_place && job.unit != nullptr) {
    const bool at_end = job.cursor.at >= job.cursor.text.size();
    job.unit->pass(job.cursor.at + (at_end ? job.cut_off : 0), job.cursor.line);
  }
  const bool temporary = !job.temporary.empty();
  if (job.unit != nullptr && (temporary || logical_option(READOPT.place("CLOSE")))) {
    close_data_unit(job.unit);
    job.unit = nullptr;
  }
  if (temporary) unlink(job.temporary.c_str());
}

}  // namespace korvel
