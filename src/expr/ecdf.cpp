#include "expr/ecdf.h"

#include <algorithm>

#include "expr/trans.h"

namespace korvel {
namespace {

// Last observation whose element is in the table.
int range_end(const Source& source) { return std::min(DATCOM.MEND, source.rows); }

void add_at(std::span<std::int32_t> tree, std::size_t rank, std::int32_t amount) {
  for (std::size_t i = rank + 1; i <= tree.size(); i += i & (~i + 1)) tree[i - 1] += amount;
}
std::int64_t sum_below(std::span<const std::int32_t> tree, std::size_t ranks) {
  std::int64_t sum = 0;
  for (std::size_t i = ranks; i > 0; i -= i & (~i + 1)) sum += tree[i - 1];
  return sum;
}

}  // namespace

Ecdf::Sorted* Ecdf::find(Run& run, int place) {
  const Source& source = run.source(place);
  if (source.assigned) return nullptr;
  for (Sorted& s : sorted_) {
    if (s.place == place) return &s;
    if (s.place != 0) continue;
    const std::int64_t n = range_end(source) - DATCOM.MBEG + std::int64_t{1};
    const std::int64_t words = n + n / 2 + 1;
    if (n < 1 || words > std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD) return nullptr;
    s.room.emplace(run.ws, words);
    const double* x = source.base + (DATCOM.MBEG - 1);
    std::span<double> values = s.room->words().first(static_cast<std::size_t>(n));
    // A NaN is at most nothing: it stays out of the order.
    const auto end = std::copy_if(x, x + n, values.begin(), [](double v) { return v == v; });
    s.values = values.first(static_cast<std::size_t>(end - values.begin()));
    std::sort(s.values.begin(), s.values.end());
    s.tree = {reinterpret_cast<std::int32_t*>(s.room->words().data() + n), s.values.size()};
    std::fill(s.tree.begin(), s.tree.end(), 0);
    s.entered = DATCOM.MBEG - 1;
    s.place = place;
    return &s;
  }
  return nullptr;
}

// Brings the tree to the elements MBEG..last.
void Ecdf::enter(Run& run, Sorted& sorted, int last) {
  const double* base = run.source(sorted.place).base;
  const auto put = [&](int obs, std::int32_t amount) {
    const double v = base[obs - 1];
    if (v != v) return;
    const auto at = std::lower_bound(sorted.values.begin(), sorted.values.end(), v);
    add_at(sorted.tree, static_cast<std::size_t>(at - sorted.values.begin()), amount);
  };
  while (sorted.entered < last) put(++sorted.entered, 1);
  while (sorted.entered > last) put(sorted.entered--, -1);
}

std::int64_t Ecdf::count(Run& run, int place, double v, int last) {
  if (v != v) return 0;
  const Source& source = run.source(place);
  Sorted* sorted = find(run, place);
  if (sorted == nullptr) {
    std::int64_t n = 0;
    for (int j = DATCOM.MBEG; j <= last; ++j) n += source.base[j - 1] <= v;
    return n;
  }
  const auto at = std::upper_bound(sorted->values.begin(), sorted->values.end(), v);
  const std::int64_t ranks = at - sorted->values.begin();
  if (last >= range_end(source)) return ranks;
  enter(run, *sorted, last);
  return sum_below(sorted->tree, static_cast<std::size_t>(ranks));
}

std::int64_t count_at_most(Run& run, int place, double v, int last) {
  return run.ecdf->count(run, place, v, last);
}

}  // namespace korvel
