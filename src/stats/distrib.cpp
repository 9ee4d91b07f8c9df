// DISTR: the command DISTRIB. For every observation of the listed variables it shows and stores
// density, distribution function and tail, or with INVERSE the critical value.
//   reads SCNCOM list, OPTCOM, the sample; sets MBEG, MEND, $PDF, $CDF, $CRIT, $LLF and the failure
//   flags.
#include "stats/distrib.h"

#include <algorithm>
#include <limits>

#include "data/data.h"
#include "engine/output.h"
#include "stats/stats.h"

namespace korvel {
namespace {

// A listed variable: its values at the working range, or its one value.
bool take_variable(Workspace ws, const ListItem& item, std::span<const double>& values) {
  if (item.lag != 0 || item.group) {
    fail(" ...ERROR..LAGS ARE NOT ALLOWED IN DISTRIB");
    return false;
  }
  if (item.var < 0 && item.var >= -NTEMPS) {
    const double& value = temporary(-item.var - 1);
    if (value == UNSET) {
      fail<"(' ...ERROR..$', A, ' IS NOT CURRENTLY DEFINED')">(NAME(ws, item.var));
      return false;
    }
    values = {&value, 1};
    return true;
  }
  values = elements(ws, item.var);
  if (values.empty() || INFO(ws, item.var).ITYPE >= STRING5) {
    fail<"(' ...ERROR..', A, ' DOES NOT EXIST IN PROPER FORM')">(NAME(ws, item.var));
    return false;
  }
  return true;
}

bool scalar_item(Workspace ws, const ListItem& item) {
  return item.var < 0 || elements(ws, item.var).size() == 1;
}

// The working range and the marks of rows that are left out. Single values have no observation.
bool take_sample(Workspace ws, std::span<ListItem> list, bool scalars) {
  DATCOM.MBEG = std::max(DistOption::integer<"BEG">(), 1);
  DATCOM.MEND = DistOption::integer<"END">();
  if (scalars) {
    DATCOM.MBEG = DATCOM.MEND = 1;
    return true;
  }
  if (DistOption::chosen<"ALL">()) {
    DATCOM.MBEG = 1;
    DATCOM.MEND = -1;  // the length of the shortest
  }
  CKSMPL(ws, list);
  if (OCOM.ODONT) return false;
  if (DATCOM.MEND < DATCOM.MBEG) {
    fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(DATCOM.MBEG, DATCOM.MEND);
    return false;
  }
  return true;
}

// ---- Results -----------------------------------------------------------------------------------

struct Result {
  const NameOption* option = nullptr;
  std::span<double> values;
};

void store(Workspace ws, const Result& result, std::int64_t length, std::int64_t columns) {
  if (result.values.empty() || OCOM.ODONT) return;
  std::string_view name = result.option->typed;
  int column = 0;
  if (const auto colon = name.find(':'); colon != std::string_view::npos && columns == 1) {
    column = static_cast<int>(FSUMS(name.substr(colon + 1)).whole);
    name = name.substr(0, colon);
  }
  const int var = NEWVAR(ws, name,
                         {.ITYPE = columns > 1 ? MATRIX2 : SERIES,
                          .LEN = length * columns,
                          .N2 = static_cast<int>(columns),
                          .column = column});
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  std::copy_n(result.values.begin(), std::min(result.values.size(), to.size()), to.begin());
}

// Results that this form of the command does not have are told, not silently left out.
void warn_of_idle_options(const DistribJob& job, bool single) {
  const bool inverse = DistOption::chosen<"INVERSE">();
  const bool density = has_density(job.law.type);
  const auto idle = [](std::string_view word) {
    warn<"(' ...WARNING..', A, ' IS NOT AVAILABLE HERE AND IS IGNORED')">(word);
  };
  if (!inverse && !DistOption::named<"CRITICAL">().text.empty()) idle("CRITICAL=");
  if (inverse && !DistOption::named<"CDF">().text.empty()) idle("CDF=");
  if (!density && !DistOption::named<"PDF">().text.empty()) idle("PDF=");
  if (!single && DistOption::given<"X">()) idle("X=");
  if ((inverse || !density) && DistOption::chosen<"LLF">() && !DistOption::chosen<"MAX">())
    idle("LLF");
}

}  // namespace

void DISTR(Workspace ws) {
  const Trace trace("DISTR");
  // 1. Options, the distribution and its parameters.
  OPTION_START(DISTOPT.view());
  DistOption::set<"MAX">(OSCOM.OMXX);
  DistOption::set<"DUMP">(OSCOM.ODMMP);
  OPTION_SCAN(ws, DISTOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN || name_lacking(DISTOPT.view())) return;
  const bool from_file = !DistOption::named<"FILE">().text.empty() || DistOption::given<"UNIT">();
  const bool single = SCNCOM.NF == 0 && !from_file && DistOption::given<"X">();
  if (SCNCOM.NF == 0 && !from_file && !single) {
    return say(" COMMAND STRUCTURE: DISTRIB vars / TYPE=name options");
  }
  DistribJob job;
  LawRoom room;
  if (!take_law(ws, job.law, room, job.word)) return;
  if (DistOption::chosen<"INVERSE">() && !has_inverse(job.law.type)) {
    return fail<"(' ...ERROR..INVERSE OPTION NOT AVAILABLE FOR ', A)">(job.word);
  }
  const bool inverse = DistOption::chosen<"INVERSE">();
  if (DistOption::chosen<"MAX">()) DistOption::set<"LLF">(true);
  warn_of_idle_options(job, single);
  if (inverse || !has_density(job.law.type)) DistOption::set<"LLF">(false);
  job.moments = law_moments(job.law);
  job.list = (DistOption::chosen<"LIST">() || DistOption::chosen<"MAX">()) && OCOM.OPUT;

  // 2. The data: a file, the option X, or the list with its sample. BINORMAL takes the columns X,
  // Y and, unless C= gives it, RHO as one table.
  const bool pair = job.law.type == LawType::BINORMAL;
  const std::size_t columns = !pair ? 1 : DistOption::given<"C">() ? 2 : 3;
  RowReader reader(columns);
  const double single_value = DistOption::real<"X">();
  std::span<const double> skip;
  const std::span<ListItem> list = SCNCOM.list();
  if (from_file) {
    const int unit = DistOption::integer<"UNIT">();
    const bool stream = DistOption::named<"FILE">().text.empty() && unit == IOCOM.L5;
    if (!(stream ? reader.read_stream()
                 : reader.read_file(DistOption::named<"FILE">().text.empty() ? unit : 0,
                                    DistOption::named<"FILE">().typed))) {
      return;
    }
    DATCOM.MBEG = 1;
    DATCOM.MEND = static_cast<int>(reader.rows());
  } else if (single) {
    if (pair) {
      return fail(" ...YOU DID NOT SPECIFY THE DISTRIBUTION PARAMETERS PROPERLY");
    }
    DATCOM.MBEG = DATCOM.MEND = 1;
  } else {
    if (pair && list.size() != columns && list.size() != 3) {
      return fail(" ...YOU DID NOT SPECIFY THE DISTRIBUTION PARAMETERS PROPERLY");
    }
    std::span<const double> values;
    for (const ListItem& item : list) {
      if (!take_variable(ws, item, values)) return;
    }
    const bool scalars =
        std::ranges::all_of(list, [&](const ListItem& item) { return scalar_item(ws, item); });
    if (!take_sample(ws, list, scalars)) return;
    if (!scalars && skipping()) skip = skip_vector(ws);
  }

  // 3. Room for the results: a column a table, by observation.
  const std::int64_t tables = from_file || single || pair ? 1 : std::ssize(list);
  job.length = DATCOM.MEND;
  Result pdf{&DistOption::named<"PDF">(), {}};
  Result cdf{&DistOption::named<"CDF">(), {}};
  Result critical{&DistOption::named<"CRITICAL">(), {}};
  const bool want_pdf = !pdf.option->text.empty() && (inverse || has_density(job.law.type));
  const bool want_cdf = !cdf.option->text.empty() && !inverse;
  const bool want_critical = !critical.option->text.empty() && inverse;
  std::int64_t each = 0;
  std::int64_t words = 0;
  const int wanted = int{want_pdf} + int{want_cdf} + int{want_critical};
  if (!checked_product(tables, job.length, each) || !checked_product(each, wanted, words) ||
      !fits32(words + job.length)) {
    ADDCOM.NEED = std::numeric_limits<std::int32_t>::max();
    return NOCORE();
  }
  Scratch results(ws, words + (empirical(job) ? job.length : 0));
  if (!results) return;
  std::ranges::fill(results.words(), MACOM.XMISS);
  const auto column_words = static_cast<std::size_t>(each);
  if (want_pdf) job.PDF = pdf.values = results.take(column_words);
  if (want_cdf) job.CDF = cdf.values = results.take(column_words);
  if (want_critical) job.CRITICAL = critical.values = results.take(column_words);
  if (empirical(job)) job.sorted = results.take(static_cast<std::size_t>(job.length));

  // 4. Heading and rows.
  if (OCOM.OPUT) print_law(job.law, job.moments, job.word);
  const auto offset = static_cast<std::size_t>(DATCOM.MBEG - 1);
  const std::int64_t rows = DATCOM.MEND - DATCOM.MBEG + 1;
  for (std::int64_t t = 0; t < tables; ++t) {
    DistribTable table{.first = DATCOM.MBEG, .rows = rows, .skip = skip};
    if (from_file) {
      table.x = reader.column(0);
      table.y = reader.column(1);
      table.rho = reader.column(2);
    } else if (single) {
      table.x = {&single_value, 1};
    } else {
      // A single value among series serves every row of BINORMAL; alone it is one row.
      const auto part = [&](std::size_t i) {
        std::span<const double> values;
        take_variable(ws, list[i], values);
        return values.subspan(std::min(offset, values.size()));
      };
      table.x = part(static_cast<std::size_t>(t));
      if (pair) {
        table.y = part(1);
        if (list.size() == 3) table.rho = part(2);
      }
      if (tables > 1 && OCOM.OPUT) {
        say<"(' VARIABLE ', A)">(NAME(ws, list[static_cast<std::size_t>(t)].var));
      }
    }
    run_table(job, table, t);
  }

  // 5. The results, then the word on rows that failed.
  store(ws, pdf, job.length, tables);
  store(ws, cdf, job.length, tables);
  store(ws, critical, job.length, tables);
  if (job.failed) mark_failed();
}

}  // namespace korvel
