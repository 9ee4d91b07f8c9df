// GENR: the compiler's entry, its failures and its room.

#include "expr/genr.h"

#include "data/containers.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "expr/genr_work.h"

namespace korvel {

GenrWork GENRWORK;

std::int64_t formula_words() {
  const std::int64_t quads = last_temporary() - DATCOM.MAXVAR + 8;
  return 2 * quads + operand_one() + (DATCOM.MAXVAR + std::int64_t{1}) / 2 + 2;
}

Formula carve_formula(std::span<double> words) {
  Formula f;
  const auto quads = static_cast<std::size_t>(last_temporary() - DATCOM.MAXVAR + 8);
  const auto operands = static_cast<std::size_t>(operand_one());
  f.code = {reinterpret_cast<Quad*>(words.data()), quads};
  f.operands = words.subspan(2 * quads, operands);
  f.operands.back() = 1.0;
  f.list = {reinterpret_cast<std::int32_t*>(words.data() + 2 * quads + operands),
            static_cast<std::size_t>(DATCOM.MAXVAR)};
  return f;
}

void set_error_code(int code) { temporary(temporary_place("ERR")) = code; }

bool GENR(Workspace ws, const GenrJob& job, const Formula& formula) {
  GENCOM.MGE = GENCOM.NLAG = GENCOM.NSUM = GENCOM.NTRS = GENCOM.NR = 0;
  GENCOM.LHSROW = GENCOM.LHSCOL = 0;
  GENCOM.LHS = job.listed;
  GENCOM.KCON = DATCOM.MCON;
  GENCOM.ICON = first_constant() - 1;
  OCOM.ONEWV = OCOM.OCALC = false;
  if (OSCOM.ODMMP) say(" GENR");
  if (OSCOM.ODB && !OSCOM.OSCAN && job.coefficient == nullptr) {  // a databank may have the names
    load_formula_names(ws, job.text.substr(static_cast<std::size_t>(job.ISTART)));
    if (OCOM.ODONT) return false;
  }
  StatementScanner scanner(ws, job, formula);
  int ikod = job.IKOD == K_GEN1 ? int{K_GENR} : job.IKOD == K_IF1 ? int{K_IF} : job.IKOD;
  for (;;) {
    if (!scanner.scan(ikod)) return false;
    if (OSCOM.ODMMP) dump_tokens(" INPT", GENRWORK.tokens.data(), scanner.count());
    int error = postfix_statement(scanner.count());
    if (error == 0) error = code_statement(formula, ikod);
    if (error != 0) return scanner.fail_at(error, static_cast<int>(job.text.size()));
    // IF (condition) statement: the statement is compiled behind the condition.
    if (ikod != K_IF || !scanner.more()) break;
    ikod = K_GENR;
  }
  if (GENCOM.ICON + GENCOM.NLAG + GENCOM.NSUM > operand_limit()) {
    return scanner.fail_at(GENR_SPACE, 0);
  }
  if (OSCOM.ODMMP) dump_formula(formula);
  return true;
}

namespace {

void print_failure(int error) {
  switch (error) {
    case GENR_PARENTHESES:
      error_line(" ...ERROR..MISMATCHED PARENTHESES");
      break;
    case GENR_SYNTAX:
      error_line(" ...ERROR..SYNTAX ERROR WHEN GENERATING VARIABLE");
      break;
    case GENR_SPACE:
      error_line(" ...ERROR..DISASTER..GENR SPACE SHORTAGE, RAISE SIZE COMMAND");
      break;
    case GENR_TABLE:
      error_line(" ...ERROR..DISASTER...GENR TABLE FULL, INCREASE PAR");
      break;
    case GENR_LENGTH:
      error_line<"(' ...ERROR..CATASTROPHE...STATEMENT LONGER THAN', I7, ' CHARACTERS')">(LINMAX);
      break;
    case GENR_PARAMETERS:
      error_line(" ...ERROR..DISASTER..NO ROOM FOR THIS MANY PARAMETERS, RAISE SIZE COMMAND");
      break;
    case GENR_VARIABLES:
      error_line<"(' ...ERROR..MAXIMUM NUMBER OF VARIABLES IS ', I0, ' USE SIZE COMMAND')">(
          DATCOM.MAXVAR);
      break;
    default:  // GENR_UNDEFINED has spoken where the name is known
      break;
  }
}

// A line with "$" under the character at which the scan stopped.
void print_marker(int position) {
  Line row;
  row.column((INPCOM.IECHO + position) % LINELEN + 1);
  row.text("$");
  OUTLINE();
}

}  // namespace

bool StatementScanner::fail_at(int error, int position) const {
  if (error == GENR_SYNTAX) print_marker(position);
  print_failure(error);
  set_error_code(error);
  OCOM.ODONT = true;
  OCOM.OSTOP = error >= GENR_SPACE || OSCOM.OBAT;
  const bool quiet = job_.IKOD == K_EQ || job_.IKOD == K_TEST || job_.IKOD == K_RESTRICT;
  if (!quiet && !OSCOM.OTALK) OSCOM.OSCAN = true;
  return false;
}

}  // namespace korvel
