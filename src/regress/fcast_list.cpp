// The listing of FCAST: observed and predicted values, the error or the index, its plot; with
// standard errors and percentages a column more for each.

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/output.h"
#include "regress/fcast_parts.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

// A number in 9 columns: three decimals, or the digits that fit where these would show nothing.
void put_narrow(Line& row, double v) {
  const double size = std::fabs(v);
  if (v != v)
    row.put<"(9X)">();
  else if (size < 9999.9995 && (size >= 0.0005 || v == 0.0))
    row.put<"(F9.3)">(v);
  else
    row.put<"(G9.2)">(v);
}

template <FixedText NUMBER, FixedText NOTHING>
void put_known(Line& row, double v) {
  if (v == v)
    row.put<NUMBER>(v);
  else
    row.put<NOTHING>();
}

// Probabilities are drawn from 0 to 1, the actual value as X; errors about the middle.
bool has_probabilities(const ForecastModel& model) {
  return model.kind == ForecastKind::Probit || model.kind == ForecastKind::Logit;
}
ListingStrip probability_strip(double y, double P, int width) {
  ListingStrip strip(width);
  const auto put = [&](double v, char mark) {
    if (v >= 0.0 && v <= 1.0)
      strip.text[static_cast<std::size_t>(std::lround((width - 1) * v))] = mark;
  };
  put(y, 'X');
  put(P, '*');
  return strip;
}

void print_heading(const ForecastModel& model, bool se, bool percent) {
  const std::string_view last = has_probabilities(model) ? "INDEX" : "RESIDUAL";
  if (!se && !percent) return print_listing_heading(last, has_probabilities(model));
  Line first, second;
  first.put<"(' ', '    OBS.   OBSERVED     PREDICTED   CALCULATED')">();
  second.put<"(6X, 'NO.', 4X, 'VALUE', 8X, 'VALUE', 7X, A8)">(last);
  first.column(48);
  second.column(48);
  if (se) {
    first.put<"('     STD.')">();
    second.put<"('    ERROR')">();
  }
  if (percent) {
    first.put<"('  PERCENT')">();
    second.put<"('    ERROR')">();
  }
  OUTLINE();
}

}  // namespace

void print_forecasts(Workspace ws, const ForecastModel& model, const ForecastRows& rows,
                     double sigma) {
  const bool se = !rows.se.empty(), percent = FcastOption::chosen<"PERCENT">();
  const bool wide = OSCOM.OWIDE;
  const bool probabilities = has_probabilities(model);
  const int width = se || percent ? (se && percent ? 50 : 60) : (wide ? 60 : 30);
  const std::span<double> ids = OLSCOM.KID > 0 ? elements(ws, OLSCOM.KID) : std::span<double>{};
  print_heading(model, se, percent);
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (stop_requested()) return;
    const auto obs = static_cast<std::int64_t>(rows.obs[r]);
    const double last = probabilities ? rows.index[r] : rows.e(r);
    ListingStrip strip = probabilities   ? probability_strip(rows.y[r], rows.yhat[r], width)
                         : rows.known(r) ? ListingStrip(rows.e(r), sigma, width)
                                         : ListingStrip(width);
    Line row;
    if (!se && !percent && wide) {
      row.put<"(1X, I7, 1X)">(obs);
      if (obs <= std::ssize(ids))
        put_identifier(row, ids[static_cast<std::size_t>(obs - 1)]);
      else
        row.put<"(8X)">();
      put_known<"(G17.5)", "(17X)">(row, rows.y[r]);
      put_known<"(G17.5)", "(17X)">(row, rows.yhat[r]);
      put_known<"(G17.5)", "(17X)">(row, last);
      row.put<"(1X, A)">(strip.view());
    } else {
      row.put<"(1X, I7)">(obs);
      if (!se && !percent) row.put<"(1X)">();
      put_known<"(G13.5)", "(13X)">(row, rows.y[r]);
      put_known<"(G13.5)", "(13X)">(row, rows.yhat[r]);
      put_known<"(G13.5)", "(13X)">(row, last);
      if (se) put_narrow(row, rows.se[r]);
      if (percent) {
        const bool shown = rows.known(r) && rows.y[r] != 0.0;
        put_narrow(row, shown ? 100.0 * rows.e(r) / rows.y[r] : MACOM.XNAN);
      }
      if (!se && !percent) row.put<"(1X)">();
      row.put<"(A)">(strip.view());
    }
    OUTLINE();
  }
}

void print_choice_forecasts(const ForecastModel& model, const ForecastRows& rows,
                            std::span<const double> P) {
  constexpr int A_LINE = 7;  // probabilities
  Line first, second;
  first.put<"(' ', '    OBS.   OBSERVED     PROBABILITIES OF THE CHOICES')">();
  second.put<"(6X, 'NO.', 4X, 'VALUE')">();
  OUTLINE();
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (stop_requested()) return;
    Line row;
    row.put<"(1X, I7, 1X)">(static_cast<std::int64_t>(rows.obs[r]));
    put_known<"(G13.5)", "(13X)">(row, rows.y[r]);
    for (int j = 0; j < model.choices; ++j) {
      if (j > 0 && j % A_LINE == 0) {
        OUTLINE();
        row = Line();
        row.column(23);
      }
      put_known<"(G13.5)", "(13X)">(row, P[static_cast<std::size_t>(j) * rows.n + r]);
    }
    OUTLINE();
  }
}

void print_right_choices(const ForecastRows& rows) {
  double right = 0.0, n = 0.0;
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (!rows.known(r)) continue;
    n += 1.0;
    if (rows.e(r) == 0.0) right += 1.0;
  }
  if (n == 0.0) return say(" ...NOTE..NO VALUE OF THE DEPENDENT VARIABLE IS KNOWN");
  Line first, second;
  first.put<"(' NUMBER OF RIGHT PREDICTIONS =    ', I10)">(static_cast<std::int64_t>(right));
  second.put<"(' PERCENTAGE OF RIGHT PREDICTIONS = ', G13.5)">(100.0 * right / n);
  OUTLINE();
}

}  // namespace korvel
