// The row of names of READ / NAMES.

#include <algorithm>

#include "data/read_job.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::string_view NONAME = "NONAME__";
constexpr std::size_t SHOWN = 40;  // characters of a name as it stands in the file

// Letters, digits and "_" of the text, up-cased, at most 24; never empty, never beginning with a
// digit (such a name would be read as a number).
std::string clean_name(std::string_view text) {
  std::string name;
  for (const char c : text) {
    if (NAMCHK(c) >= 0 || c == '_') name.push_back(upper(c));
  }
  if (name.empty()) return std::string(NONAME);
  if (NAMCHK(name[0]) == 0) name.insert(name.begin(), 'X');
  if (name.size() > NAMELEN) name.resize(NAMELEN);
  return name;
}

bool taken(const std::vector<ReadItem>& items, std::string_view key) {
  return std::ranges::any_of(items, [&](const ReadItem& item) { return item.key() == key; });
}

// The name with its last characters replaced by the first number that makes it free.
std::string numbered_name(const std::vector<ReadItem>& items, const std::string& name) {
  for (int n = 2;; ++n) {
    const std::string number = std::to_string(n);
    std::string key = name.substr(0, static_cast<std::size_t>(KEYLEN) - number.size()) + number;
    if (!taken(items, key)) return key;
  }
}

std::vector<std::string_view> split(const ReadJob& job, std::string_view line) {
  std::vector<std::string_view> words;
  if (!job.plan.delimited) {
    std::string_view word;
    for (std::size_t at = 0; next_value(line, at, word);) words.push_back(word);
    return words;
  }
  bool more = true;
  for (std::size_t at = 0; more;) {
    words.push_back(next_cell(line, at, job.plan.separator, more).text);
  }
  return words;
}

// Cells without a name at the end of the row, as long as the rows below hold nothing there either.
void drop_empty_end(const ReadJob& job, std::vector<std::string_view>& words) {
  if (!job.plan.delimited || job.cursor.feed != nullptr) return;
  std::size_t keep = words.size();
  while (keep > 1 && words[keep - 1].empty()) --keep;
  LineCursor ahead = job.cursor;
  ahead.source = nullptr;
  ahead.progress = nullptr;
  constexpr int ROWS = 500;
  std::string_view row;
  for (int n = 0; n < ROWS && keep < words.size(); ++n) {
    if (!next_record(ahead, job.plan.separator, row)) break;
    bool more = true;
    std::size_t k = 0;
    for (std::size_t at = 0; more; ++k) {
      if (!next_cell(row, at, job.plan.separator, more).text.empty()) keep = std::max(keep, k + 1);
    }
  }
  if (keep < words.size()) words.resize(keep);
}

// Whether the row holds numbers and nothing else: then it may be the first row of the data.
enum class NumberRow { no, whole, data };
NumberRow number_row(const std::vector<std::string_view>& words) {
  NumberRow row = NumberRow::whole;
  std::vector<double> seen;
  for (const std::string_view word : words) {
    double value = 0;
    if (!cell_number(word, Numbers::point, value)) return NumberRow::no;
    // Names may be years. Points, signs and numbers that come twice are not found in names.
    const bool year =
        word.size() <= 4 && std::ranges::all_of(word, [](char c) { return NAMCHK(c) == 0; });
    if (!year || std::ranges::count(seen, value) > 0) row = NumberRow::data;
    seen.push_back(value);
  }
  return row;
}

}  // namespace

bool read_names(ReadJob& job, std::string_view line) {
  std::vector<std::string_view> words = split(job, line);
  drop_empty_end(job, words);
  if (words.size() >
      static_cast<std::size_t>(DATCOM.MAXVAR) + static_cast<std::size_t>(job.plan.skip_columns)) {
    fail<"(' ...ERROR..READ COMMAND ALLOWS ONLY', I4, ' VARIABLES')">(DATCOM.MAXVAR);
    say<"(' ...NOTE..SIZE ', I0, ' AS THE FIRST COMMAND OF THE RUN MAKES ROOM')">(
        words.size() + static_cast<std::size_t>(DATCOM.NVARS) + 100);
    return false;
  }
  // 1. Data in the place of names?
  const NumberRow numbers = words.empty() ? NumberRow::no : number_row(words);
  if (numbers == NumberRow::data) {
    fail<"(' ...ERROR..FILE ', A, ' LINE ', I0, ': THE ROW OF NAMES HOLDS NUMBERS')">(
        job.where(), job.names_line);
    say(" ...NOTE..LIST THE VARIABLES IN PLACE OF THE NAMES OPTION");
    return false;
  }
  if (numbers == NumberRow::whole) {
    warn<"(' ...WARNING..THE ROW OF NAMES HOLDS NUMBERS ONLY: ', A, ' BECOMES ', A)">(
        words[0].substr(0, SHOWN), clean_name(words[0]));
  }
  // 2. The names, and what became of them where that is not plain.
  const auto skipped = job.plan.delimited ? static_cast<std::size_t>(job.plan.skip_columns) : 0;
  bool noted = false;
  for (std::size_t i = std::min(skipped, words.size()); i < words.size(); ++i) {
    ReadItem item;
    item.name = clean_name(words[i]);
    if (taken(job.items, item.key())) item.name = numbered_name(job.items, item.name);
    const bool as_it_stands =
        std::ranges::equal(words[i], item.key(), [](char a, char b) { return upper(a) == b; });
    job.items.push_back(std::move(item));
    if (as_it_stands || !OCOM.OPUT) continue;
    if (!noted) say(" ...NOTE..NAMES ARE MADE FIT FOR COMMANDS, OF AT MOST 8 CHARACTERS:");
    noted = true;
    std::string shown(words[i].substr(0, SHOWN));
    std::ranges::replace_if(
        shown, [](char c) { return c >= '\0' && c < ' '; }, ' ');
    say<"(1X, A, ' IS ', A)">(shown.empty() ? std::string_view("(NO NAME)") : shown,
                              job.items.back().key());
  }
  return true;
}

void drop_skipped_names(ReadJob& job, std::string_view names_line) {
  if (job.plan.delimited || job.plan.skip_columns == 0) return;
  // In free form the names row may or may not name the columns that are passed over: the first row
  // of data tells, for it has as many values as names in the one case.
  LineCursor ahead = job.cursor;
  if (ahead.feed != nullptr) return;
  ahead.progress = nullptr;
  std::string_view line;
  while (ahead.next(line)) {
    if (line_kind(line, job.plan) != LineKind::data) continue;
    if (count_values(line) == count_values(names_line)) {
      const auto n = std::min(job.items.size(), static_cast<std::size_t>(job.plan.skip_columns));
      job.items.erase(job.items.begin(), job.items.begin() + static_cast<std::ptrdiff_t>(n));
    }
    return;
  }
}

}  // namespace korvel
