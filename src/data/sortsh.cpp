// SORTSH: the order of a key column by radix sort, and the columns moved into it.
//
// A row is one 64-bit record: the leading bits of its key, made so that they compare as unsigned
// numbers, above the number of the row. Records are all different, so there is one order only: it
// does not matter how it is found, or by how many threads. Three passes of at most 11 bits (least
// significant digit first: Knuth, The Art of Computer Programming 3, 5.2.5) put the records in
// order of their 33 leading bits that differ; runs that still agree are finished one by one, and
// where the key's last bits had to give way to the row number the keys themselves are asked.

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "data/sort.h"
#include "engine/output.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

using Record = std::uint64_t;

constexpr int DIGIT_BITS = 11;  // 2048 open places: as many as the second-level TLB holds
constexpr int PASSES = 3;
constexpr std::size_t BUCKETS = std::size_t{1} << DIGIT_BITS;
constexpr std::size_t SMALL = 4096;       // below this a comparison sort is faster
constexpr std::size_t INSERTION = 24;     // and below this insertion
constexpr std::size_t LARGE = 1 << 15;    // runs from here on are sorted by digits again
constexpr std::size_t SECTION = 1 << 15;  // least rows of a thread's share
constexpr std::size_t MOST_SECTIONS = 16;

std::size_t sections_of(std::size_t n) {
  return std::clamp<std::size_t>(n / SECTION, 1, MOST_SECTIONS);
}
// Calls body(section, from, to) for equal shares of 0..n.
template <class F>
void in_sections(std::size_t n, std::size_t sections, F&& body) {
  parallel_sections(static_cast<int>(sections), [&](int s) {
    const auto at = static_cast<std::size_t>(s);
    body(at, n * at / sections, n * (at + 1) / sections);
  });
}

// The key as an unsigned number of the same order. NaN comes last in either direction.
struct KeyBits {
  Record flip = 0;  // all ones for a falling order
  Record operator()(double x) const {
    if (x != x) return ~Record{0};
    const auto bits = std::bit_cast<Record>(x + 0.0);  // -0.0 becomes 0.0
    const Record negative = Record{0} - (bits >> 63);
    return (bits ^ (negative | (Record{1} << 63))) ^ flip;
  }
};

struct Sorter {
  std::span<const double> key;
  KeyBits bits;
  int row_bits = 1;
  Record* rec = nullptr;            // the records; they change places with spare after each pass
  Record* spare = nullptr;          // null: sorted in place by comparisons
  std::uint32_t* counts = nullptr;  // BUCKETS for each section

  Record row_mask() const { return (Record{1} << row_bits) - 1; }
  std::size_t row(Record r) const { return static_cast<std::size_t>(r & row_mask()); }
  Record build(const SortRows& rows, std::size_t n) const;
  void sort_range(std::size_t at, std::size_t n, int low, bool whole = false);
  bool digit_pass(std::size_t at, std::size_t n, int shift, int width) const;
  void finish_run(std::size_t at, std::size_t n, int low);
  void finish_tail(std::size_t at, std::size_t n);
  template <class F>
  void for_runs(std::size_t at, std::size_t n, int shift, F&& finish);
};

// Offsets of the kept rows of each section; offset[sections] is their count.
struct Kept {
  std::array<std::size_t, MOST_SECTIONS + 1> offset{};
  std::size_t sections = 1;
};
Kept kept_rows(const SortRows& rows) {
  Kept kept;
  const std::size_t all = rows.last - rows.first;
  kept.sections = sections_of(all);
  if (rows.skip.size() <= rows.first) {
    for (std::size_t s = 0; s <= kept.sections; ++s) kept.offset[s] = all * s / kept.sections;
    return kept;
  }
  in_sections(all, kept.sections, [&](std::size_t s, std::size_t from, std::size_t to) {
    std::size_t count = 0;
    for (std::size_t i = from; i < to; ++i) count += rows.used(rows.first + i) ? 1U : 0U;
    kept.offset[s + 1] = count;
  });
  for (std::size_t s = 0; s < kept.sections; ++s) kept.offset[s + 1] += kept.offset[s];
  return kept;
}

// Calls body(k, row) for every kept row, k counting them.
template <class F>
void for_kept(const SortRows& rows, const Kept& kept, F&& body) {
  in_sections(rows.last - rows.first, kept.sections,
              [&](std::size_t s, std::size_t from, std::size_t to) {
                std::size_t k = kept.offset[s];
                for (std::size_t i = rows.first + from; i < rows.first + to; ++i) {
                  if (rows.used(i)) body(k++, i);
                }
              });
}

