// The unit, file and form of a WRITE, and the way of its text into the file.
#include "data/write_target.h"

#include <algorithm>

#include "data/read_options.h"
#include "engine/commands.h"
#include "engine/host.h"
#include "engine/output.h"
#include "engine/set.h"
#include "engine/units.h"

namespace korvel {
namespace {

constexpr std::size_t MOST_NAME = 255;  // characters of a file name

bool ends_with(std::string_view name, std::string_view tail) {
  return name.size() >= tail.size() &&
         std::ranges::equal(name.substr(name.size() - tail.size()), tail,
                            [](char a, char b) { return upper(a) == b; });
}

bool incompatible() {
  fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
  return false;
}

std::string_view format_word() {
  return OPTCOM.VOPT[static_cast<std::size_t>(READOPT.place("FORMAT"))].text;
}

// The unit or the name: the command's own, else for WRITE the file of SET WRITEFIL or the unit of
// SET WRITEUNI.
bool find_place(WriteTarget& target, bool write) {
  const bool by_option = integer_given(READOPT.place("UNIT"));
  if (SCNCOM.file) {
    target.typed = trimmed(SCNCOM.file_name);
  } else if (by_option || SCNCOM.INPAR > 0) {
    target.unit = by_option ? integer_option(READOPT.place("UNIT")) : SCNCOM.INPAR;
  } else if (!write) {
    target.unit = IOCOM.L6;
  } else {
    const std::string_view setting = trimmed(word_setting("WRITEFIL"));
    target.by_default = true;
    if (setting.empty() || setting == "********") {
      target.unit = IOCOM.L7;
    } else {
      target.typed = setting;
    }
  }
  if (!target.typed.empty()) {
    if (target.typed.size() > MOST_NAME) {
      fail<"(' ...ERROR..FILE NAME IS TOO LONG, LIMIT IS', I4, ' CHARACTERS: ', A)">(
          MOST_NAME, std::string_view(target.typed).substr(0, 60));
      return false;
    }
    target.name = target.typed;
    return true;
  }
  if (reserved_unit(target.unit)) return false;
  if (target.unit < 1 || target.unit == IOCOM.L5) {
    fail<"(' ...ERROR..INVALID WRITE UNIT ', I0)">(target.unit);
    return false;
  }
  target.channel = target.unit == IOCOM.L6;
  if (!target.channel) target.name = unit_path(target.unit);
  return true;
}

// The form that the options ask for, or that the name tells.
bool find_form(WriteTarget& target) {
  const bool binary = logical_option(READOPT.place("BINARY")) || format_word() == "BINARY";
  target.single = logical_option(READOPT.place("SBINARY"));
  const struct {
    bool asked;
    FileForm form;
  } forms[] = {
      {logical_option(READOPT.place("KORVEL")), FileForm::korvdata},
      {binary || target.single, FileForm::korvbin},
      {logical_option(READOPT.place("DIF")), FileForm::dif},
      {logical_option(READOPT.place("TSP")) || logical_option(READOPT.place("DB")),
       FileForm::databank},
  };
  int asked = 0;
  for (const auto& f : forms) {
    if (!f.asked) continue;
    target.form = f.form;
    ++asked;
  }
  if (asked > 1 || (binary && target.single)) return incompatible();
  if (asked == 0 && !logical_given(READOPT.place("DIF")) && ends_with(target.name, ".DIF")) {
    target.form = FileForm::dif;
  }
  if (asked == 0 && !logical_given(READOPT.place("DB")) && ends_with(target.name, ".DB")) {
    target.form = FileForm::databank;
  }
  target.crypt = logical_option(READOPT.place("CRYPT"));
  if (target.channel && (asked > 0 || target.crypt)) {
    fail(" ...ERROR..DATA FILE FORMS ARE NOT AVAILABLE ON THE OUTPUT CHANNEL");
    return false;
  }
  // Only rows of text, and the text container, have a format.
  const bool formatted = !format_word().empty() && format_word() != "BINARY";
  if (formatted && target.form != FileForm::text && target.form != FileForm::korvdata) {
    return incompatible();
  }
  return true;
}

// Options that a file can't follow are named, not passed over.
void warn_of_options(const WriteTarget& target) {
  const struct {
    bool given;
    std::string_view word;
  } options[] = {
      {logical_option(READOPT.place("NEWSHEET")), "NEWSHEET"},
      {logical_option(READOPT.place("BACKSPAC")), "BACKSPACE"},
      {integer_given(READOPT.place("SKIPLINE")), "SKIPLINE"},
      {integer_given(READOPT.place("SKIPROWS")), "SKIPROWS"},
      {integer_given(READOPT.place("SKIPCOLS")), "SKIPCOLS"},
      {OPTCOM.VOPT[READOPT.place("PLOTVAR")].var != 0, "PLOTVAR"},
      {target.channel && logical_option(READOPT.place("APPEND")), "APPEND"},
  };
  for (const auto& o : options) {
    if (o.given) warn<"(' ...WARNING..THE ', A, ' OPTION HAS NO EFFECT')">(o.word);
  }
}

// The values in the form of the target. False when they could not all be written.
bool send_form(PrintJob& job, const WriteTarget& target, FileOutput& file) {
  switch (target.form) {
    case FileForm::korvdata:
      return write_korvdata(job, file);
    case FileForm::korvbin:
      return write_korvbin(job, file, target.single);
    case FileForm::dif:
      return write_dif(job, file);
    case FileForm::databank:
    case FileForm::text:
      break;
  }
  job.file = &file;
  if (logical_option(READOPT.place("NEWPAGE"))) file.write("\f\n");
  return print_data(job);
}

// Plain text reaches gpg through a file of the run's private folder; the old enciphered file goes
// only when gpg has made the new one.
void write_enciphered(PrintJob& job, const WriteTarget& target) {
  std::string path;
  {
    FileOutput place;  // the checks of any file to be written
    if (!open_output_file(place, target.unit, target.typed, WriteMode::replace)) return;
    path = place.path();
  }
  const std::string plain = private_file("WRITE");
  if (plain.empty()) return;
  FileOutput file;
  if (!file.open(plain, WriteMode::replace)) {
    fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(NAMED_UNIT,
                                                                              file.error(), plain);
    return;
  }
  const bool all = send_form(job, target, file);
  if (!all && file.error() == 0) return;
  if (commit_output_file(file) && encipher_file(plain, path)) tell_host("FILE_WRITE=", path);
}

}  // namespace

char separator_of(std::string_view name) {
  if (ends_with(name, ".CSV")) return ',';
  return ends_with(name, ".TSV") ? '\t' : '\0';
}

bool find_target(WriteTarget& target, bool write) {
  if (!find_place(target, write) || !find_form(target)) return false;
  const bool append =
      logical_option(READOPT.place("APPEND")) || !logical_option(READOPT.place("REWIND"));
  target.mode = append ? WriteMode::append : WriteMode::replace;
  // A file of which there can be only one piece is not lengthened.
  const bool whole = target.form == FileForm::dif || target.form == FileForm::databank;
  if (logical_option(READOPT.place("APPEND")) && (whole || target.crypt)) return incompatible();
  if (whole || target.crypt) target.mode = WriteMode::replace;
  if (target.crypt && target.form == FileForm::databank) return incompatible();
  warn_of_options(target);
  return true;
}

void write_file(PrintJob& job, const WriteTarget& target) {
  if (target.form == FileForm::databank) {
    write_databank(job, target.by_default ? std::string_view{} : std::string_view(target.name));
    return;
  }
  if (target.crypt) return write_enciphered(job, target);
  FileOutput file;
  if (!open_output_file(file, target.unit, target.typed, target.mode)) return;
  // A file that failed says so when it is completed; what was stopped or refused is given up.
  const bool all = send_form(job, target, file);
  if (!all && file.error() == 0) return;
  if (!commit_output_file(file)) return;
  tell_host("FILE_WRITE=", file.path());
  if (target.by_default && OCOM.OPUT) {
    say<"(' ...NOTE..DATA WRITTEN TO FILE: ', A)">(target.name);
  }
}

}  // namespace korvel
