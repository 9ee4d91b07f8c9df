// Variables that receive the results of STAT, PCOMP and INDEX.
#pragma once

#include <span>

#include "data/results.h"
#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

// Makes the variable of a name option (`NAME:n`: column n of a matrix) with the missing code in all
// elements. Empty when the option was not given or after a failure.
std::span<double> result_variable(Workspace ws, const NameOption& option, VarType type,
                                  std::int64_t length, int columns = 1);

// The same, filled with `values`. Numbers that do not exist (NaN, infinite) become the missing
// code.
void store_result(Workspace ws, const NameOption& option, VarType type,
                  std::span<const double> values, int columns = 1);

// A lower triangle by rows, then the names of its columns below: order n, packed.
void print_packed(std::span<const double> a, int order, std::string_view (*name)(const void*, int),
                  const void* names);

// Words of the data area that are free for scratch.
std::int64_t free_words();

}  // namespace korvel