// A record a row. Returns the last bits of the keys that differ and had no room in the records.
Record Sorter::build(const SortRows& rows, std::size_t n) const {
  const Kept kept = kept_rows(rows);
  std::array<Record, MOST_SECTIONS> differ{};
  if (n == 0) return 0;
  const Record mask = row_mask();
  std::size_t first = rows.first;
  while (!rows.used(first)) ++first;
  const Record one = bits(key[first]);
  in_sections(rows.last - rows.first, kept.sections,
              [&](std::size_t s, std::size_t from, std::size_t to) {
                std::size_t k = kept.offset[s];
                Record other = 0;
                for (std::size_t i = rows.first + from; i < rows.first + to; ++i) {
                  if (!rows.used(i)) continue;
                  const Record b = bits(key[i]);
                  other |= b ^ one;
                  rec[k++] = (b & ~mask) | i;
                }
                differ[s] = other;
              });
  Record all = 0;
  for (const Record d : differ) all |= d;
  return all & mask;
}

// Stable distribution of n records by `width` bits from `shift` on, into the spare array. False
// when all of them agree in these bits: nothing has moved.
bool Sorter::digit_pass(std::size_t at, std::size_t n, int shift, int width) const {
  const Record* const from = rec + at;
  Record* const to = spare + at;
  const std::size_t buckets = std::size_t{1} << width;
  const Record mask = buckets - 1;
  const std::size_t sections = sections_of(n);
  in_sections(n, sections, [&](std::size_t s, std::size_t begin, std::size_t end) {
    std::uint32_t* const count = counts + s * BUCKETS;
    std::fill_n(count, buckets, 0U);
    for (std::size_t i = begin; i < end; ++i) ++count[(from[i] >> shift) & mask];
  });
  std::uint32_t place = 0;
  for (std::size_t b = 0; b < buckets; ++b) {
    const std::uint32_t before = place;
    for (std::size_t s = 0; s < sections; ++s) {
      std::uint32_t& c = counts[s * BUCKETS + b];
      const std::uint32_t here = c;
      c = place;
      place += here;
    }
    if (place - before == n) return false;
  }
  in_sections(n, sections, [&](std::size_t s, std::size_t begin, std::size_t end) {
    std::uint32_t* const count = counts + s * BUCKETS;
    for (std::size_t i = begin; i < end; ++i) to[count[(from[i] >> shift) & mask]++] = from[i];
  });
  return true;
}

// Calls finish(at, n) for every run of records that agree from bit `shift` on. Long runs are left
// to the calling thread, which may use all threads for each of them.
template <class F>
void Sorter::for_runs(std::size_t at, std::size_t n, int shift, F&& finish) {
  const std::size_t sections = sections_of(n);
  // Shares end where a run ends, so that no thread looks at a run of its neighbour.
  std::array<std::size_t, MOST_SECTIONS + 1> bound{};
  for (std::size_t s = 0; s <= sections; ++s) {
    std::size_t b = at + n * s / sections;
    if (s > 0) b = std::max(b, bound[s - 1]);
    while (b > at && b < at + n && rec[b] >> shift == rec[b - 1] >> shift) ++b;
    bound[s] = b;
  }
  std::array<bool, MOST_SECTIONS> long_runs{};
  const auto scan = [&](std::size_t s, bool wanted_long) {
    const Record* const r = rec;  // finish() leaves the array in place
    for (std::size_t i = bound[s]; i < bound[s + 1];) {
      std::size_t j = i + 1;
      while (j < bound[s + 1] && r[j] >> shift == r[i] >> shift) ++j;
      const bool is_long = j - i >= LARGE;
      if (is_long) long_runs[s] = true;
      if (j - i > 1 && is_long == wanted_long) finish(i, j - i);
      i = j;
    }
  };
  in_sections(sections, sections, [&](std::size_t s, std::size_t, std::size_t) { scan(s, false); });
  for (std::size_t s = 0; s < sections; ++s) {
    if (long_runs[s]) scan(s, true);
  }
}

// A run whose records agree above the digits already sorted.
void Sorter::finish_run(std::size_t at, std::size_t n, int low) {
  Record* const r = rec + at;
  if (n <= INSERTION) {
    for (std::size_t i = 1; i < n; ++i) {
      const Record v = r[i];
      std::size_t j = i;
      for (; j > 0 && r[j - 1] > v; --j) r[j] = r[j - 1];
      r[j] = v;
    }
  } else if (!std::is_sorted(r, r + n)) {
    if (n >= LARGE && spare != nullptr) {
      sort_range(at, n, low);
    } else {
      std::sort(r, r + n);
    }
  }
}

