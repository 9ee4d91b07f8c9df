// Character data of READ: strings of whole lines, and words of 8 characters beside numbers.

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "data/read_job.h"
#include "data/read_options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::size_t WORD = sizeof(double);  // characters of a word

// The A descriptors of a format: a blank record gives them blanks and every number a zero.
std::vector<char> words_of_format(const ReadJob& job, std::size_t n) {
  const auto blanks = std::bit_cast<double>(std::uint64_t{0x2020202020202020});
  std::vector<double> row(n, 0.0);
  std::size_t used = 0;
  const auto blank_record = [](std::string_view& record) {
    record = {};
    return true;
  };
  read_values(job.format.view(), row, blank_record, used);
  std::vector<char> words(n, 0);
  for (std::size_t k = 0; k < used; ++k) {
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): eight characters, not a number
    words[k] = std::memcmp(&row[k], &blanks, sizeof(double)) == 0 ? 1 : 0;
  }
  return words;
}

// Puts the text into a character string, in place of an old one.
bool store_string(ReadJob& job, ReadItem& item, const std::string& text) {
  if (item.column > 0 || item.var > 2 * DATCOM.MAXVAR ||
      (item.var > 0 && INFO(job.ws, item.var).ITYPE < STRING5)) {
    fail(
        " ...ERROR..TOO MANY ROWS OR COLS REQUESTED OR VARIABLE NAME ALREADY EXISTS. CHECK NAME IS "
        "UNIQUE.");
    return false;
  }
  const auto words = static_cast<std::int64_t>(text.size() / WORD);
  const int var = NEWVAR(job.ws, item.name, {.ITYPE = STRING5, .LEN = words});
  if (var == 0) return false;
  item.var = var;
  const auto room = elements(job.ws, var);
  if (!room.empty()) std::memcpy(room.data(), text.data(), room.size() * sizeof(double));
  if (OCOM.OPUT) {
    say<"(' ...NOTE..CHARACTER STRING ', A, ' HAS ', I0, ' CHARACTERS')">(
        item.key(), right_trimmed(text).size());
  }
  return true;
}

}  // namespace

bool choose_words(ReadJob& job) {
  const std::size_t n = job.items.size();
  const int last = integer_option(READOPT.place("CHARVARS"));
  const bool all = logical_option(READOPT.place("CHARVAR"));
  if (last < 0 || static_cast<std::size_t>(std::max(last, 0)) > n) {
    fail<"(' ...ERROR..CHARVARS=', I0, ' BUT ', I0, ' VARIABLES ARE READ')">(last,
                                                                             static_cast<int>(n));
    return false;
  }
  job.words.assign(n, all ? 1 : 0);
  for (std::size_t k = n - static_cast<std::size_t>(last); k < n; ++k) job.words[k] = 1;
  if (job.formatted) {
    const auto skipped = static_cast<std::size_t>(job.plan.skip_columns);
    const bool by_variable = job.plan.layout == Layout::ByVariable;
    const auto given = words_of_format(job, by_variable ? skipped + 1 : skipped + n);
    for (std::size_t k = 0; k < n; ++k) {
      if (given[by_variable ? skipped : skipped + k] != 0) job.words[k] = 1;
    }
    // Rows with text may begin with a letter; END alone ends them.
    if (std::ranges::find(given, 1) != given.end()) job.plan.ends_at_command = false;
  }
  const bool any = std::ranges::find(job.words, 1) != job.words.end();
  if (!any) return true;
  for (std::size_t k = 0; k < n; ++k) job.items[k].word = job.words[k] != 0;
  job.plan.words = job.words;
  return true;
}

bool read_character_strings(ReadJob& job) {
  // Lines up to END: a line of text may begin with any letter. One line for each of several
  // variables, all lines for a single one.
  const std::int64_t most =
      integer_given(READOPT.place("OBS")) ? integer_option(READOPT.place("OBS")) : UNKNOWN;
  RowPlan plan;
  std::string_view line;
  const auto next = [&] {
    if (!job.cursor.next(line)) {
      job.read.end = RowEnd::end_of_text;
      return false;
    }
    if (line_kind(line, plan) != LineKind::end_word) return true;
    job.read.end = RowEnd::terminator;
    return false;
  };
  const bool single = job.items.size() == 1;
  for (ReadItem& item : job.items) {
    std::string text;
    std::int64_t lines = 0;
    while ((single ? most == UNKNOWN || lines < most : lines < 1) && next()) {
      text += line;
      text.resize((text.size() + WORD - 1) / WORD * WORD, ' ');
      ++lines;
    }
    if (source_failed(job)) return false;
    if (lines == 0) {
      fail(" ...ERROR..NO DATA FOUND");
      return false;
    }
    if (text.empty()) text.assign(WORD, ' ');
    if (!store_string(job, item, text)) return false;
  }
  if (job.cursor.feed == nullptr) {  // an END behind the last line belongs to the text
    LineCursor ahead = job.cursor;
    if (ahead.next(line) && line_kind(line, plan) == LineKind::end_word) job.cursor = ahead;
  }
  return true;
}

}  // namespace korvel
