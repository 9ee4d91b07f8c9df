// Data text under several option sets of READ. The first byte picks the set; the rest is the data,
// once in the command stream and once in a file. Besides, the threaded reader must mean the same as
// the one that goes by lines.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "data/read_rows.h"
#include "engine/run.h"

namespace {

using namespace korvel;

constexpr std::string_view SETS[] = {
    "X Y / EOF",
    "/ NAMES EOF FORMAT=COMMA",
    "/ NAMES EOF FORMAT=TAB SKIPCOLS=1",
    "X / EOF",
    "X Y Z / OBS=5",
    "X Y / BYVAR EOF",
    "/ NAMES EOF",
    "A / ROWS=3 COLS=2",
    "A / SYMAT ROWS=3",
    "X Y / FORMAT EOF",
    "X Y / OBS=3 SKIPLINE=1 SKIPROWS=1 SKIPCOLS=1 BEG=2",
    "A B / FORMAT=COMMA EOF OBS=4",
    "A / COLS=3 EOF",
    "X N / CHARVARS=1 EOF FORMAT=COMMA",
    "X / CHARSTR",
    "X Y / FORMAT=DUMP EOF",
};

bool enter_empty_folder() {
  char name[] = "/tmp/korvel_fuzz_XXXXXX";
  return mkdtemp(name) != nullptr && chdir(name) == 0;
}

void run(const std::string& commands) {
  RunSettings settings;
  settings.commands = commands;
  settings.have_commands = true;
  settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = "/dev/null";
  settings.par = 64;
  settings.maxvar = 40;
  run_korvel(settings);
}

struct Result {
  RowsRead read;
  std::size_t at = 0;
  std::vector<double> data;
};

Result read(std::string_view text, RowPlan plan, bool bulk) {
  constexpr std::int64_t ROWS = 50;
  const auto width = static_cast<std::size_t>(plan.values);
  Result r;
  r.data.assign(width * ROWS, 0.0);
  RowTarget target;
  for (std::size_t k = 0; k < width; ++k) target.column.push_back(r.data.data() + k * ROWS);
  LineCursor cursor;
  cursor.text = text;
  std::int64_t done = 0;
  if (bulk) done = read_bulk(cursor, scan_block(cursor, plan, ROWS), plan, target, ROWS);
  plan.groups = ROWS;
  r.read = read_rows(cursor, plan, &target, done);
  r.at = cursor.at;
  for (std::size_t k = 0; k < width; ++k) {
    for (std::int64_t g = r.read.groups; g < ROWS; ++g) {
      if (g > r.read.groups || static_cast<std::int64_t>(k) >= r.read.partial)
        target.column[k][g] = 0;
    }
  }
  return r;
}

void compare(std::string_view text, unsigned choice) {
  RowPlan plan;
  plan.delimited = choice % 2 != 0;
  plan.separator = ",\t;"[choice / 2 % 3];
  plan.ends_at_command = choice / 6 % 2 != 0;
  plan.values = 1 + choice / 12 % 3;
  plan.trailing = static_cast<int>(choice / 72 % 2);
  plan.numbers = static_cast<Numbers>(choice % 5);
  plan.skip_columns = static_cast<int>(choice / 36 % 2);
  const Result a = read(text, plan, false), b = read(text, plan, true);
  const bool same = a.read.groups == b.read.groups && a.read.partial == b.read.partial &&
                    a.read.end == b.read.end && a.at == b.at && a.data == b.data;
  if (!same) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered || size == 0 || size > 20000) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  compare(text, data[0]);
  const std::string options(SETS[data[0] % std::size(SETS)]);
  const std::string format = "FORMAT(F3.0,1X,E8.2)\n";
  run(format + "READ " + options + "\n" + text);
  std::ofstream("data.csv", std::ios::binary) << text;
  run(format + "READ(data.csv) " + options + "\nREAD(data.csv) " + options + " NOREWIND\n");
  return 0;
}
