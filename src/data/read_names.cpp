// The row of names of READ / NAMES.

#include <algorithm>

#include "data/read_job.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::string_view NONAME = "NONAME__";

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

}  // namespace

void read_names(ReadJob& job, std::string_view line) {
  std::vector<std::string_view> words;
  if (job.plan.delimited) {
    bool more = true;
    for (std::size_t at = 0; more;)
      words.push_back(next_cell(line, at, job.plan.separator, more).text);
  } else {
    std::string_view word;
    for (std::size_t at = 0; next_value(line, at, word);) words.push_back(word);
  }
  const auto skipped = job.plan.delimited ? static_cast<std::size_t>(job.plan.skip_columns) : 0;
  bool noted = false;
  for (std::size_t i = std::min(skipped, words.size()); i < words.size(); ++i) {
    std::string name = clean_name(words[i]);
    if (taken(job.items, std::string_view(name).substr(0, KEYLEN))) {
      const std::string key = numbered_name(job.items, name);
      if (OCOM.OPUT) {
        if (!noted) say(" ...NOTE..NAMES THAT AGREE IN 8 CHARACTERS ARE NUMBERED:");
        say<"(1X, A, ' IS ', A)">(name, key);
        noted = true;
      }
      name = key;
    }
    ReadItem item;
    item.name = std::move(name);
    job.items.push_back(std::move(item));
  }
}

void drop_skipped_names(ReadJob& job, std::string_view names_line) {
  if (job.plan.delimited || job.plan.skip_columns == 0) return;
  // In free form the names row may or may not name the columns that are passed over: the first row
  // of data tells, for it has as many values as names in the one case.
  LineCursor ahead = job.cursor;
  if (ahead.feed != nullptr) return;
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
