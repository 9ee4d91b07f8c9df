// The listing of observed and predicted values with its plot of the residuals.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "engine/output.h"
#include "regress/ols_parts.h"

namespace korvel {

void print_listing_heading(std::string_view residual, bool probabilities) {
  Line first, second;
  if (OSCOM.OWIDE) {
    first.put<"(' OBSERVATION           OBSERVED         PREDICTED   ', 3X, 'CALCULATED')">();
    if (probabilities) first.put<"(9X, 'X=ACTUAL   *=PREDICTED')">();
    second.put<"(6X, 'NO.', 17X, 'VALUE', 12X, 'VALUE', 10X, A8)">(residual);
  } else {
    first.put<"(' ', '    OBS.   OBSERVED     PREDICTED   CALCULATED')">();
    second.put<"(6X, 'NO.', 4X, 'VALUE', 8X, 'VALUE', 7X, A8)">(residual);
  }
  OUTLINE();
}

ListingStrip::ListingStrip(int columns) : width(columns) { text.fill(' '); }

ListingStrip::ListingStrip(double e, double sigma, int columns) : ListingStrip(columns) {
  const int middle = width / 2 + 1;
  text[static_cast<std::size_t>(middle - 1)] = 'I';
  const double place = std::trunc(width / 6.0 * e / (sigma > 0.0 ? sigma : 1.0) + middle + 0.5);
  if (place < 1.0)
    text[0] = 'X';
  else if (place > width)
    text[static_cast<std::size_t>(width - 1)] = 'X';
  else if (place >= 1.0)
    text[static_cast<std::size_t>(place) - 1] = '*';
}

// The value of IDVAR as text where its eight bytes are characters, else as a number.
void put_identifier(Line& row, double value) {
  char bytes[8];
  std::memcpy(bytes, &value, sizeof bytes);
  const bool text = std::all_of(bytes, bytes + 8, [](char c) { return c >= ' ' && c <= '~'; });
  if (text)
    row.put<"(A8)">(std::string_view(bytes, 8));
  else if (value == std::trunc(value) && std::fabs(value) < 1e7)
    row.put<"(F8.0)">(value);
  else
    row.put<"(G8.2)">(value);
}

void print_listing(Workspace ws, const Estimate& est) {
  print_listing_heading(est.profile->residual);
  const std::span<double> ids = OLSCOM.KID > 0 ? elements(ws, OLSCOM.KID) : std::span<double>{};
  KeptRows rows(ws, est.blocks);
  while (rows.next()) {
    if (stop_requested()) return;
    const auto t = static_cast<std::size_t>(rows.row);
    const double y = est.observed[t];
    const double e = est.residual[t];
    Line row;
    if (OSCOM.OWIDE) {
      const ListingStrip strip(e, FCOM.SEPLOT, 60);
      row.put<"(1X, I7, 1X)">(rows.obs);
      if (rows.obs <= std::ssize(ids))
        put_identifier(row, ids[static_cast<std::size_t>(rows.obs - 1)]);
      else
        row.put<"(8X)">();
      row.put<"(3G17.5, 1X, A60)">(y, y - e, e, strip.view());
    } else {
      const ListingStrip strip(e, FCOM.SEPLOT, 30);
      row.put<"(1X, I7, 1X, 3G13.5, 1X, A30)">(rows.obs, y, y - e, e, strip.view());
    }
    OUTLINE();
  }
}

}  // namespace korvel
