// Expressions: the compiler from text to code lists, their evaluator, random numbers.
//
//   genc.cpp            GENC: the commands GENR, GEN1, IF, IF1, ENDIF, SKIPIF, DERIVATIVE,
//   INTEGRATE operators.h         the table of operators and functions genr.h, genr*.cpp   GENR:
//   statement text -> tokens -> postfix -> quadruples trans.h, trans*.cpp TRANS: runs a code list
//   over the sample, in blocks or by observation vector_functions.h  EXP, LOG, power, NCDF: one
//   definition for blocks and single values random.cpp          FRAND, FRANDN and the seeding rule
//   kernels/            dense linear algebra
#pragma once

#include <span>

#include "engine/workspace.h"

namespace korvel {

void GENC(Workspace ws);  // all expression commands
// Compiles the expression of the command without running it: only its mistakes matter.
void check_formula(Workspace ws);

// Next uniform deviate in (0,1); a seed other than 0 restarts the generator.
double FRAND(double seed);
// Next standard normal deviate.
double FRANDN(double seed);
// Restarts the generator from SET RANSEED= or the clock unless ORANST is on; sets ORANST. Called
// before every draw of an expression.
void seed_random();
// The next values of either stream, in order.
void fill_uniform(std::span<double> x);
void fill_normal(std::span<double> x);
// The settings RANLEVEL (1 to 6; other values change nothing) and RANSEED; a change makes the next
// draw restart, unless SET RANFIX was given before any draw.
void set_ranlevel(int level);
int ranlevel();
void set_ranseed(int seed);

}  // namespace korvel