// Sorts n records by their bits from `low` on; those that agree keep their order, which is that of
// the rows. The result lies in rec, which `whole` (all records) allows to have become the other
// array.
void Sorter::sort_range(std::size_t at, std::size_t n, int low, bool whole) {
  if (spare == nullptr || n < SMALL) {
    std::sort(rec + at, rec + at + n);
    return;
  }
  // 1. The bits that differ.
  std::array<Record, MOST_SECTIONS> differ{};
  const std::size_t sections = sections_of(n);
  const Record one = rec[at];
  in_sections(n, sections, [&](std::size_t s, std::size_t from, std::size_t to) {
    Record other = 0;
    for (std::size_t i = at + from; i < at + to; ++i) other |= rec[i] ^ one;
    differ[s] = other;
  });
  Record all = 0;
  for (const Record d : differ) all |= d;
  all = all >> low << low;
  if (all == 0) return;
  const int top = 64 - std::countl_zero(all);
  const int bottom = std::countr_zero(all);
  // 2. The leading ones of them, the last digit first.
  const int passes = std::min(PASSES, (top - bottom + DIGIT_BITS - 1) / DIGIT_BITS);
  const int width = std::min(DIGIT_BITS, (top - bottom + passes - 1) / passes);
  const int shift = std::max(top - passes * width, bottom);
  bool moved = false;
  for (int p = 0; p < passes; ++p) {
    const int here = shift + p * width;
    if (here >= top || !digit_pass(at, n, here, std::min(width, top - here))) continue;
    moved = !moved;
    std::swap(rec, spare);
  }
  if (moved && !whole) {  // a part of a larger array goes back into that
    std::swap(rec, spare);
    std::memcpy(rec + at, spare + at, n * sizeof(Record));
  }
  // 3. Runs that agree in them.
  if (shift > bottom) {
    for_runs(at, n, shift, [&](std::size_t from, std::size_t m) { finish_run(from, m, low); });
  }
}

// A run whose records agree but for the rows: the keys' last bits decide.
void Sorter::finish_tail(std::size_t at, std::size_t n) {
  Record* const r = rec + at;
  const Record one = bits(key[row(r[0])]);
  bool same = true;
  for (std::size_t i = 1; i < n && same; ++i) same = bits(key[row(r[i])]) == one;
  if (same) return;
  const int up = 64 - row_bits;
  const Record front = r[0] & ~row_mask();
  for (std::size_t i = 0; i < n; ++i) r[i] = bits(key[row(r[i])]) << up | (r[i] & row_mask());
  if (n >= LARGE) {
    sort_range(at, n, up);
  } else {
    std::sort(r, r + n);
  }
  // As they were but for their order, so that a later search for runs finds the same ones.
  for (std::size_t i = 0; i < n; ++i) r[i] = front | (r[i] & row_mask());
}

// The records of the kept rows in order; rec[k] & row_mask() is the row of the k-th.
Sorter sorted(std::span<const double> key, const SortRows& rows, std::size_t n, bool descend,
              std::span<double> work) {
  Sorter sorter{.key = key, .bits = {descend ? ~Record{0} : Record{0}}};
  sorter.row_bits = std::max(1, static_cast<int>(std::bit_width(rows.last - 1)));
  sorter.rec = reinterpret_cast<Record*>(work.data());
  if (work.size() >= SORTSH_words(n) && n >= SMALL) {
    sorter.spare = sorter.rec + n;
    sorter.counts = reinterpret_cast<std::uint32_t*>(work.data() + 2 * n);
  }
  const Record tails = sorter.build(rows, n);
  sorter.sort_range(0, n, sorter.row_bits, true);
  if (tails != 0) {
    sorter.for_runs(0, n, sorter.row_bits,
                    [&](std::size_t at, std::size_t m) { sorter.finish_tail(at, m); });
  }
  return sorter;
}

// Moves a column through the spare array: read in the new order, written back in that of the rows.
void move_column(const Sorter& sorter, double* column, const SortRows& rows, const Kept& kept,
                 std::size_t n) {
  auto* const moved = reinterpret_cast<double*>(sorter.spare);
  in_sections(n, sections_of(n), [&](std::size_t, std::size_t from, std::size_t to) {
    for (std::size_t k = from; k < to; ++k) moved[k] = column[sorter.row(sorter.rec[k])];
  });
  for_kept(rows, kept, [&](std::size_t k, std::size_t row) { column[row] = moved[k]; });
}

