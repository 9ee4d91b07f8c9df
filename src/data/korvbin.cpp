// The binary container KORVBIN: records framed by their byte counts, little-endian.
//
//   record 1  "KORVBIN "
//   record 2  216 bytes: 9 + 6 + 7 integers of 4 bytes (the flags -1 and 0), 128 bytes of text
//   record 3  the count as an 8-byte real, then the elements: 8-byte reals, or 4-byte reals under
//             SBINARY; characters always 8 bytes a word
//
// A variable enters the workspace only after its three frames have been found to match, and from
// there on its elements are copied as they stand: nothing can fail any more.

#include <bit>
#include <cmath>
#include <cstring>

#include "data/container_parts.h"
#include "engine/output.h"

namespace korvel {
namespace {

static_assert(std::endian::native == std::endian::little, "the file is little-endian");

constexpr std::size_t WORD = 4, NINE = 9 * WORD, FLAGS = 6 * WORD, SEVEN = 7 * WORD,
                      TEXT = 32 * WORD;
constexpr std::size_t HEADBYTES = NINE + FLAGS + SEVEN + TEXT;
static_assert(HEADBYTES == 216);
constexpr std::int64_t MOST_BYTES = 2147483647;  // of a record: its frames are 32-bit integers

template <class T>
T number_at(std::string_view bytes, std::size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

// The next record; empty when its frames don't match or the file ends in it.
std::string_view next_record(LineCursor& cursor) {
  const std::string_view rest = cursor.text.substr(cursor.at);
  if (rest.size() < 8) return {};
  const auto n = number_at<std::int32_t>(rest, 0);
  if (n < 1 || static_cast<std::size_t>(n) > rest.size() - 8) return {};
  const auto size = static_cast<std::size_t>(n);
  if (number_at<std::int32_t>(rest, 4 + size) != n) return {};
  cursor.at += size + 8;
  return rest.substr(4, size);
}

void put_frame(FileOutput& file, std::int64_t bytes) {
  const auto n = static_cast<std::int32_t>(bytes);
  file.write(&n, sizeof n);
}

void put_head(FileOutput& file, const ContainerHead& head) {
  std::array<std::int32_t, 6> flags;
  for (std::size_t k = 0; k < flags.size(); ++k) flags[k] = head.flag[k] ? -1 : 0;
  std::array<char, TEXT> text;
  text.fill(' ');
  std::memcpy(text.data(), head.name.data(), head.name.size());
  put_frame(file, MAGICLEN);
  file.write("KORVBIN ");
  put_frame(file, MAGICLEN);
  put_frame(file, HEADBYTES);
  file.write(head.nine.data(), NINE);
  file.write(flags.data(), FLAGS);
  file.write(head.word.data(), SEVEN);
  file.write(text.data(), TEXT);
  put_frame(file, HEADBYTES);
}

// Elements as 4-byte reals. Returns how many finite ones became infinite.
std::int64_t put_singles(FileOutput& file, std::span<const double> run) {
  std::int64_t lost = 0;
  while (!run.empty()) {
    const auto room = file.room(std::size_t{1} << 15);
    const std::size_t n = std::min(room.size() / sizeof(float), run.size());
    for (std::size_t i = 0; i < n; ++i) {
      const auto value = static_cast<float>(run[i]);
      lost += std::isinf(value) && !std::isinf(run[i]) ? 1 : 0;
      std::memcpy(room.data() + i * sizeof value, &value, sizeof value);
    }
    file.advance(n * sizeof(float));
    run = run.subspan(n);
  }
  return lost;
}

}  // namespace

GroupFault korvbin_group(LineCursor& cursor, ContainerHead& head, std::string_view& elements) {
  const std::size_t start = cursor.at;
  if (next_record(cursor) != "KORVBIN ") {
    cursor.at = start;
    return {"NO KORVBIN RECORD"};
  }
  // 1. The header.
  const std::string_view record = next_record(cursor);
  if (record.size() != HEADBYTES) return {"THE HEADER RECORD IS DAMAGED"};
  std::memcpy(head.nine.data(), record.data(), NINE);
  for (std::size_t k = 0; k < head.flag.size(); ++k) {
    head.flag[k] = (number_at<std::int32_t>(record, NINE + 4 * k) & 1) != 0;
  }
  std::memcpy(head.word.data(), record.data() + NINE + FLAGS, SEVEN);
  const std::string_view text = record.substr(NINE + FLAGS + SEVEN);
  head.name = right_trimmed(text.substr(0, KEYLEN));
  head.format = right_trimmed(text.substr(KEYLEN));
  if (const auto fault = head_fault(head); !fault.empty()) return {fault};
  // 2. The data record: as long as the header says.
  const std::size_t before = cursor.at;
  const std::string_view data = next_record(cursor);
  const std::int64_t width = head.flag[H_SINGLE] && !head.text() ? 4 : 8;
  const bool fits = data.size() >= 8 &&
                    static_cast<std::int64_t>(data.size()) == 8 + width * head.LENGTH() &&
                    number_at<double>(data, 0) == static_cast<double>(head.LENGTH());
  if (!fits) {
    cursor.at = before;
    return {"THE DATA RECORD IS CUT OFF OR NOT AS LONG AS ITS HEADER SAYS"};
  }
  elements = data.substr(8);
  return {};
}

bool write_korvbin(const PrintJob& job, FileOutput& file, bool single) {
  for (const PrintItem& x : job.items) {
    ContainerHead head;
    if (!item_head(job, x, head)) return false;
    head.flag[H_FREE] = true;
    head.flag[H_BINARY] = !single;
    head.flag[H_SINGLE] = single;
    const bool narrow = single && !head.text();
    const std::int64_t width = narrow ? 4 : 8;
    const std::int64_t bytes = 8 + width * head.LENGTH();
    if (bytes > MOST_BYTES) {
      fail<"(' ...ERROR..INSUFFICIENT MEMORY TO PROCEED AFTER ', I0, ' OBS')">((MOST_BYTES - 8) /
                                                                               width);
      return false;
    }
    put_head(file, head);
    put_frame(file, bytes);
    const auto count = static_cast<double>(head.LENGTH());
    file.write(&count, sizeof count);
    std::int64_t lost = 0;
    item_runs(job, x, [&](std::span<const double> run) {
      if (narrow) {
        lost += put_singles(file, run);
      } else {
        file.write(run.data(), run.size_bytes());
      }
    });
    put_frame(file, bytes);
    if (lost > 0) {
      warn<"(' ...WARNING..', I0, ' VALUES OF ', A, ' ARE TOO LARGE FOR SINGLE PRECISION')">(
          lost, x.name);
    }
    if (stop_requested()) {
      mark_failed();
      return false;
    }
  }
  return true;
}

}  // namespace korvel
