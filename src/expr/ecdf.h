// Empirical distribution values of a stored series: how many elements from MBEG on are at most v.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "engine/workspace.h"

namespace korvel {

struct Run;

// What a run keeps of the series that it has counted in: the values sorted, and a tree that counts
// how many of the first ones are at most a value. Lies in scratch words; a series beyond the
// second, one that the list assigns, and one for which there is no room is counted element by
// element.
class Ecdf {
 public:
  std::int64_t count(Run& run, int place, double v, int last);

 private:
  struct Sorted {
    std::optional<Scratch> room;
    int place = 0;
    std::span<double> values;      // of MBEG .. the end of the range, ascending
    std::span<std::int32_t> tree;  // counts by rank (Fenwick 1994), over what has entered
    int entered = 0;               // last observation that has entered the tree
  };
  Sorted* find(Run& run, int place);
  static void enter(Run& run, Sorted& sorted, int last);

  std::array<Sorted, 2> sorted_;
};

// Elements MBEG..last of the listed variable that are <= v.
std::int64_t count_at_most(Run& run, int place, double v, int last);

}  // namespace korvel
