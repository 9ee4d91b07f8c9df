// DISTRIB: rows from a file or from the command stream.
#include <algorithm>
#include <cmath>

#include "engine/files.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/units.h"
#include "stats/distrib.h"

namespace korvel {
namespace {

bool is_end(std::string_view line) {
  const std::string_view word = trimmed(line);
  return word.size() == 3 && upper(word[0]) == 'E' && upper(word[1]) == 'N' &&
         upper(word[2]) == 'D';
}

constexpr std::string_view BETWEEN = " ,\t\r";

}  // namespace

void RowReader::reserve(std::size_t lines) {
  for (std::size_t j = 0; j < columns_; ++j) values_[j].reserve(lines);
}

// Values of one line; a blank line is passed over, more values than wanted are too.
bool RowReader::take(std::string_view line) {
  if (line.find_first_not_of(BETWEEN) == std::string_view::npos) return true;
  const std::int64_t row = rows() + 1;
  std::size_t at = 0;
  for (std::size_t j = 0; j < columns_; ++j) {
    at = std::min(line.find_first_not_of(BETWEEN, at), line.size());
    const std::size_t end = std::min(line.find_first_of(BETWEEN, at), line.size());
    const Number n = FSUMS(line.substr(at, end - at));
    if (n.used == 0 || static_cast<std::size_t>(n.used) != end - at) {
      fail<"(' ...ERROR..READ ERROR IN ROW', I7)">(row);
      return false;
    }
    values_[j].push_back(n.value);
    at = end;
  }
  return true;
}

bool RowReader::read_file(int unit, std::string_view typed) {
  if (unit > 0 && reserved_unit(unit)) return false;
  DataUnit* const file = open_data_unit(unit, typed, true);
  if (file == nullptr) return false;
  std::string_view text = file->rest();
  reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n') + 1));
  bool good = true;
  while (good && !text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    if (is_end(line)) break;
    good = take(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  close_data_unit(file);
  return good;
}

bool RowReader::read_stream() {
  constexpr std::size_t some = 1024;
  TextInput& stream = command_stream();
  const bool prompt = OSCOM.OTALK && stream.terminal();
  reserve(some);
  std::string_view line;
  bool good = true;
  while (good) {
    if (prompt) {
      say(" TYPE DATA OR END OF FILE");
      main_output().flush();
    }
    if (!stream.line(line)) break;
    const std::string_view text = trimmed(line);
    if (!text.empty() && NAMCHK(text[0]) == 1) {
      if (!is_end(line)) stream.unread();
      break;
    }
    good = take(line);
  }
  return good;
}

}  // namespace korvel
