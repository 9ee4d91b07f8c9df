// SAVEX: SAVE and RESTORE keep variables on a file and bring them back; COMPRESS.
//
// The file is a sequence of binary containers, which keep every bit, or under KORVEL of text ones.
// RESTORE finds out by itself which.

#include <algorithm>
#include <string>

#include "data/container_parts.h"
#include "data/sample.h"
#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr auto SAVEOPT =
    option_table(logical("BINARY", true), logical("KORVEL"), integer("UNIT"), variable("FILE"));
constexpr std::string_view SAVED_FILE = "KORVEL.SAV";  // when the command names none

// The file of the command: a unit, the one in brackets, FILE=, or the usual one.
struct SavePlace {
  int unit = 0;
  std::string name;
};

bool find_place(SavePlace& place) {
  constexpr int UNIT = SAVEOPT.place("UNIT");
  if (SCNCOM.file) {
    place.name = SCNCOM.file_name;
  } else if (OPTCOM.igiven[UNIT] || SCNCOM.INPAR > 0) {
    place.unit = OPTCOM.igiven[UNIT] ? OPTCOM.IOPT[UNIT] : SCNCOM.INPAR;
    if (place.unit >= 1) return !reserved_unit(place.unit);
    fail<"(' ...ERROR..INVALID UNIT ', I0)">(place.unit);
    return false;
  } else if (const auto& option = OPTCOM.VOPT[SAVEOPT.place("FILE")]; !option.typed.empty()) {
    place.name = option.typed;
  } else {
    place.name = SAVED_FILE;
  }
  return true;
}

// The variables of the list, or all; what marks skipped observations belongs to the sample.
bool take_variables(PrintJob& job) {
  const auto take = [&](int var) {
    const Place p = INFO(job.ws, var);
    PrintItem x{.var = var, .type = p.ITYPE, .rows = p.LEN, .name = NAME(job.ws, var)};
    x.data = elements(job.ws, var);
    if (x.name == SKIPNAME || x.data.empty()) return;
    if (p.ITYPE == MATRIX2) x.columns = std::max(p.N2, 1);
    if (p.ITYPE == MATRIX2) x.rows = p.rows();
    if (x.triangle()) x.rows = p.N2;
    x.last = x.rows;
    x.last_column = x.columns;
    job.items.push_back(x);
  };
  for (const ListItem& item : SCNCOM.list()) {
    if (item.var <= 0 || item.var > 2 * DATCOM.MAXVAR || item.var == DATCOM.MCON || item.lag != 0) {
      fail(" ...ERROR..SYNTAX ERROR");
      return false;
    }
    if (item.name == SKIPNAME) say(" ...NOTE..SKIP$ IS NOT SAVED");
    take(item.var);
  }
  if (SCNCOM.NF == 0) {
    for (int I = 1; I <= DATCOM.NVARS; ++I) {
      if (job.ws.VNAME(I)[0] != ' ') take(I);
    }
  }
  if (!job.items.empty()) return true;
  fail(" ...ERROR..NO DATA FOUND");
  return false;
}

void save(Workspace ws, const SavePlace& place) {
  const auto to_nobody = [](std::string_view) { return true; };
  PrintJob job{.ws = ws, .out = to_nobody};
  job.byvar = true;
  if (!take_variables(job)) return;
  FileOutput file;
  if (!open_output_file(file, place.unit, place.name, WriteMode::replace)) return;
  const bool text = OPTCOM.LOPT[SAVEOPT.place("KORVEL")];
  const bool good = text ? write_korvdata(job, file) : write_korvbin(job, file, false);
  if (!good || !commit_output_file(file) || !OCOM.OPUT) return;
  for (const PrintItem& x : job.items) say<"(' VARIABLE ', A, ' HAS BEEN SAVED')">(x.name);
  say<"(' ...NOTE..', I5, ' VARIABLES ARE ON FILE ', A)">(static_cast<int>(job.items.size()),
                                                          file.path());
}

void restore(Workspace ws, const SavePlace& place) {
  // 1. The list, and the file.
  ReadJob job;
  job.ws = ws;
  job.stream = false;
  for (const ListItem& item : SCNCOM.list()) {
    if (item.var < 0 || item.var > 2 * DATCOM.MAXVAR || item.lag != 0 || item.column > 0) {
      return fail(" ...ERROR..SYNTAX ERROR");
    }
    ReadItem wanted;
    wanted.name = item.name;
    job.items.push_back(std::move(wanted));
  }
  DataUnit* const unit = open_data_unit(place.unit, place.name, true);
  if (unit == nullptr) return;
  job.unit = unit;
  job.shown = unit->path;
  job.cursor.text = unit->rest();
  if (source_failed(job)) return close_data_unit(unit);
  // 2. The variables. Those that were there before a fault stand, and are named.
  const bool good = read_containers(job, FileForm::korvbin, Naming::by_name) && !source_failed(job);
  close_data_unit(unit);
  std::int64_t longest = 0;
  for (const ReadItem& item : job.items) {
    if (item.var <= 0 || !item.arrived) continue;
    const Place p = INFO(ws, item.var);
    if (p.ITYPE == SERIES) longest = std::max<std::int64_t>(longest, p.LEN);
    if (OCOM.OPUT) say<"(' VARIABLE ', A, ' HAS BEEN RESTORED')">(item.key());
  }
  if (good) define_sample(ws, longest);
}

}  // namespace

void SAVEX(Workspace ws) {
  const Trace trace("SAVEX");
  if (INPCOM.IKOD == K_COMPRESS) {
    if (!OSCOM.OSCAN) compress_variables(ws);
    return;
  }
  OPTION(ws, SAVEOPT);
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  SavePlace place;
  if (!find_place(place)) return;
  if (INPCOM.IKOD == K_SAVE) return save(ws, place);
  restore(ws, place);
}

}  // namespace korvel