// Without a spare array: the cycles of the order are followed, one word in hand. Each record holds
// the row to be filled above the row to be read; the top bit marks records that are done.
void follow_cycles(const Sorter& sorter, std::span<double* const> columns, const SortRows& rows,
                   const Kept& kept, std::size_t n) {
  constexpr int HALF = 32;
  constexpr Record LOWER = (Record{1} << HALF) - 1, DONE = Record{1} << 63;
  Record* const r = sorter.rec;
  for_kept(rows, kept, [&](std::size_t k, std::size_t row) {
    r[k] = static_cast<Record>(row) << HALF | sorter.row(r[k]);
  });
  const auto filled = [&](std::size_t k) { return static_cast<std::size_t>(r[k] << 1 >> 33); };
  const bool dense = n == rows.last - rows.first;
  const auto place_of = [&](std::size_t row) {
    if (dense) return row - rows.first;
    std::size_t low = 0, high = n;
    while (high - low > 1) {
      const std::size_t middle = (low + high) / 2;
      (filled(middle) <= row ? low : high) = middle;
    }
    return low;
  };
  for (double* const column : columns) {
    for (std::size_t start = 0; start < n; ++start) {
      if ((r[start] & DONE) != 0) {
        r[start] ^= DONE;  // clear for the next column
        continue;
      }
      const double first = column[filled(start)];
      for (std::size_t k = start;;) {
        const auto source = static_cast<std::size_t>(r[k] & LOWER);
        const std::size_t next = place_of(source);
        column[filled(k)] = next == start ? first : column[source];
        if (k != start) r[k] |= DONE;
        if (next == start) break;
        k = next;
      }
    }
  }
}

}  // namespace

std::size_t count_rows(const SortRows& rows) {
  if (rows.last <= rows.first) return 0;
  const Kept kept = kept_rows(rows);
  return kept.offset[kept.sections];
}

std::size_t SORTSH_words(std::size_t n) {
  return n < SMALL ? 2 * n : 2 * n + sections_of(n) * BUCKETS / 2;
}

int SORTSH(std::span<const double> key, std::span<double* const> columns, const SortRows& rows,
           bool descend, std::span<double> work) {
  const std::size_t n = count_rows(rows);
  if (work.size() < n) return 1;
  if (n < 2) return 0;
  Sorter sorter = sorted(key, rows, n, descend, work);
  const Kept kept = kept_rows(rows);
  if (work.size() < 2 * n) {
    follow_cycles(sorter, columns, rows, kept, n);
    return 0;
  }
  if (sorter.spare == nullptr) sorter.spare = sorter.rec + n;
  for (double* const column : columns) move_column(sorter, column, rows, kept, n);
  return 0;
}

int SORTSH(std::span<double> x, std::span<double> work) {
  double* const column[] = {x.data()};
  return SORTSH(x, column, {.first = 0, .last = x.size()}, false, work);
}

std::span<const std::uint64_t> sort_order(std::span<const double> x, std::span<double> work) {
  if (x.empty() || work.size() < x.size()) return {};
  const Sorter sorter = sorted(x, {.first = 0, .last = x.size()}, x.size(), false, work);
  for (std::size_t k = 0; k < x.size(); ++k) sorter.rec[k] &= sorter.row_mask();
  return {sorter.rec, x.size()};
}

SortStatistics sort_statistics(std::span<const double> x) {
  SortStatistics s;
  while (!x.empty() && std::isnan(x.back())) x = x.first(x.size() - 1);
  if (x.empty()) return s;
  const auto quantile = [&](double p) {
    const double h = static_cast<double>(x.size() - 1) * p;
    const auto i = static_cast<std::size_t>(h);
    const double part = h - static_cast<double>(i);
    if (part == 0.0) return x[i];  // also where the neighbour is infinite
    return part == 0.5 ? 0.5 * x[i] + 0.5 * x[i + 1] : x[i] + part * (x[i + 1] - x[i]);
  };
  s.median = quantile(0.5);
  s.lower = quantile(0.25);
  s.upper = quantile(0.75);
  for (std::size_t i = 0; i < x.size();) {
    std::size_t j = i + 1;
    while (j < x.size() && x[j] == x[i]) ++j;
    if (j - i > s.frequency) {
      s.frequency = j - i;
      s.mode = x[i];
      s.modes = 0;
    }
    if (j - i == s.frequency) ++s.modes;
    i = j;
  }
  return s;
}

void print_sort_statistics(const SortStatistics& s) {
  say<"(' MEDIAN = ', G13.5, ' LOWER 25%= ', G13.5, ' UPPER 25%= ', G13.5,"
      " ' INTERQUARTILE RANGE= ', G13.5)">(s.median, s.lower, s.upper, s.upper - s.lower);
  if (s.frequency < 2) return say(" MODE NOT APPLICABLE");
  say<"(' MODE = ', G13.5, ' WITH ', I0, ' OBSERVATIONS')">(s.mode, s.frequency);
  if (s.modes > 1) warn(" ...WARNING..MULTIPLE MODES - THE MAXIMUM IS REPORTED");
}

}  // namespace korvel
