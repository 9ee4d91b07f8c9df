// The text container KORVDATA: lines of a header for each variable, then its values.
//
//   KORVDATA
//   9I4   version, MACH, MOS, MCMP, 0, 6, 7, 0, 16
//   6L1   free format, BINARY, SBINARY, by row, OFMT, by variable
//   7I8   TYPE, LENGTH, COLUMNS, ITIME1, ITIME2, ITIME3, 0
//   16A8  name, stored format
//   one value a line with 17 significant digits; or records of the stored format; or 30A8 text
//
// Blanks at the end of a line are not written, and are there again for the reader.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>

#include "data/container_parts.h"
#include "data/format.h"
#include "data/list_numbers.h"
#include "data/run_format.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::size_t NAMEFIELD = 8;
constexpr std::size_t TEXT_WORDS = 30;         // words of a line of characters
constexpr std::int64_t MOST_IN_I8 = 99999999;  // elements that the header can count
constexpr int RECORD_ROOM = 8192;              // characters of a record under a stored format
constexpr std::string_view USUAL_NAN = "NaN";
constexpr std::uint64_t USUAL_NAN_BITS = 0x7ff8000000000000;

// ---- Lines
// ---------------------------------------------------------------------------------------

void put_line(FileOutput& file, std::string_view line) {
  file.write(right_trimmed(line));
  file.write("\n");
}

template <FixedText FMT, class... Args>
void put_record(FileOutput& file, const Args&... args) {
  std::array<char, LINELEN> line;
  line.fill(' ');
  const int n = compose<FMT>(line.data(), LINELEN, 0, args...);
  put_line(file, {line.data(), static_cast<std::size_t>(n)});
}

// Whole numbers in fields of `width` columns; what the line lacks is 0.
bool fixed_integers(std::string_view line, std::size_t width, std::span<std::int32_t> to) {
  for (std::size_t k = 0; k < to.size(); ++k) {
    to[k] = 0;
    if (k * width >= line.size()) continue;
    const std::string_view field = trimmed(line.substr(k * width, width));
    if (field.empty()) continue;
    const auto read = std::from_chars(field.data(), field.data() + field.size(), to[k]);
    if (read.ec != std::errc{} || read.ptr != field.data() + field.size()) return false;
  }
  return true;
}

// ---- Characters
// ----------------------------------------------------------------------------------

// Text that holds a line end would come back as two lines.
bool can_be_lines(std::span<const double> words) {
  return std::memchr(words.data(), '\n', words.size_bytes()) == nullptr &&
         std::memchr(words.data(), '\r', words.size_bytes()) == nullptr;
}

void put_text(FileOutput& file, std::span<const double> words) {
  for (std::size_t at = 0; at < words.size(); at += TEXT_WORDS) {
    const auto part = words.subspan(at, std::min(TEXT_WORDS, words.size() - at));
    put_line(file, {reinterpret_cast<const char*>(part.data()), part.size_bytes()});
  }
}

bool take_text(LineCursor& cursor, std::span<double> to) {
  for (std::size_t at = 0; at < to.size(); at += TEXT_WORDS) {
    std::string_view line;
    if (!cursor.next(line)) return false;
    const auto part = to.subspan(at, std::min(TEXT_WORDS, to.size() - at));
    if (line.size() > part.size_bytes()) return false;
    auto* const text = reinterpret_cast<char*>(part.data());
    std::memset(text, ' ', part.size_bytes());
    std::memcpy(text, line.data(), line.size());
  }
  return true;
}

// ---- Records of a stored format
// ------------------------------------------------------------------

// All elements go through the format in one pass: one that is left over half-way is gone on with.
bool put_records(const PrintJob& job, const PrintItem& x, std::int64_t length, FileOutput& file) {
  Scratch room(job.ws, length);
  if (!room) return false;
  item_runs(job, x, [&](std::span<const double> run) {
    std::ranges::copy(run, room.take(run.size()).begin());
  });
  std::array<char, RECORD_ROOM> line;
  const auto sink = [&](std::string_view record) {
    put_line(file, record);
    return file.error() == 0 && !stop_requested();
  };
  const RecordEnd end =
      write_values(job.format.view(), room.words(), line.data(), RECORD_ROOM, sink);
  if (end == RecordEnd::columns || end == RecordEnd::no_data) bad_format(job.format.text());
  if (end == RecordEnd::stopped && stop_requested()) mark_failed();
  return end == RecordEnd::done || (end == RecordEnd::stopped && !stop_requested());
}

bool take_records(LineCursor& cursor, const RunFormat& format, std::span<double> to) {
  std::size_t used = 0;
  const auto source = [&](std::string_view& record) { return cursor.next(record); };
  return read_values(format.view(), to, source, used) == RecordEnd::done && used == to.size();
}

}  // namespace

// ---- Exact numbers
// -------------------------------------------------------------------------------

char* put_exact(char* to, double value, bool shortest) {
  char* const end = to + EXACT_ROOM;
  if (value != value) {
    std::memcpy(to, USUAL_NAN.data(), USUAL_NAN.size());
    to += USUAL_NAN.size();
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    if (bits == USUAL_NAN_BITS) return to;
    *to++ = '(';
    for (int shift = 60; shift >= 0; shift -= 4) *to++ = "0123456789abcdef"[(bits >> shift) & 15];
    *to++ = ')';
    return to;
  }
  if (value - value != 0) {
    const std::string_view word = value < 0 ? "-Inf" : "Inf";
    std::memcpy(to, word.data(), word.size());
    return to + word.size();
  }
  if (shortest) return std::to_chars(to, end, value).ptr;
  return std::to_chars(to, end, value, std::chars_format::general, 17).ptr;
}

bool scan_exact(const char*& p, const char* end, double& value) {
  if (scan_number(p, end, value)) return true;
  const char* q = p;
  while (q != end && !ends_number(*q)) ++q;
  std::string_view word(p, static_cast<std::size_t>(q - p));
  if (word == "Inf" || word == "-Inf") {
    value = std::numeric_limits<double>::infinity() * (word[0] == '-' ? -1.0 : 1.0);
  } else if (word.substr(0, USUAL_NAN.size()) == USUAL_NAN) {
    std::uint64_t bits = USUAL_NAN_BITS;
    word.remove_prefix(USUAL_NAN.size());
    if (!word.empty()) {
      if (word.size() != 18 || word.front() != '(' || word.back() != ')') return false;
      const auto read = std::from_chars(word.data() + 1, word.data() + 17, bits, 16);
      if (read.ec != std::errc{} || read.ptr != word.data() + 17) return false;
    }
    std::memcpy(&value, &bits, sizeof value);
    if (value == value) return false;  // bits of a number
  } else {
    return false;
  }
  p = q;
  return true;
}

bool scan_values(LineCursor& cursor, std::span<double> to, bool missing) {
  std::size_t done = 0;
  std::string_view line;
  while (done < to.size()) {
    if (!cursor.next(line)) return false;
    const char* p = line.data();
    const char* const end = p + line.size();
    while (done < to.size()) {
      while (p != end && ends_number(*p)) ++p;
      if (p == end) break;
      if (!scan_exact(p, end, to[done])) {
        const char* word = p;
        while (p != end && !ends_number(*p)) ++p;
        if (!missing || !missing_cell({word, static_cast<std::size_t>(p - word)})) return false;
        to[done] = MACOM.XMISS;
      }
      ++done;
    }
  }
  return true;
}

// ---- READ
// ----------------------------------------------------------------------------------------

GroupFault korvdata_head(LineCursor& cursor, ContainerHead& head) {
  std::string_view line;
  cursor.next(line);  // the magic word
  if (line != "KORVDATA") return {"THE LINE KORVDATA HOLDS MORE THAN THAT"};
  if (!cursor.next(line) || !fixed_integers(line, 4, head.nine)) return {"BAD LINE IN HEADER"};
  if (!cursor.next(line) || line.size() < head.flag.size()) return {"BAD FLAGS IN HEADER"};
  for (std::size_t k = 0; k < head.flag.size(); ++k) {
    const char c = upper(line[k]);
    if (c != 'T' && c != 'F') return {"BAD FLAGS IN HEADER"};
    head.flag[k] = c == 'T';
  }
  if (!cursor.next(line) || !fixed_integers(line, 8, head.word)) return {"BAD LINE IN HEADER"};
  if (!cursor.next(line)) return {"THE FILE ENDS IN A HEADER"};
  head.name = right_trimmed(line.substr(0, NAMEFIELD));
  if (line.size() > NAMEFIELD) head.format = right_trimmed(line.substr(NAMEFIELD, HEADFORMAT));
  if (const auto fault = head_fault(head); !fault.empty()) return {fault};
  // Every element takes a character and every line of text has at most 30 of them, so that a header
  // can't ask for more room than its file makes good.
  const auto left = static_cast<std::int64_t>(cursor.text.size() - cursor.at);
  const bool free = head.flag[H_FREE] && !head.text();
  const std::int64_t most = free ? left / 2 + 1 : (left + 1) * RECORD_ROOM;
  return {head.LENGTH() > most ? "THE FILE IS TOO SHORT FOR THE LENGTH IN THE HEADER" : ""};
}

GroupFault korvdata_elements(LineCursor& cursor, const ContainerHead& head, std::span<double> to) {
  if (head.text()) return {take_text(cursor, to) ? "" : "BAD LINE OF CHARACTERS"};
  if (head.flag[H_FREE]) return {scan_values(cursor, to) ? "" : "A VALUE IS BAD OR MISSING"};
  RunFormat format;
  if (format.parse(head.format) != FormatFault::none) return {"BAD FORMAT IN HEADER"};
  return {take_records(cursor, format, to) ? "" : "A VALUE IS BAD OR MISSING"};
}

// ---- WRITE
// ---------------------------------------------------------------------------------------

bool write_korvdata(const PrintJob& job, FileOutput& file) {
  for (const PrintItem& x : job.items) {
    // 1. The header.
    ContainerHead head;
    if (!item_head(job, x, head)) return false;
    const bool formatted = job.form == PrintForm::format && !head.text();
    if (head.LENGTH() > MOST_IN_I8) {
      fail<"(' ...ERROR..INSUFFICIENT MEMORY TO PROCEED AFTER ', I0, ' OBS')">(MOST_IN_I8);
      return false;
    }
    if (formatted && job.format.text().size() > HEADFORMAT) {
      fail<"(' ...ERROR..THE FORMAT IS LONGER THAN THE ', I0, ' CHARACTERS OF A KORVDATA FILE')">(
          static_cast<int>(HEADFORMAT));
      return false;
    }
    Scratch text(job.ws, head.text() ? head.LENGTH() : 0);
    if (!text) return false;
    if (head.text()) {
      item_runs(job, x, [&](std::span<const double> run) {
        std::ranges::copy(run, text.take(run.size()).begin());
      });
    }
    if (!can_be_lines(text.words())) {
      fail<"(' ...ERROR..', A, ' HOLDS LINE ENDS..WRITE IT WITH THE BINARY OPTION')">(x.name);
      return false;
    }
    head.flag[H_FREE] = !formatted;
    head.flag[H_FORMAT] = formatted;
    const auto& n = head.nine;
    const auto& f = head.flag;
    const auto& w = head.word;
    put_line(file, "KORVDATA");
    put_record<"(9I4)">(file, n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], n[8]);
    put_record<"(6L1)">(file, f[0], f[1], f[2], f[3], f[4], f[5]);
    put_record<"(7I8)">(file, w[0], w[1], w[2], w[3], w[4], w[5], w[6]);
    put_record<"(A8, A120)">(file, head.name, formatted ? job.format.text() : std::string_view{});
    // 2. The elements.
    if (head.text()) {
      put_text(file, text.words());
    } else if (formatted) {
      if (!put_records(job, x, head.LENGTH(), file)) return false;
    } else {
      item_runs(job, x, [&](std::span<const double> run) {
        for (const double value : run) {
          const auto room = file.room(EXACT_ROOM + 1);
          char* const end = put_exact(room.data(), value, false);
          *end = '\n';
          file.advance(static_cast<std::size_t>(end + 1 - room.data()));
        }
      });
    }
    if (stop_requested()) {
      mark_failed();
      return false;
    }
  }
  return true;
}

}  // namespace korvel
