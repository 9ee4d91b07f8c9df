// Values of parameters: START=, input lines behind the prompts; names of parameters.
#include <cmath>

#include "arima/bj.h"
#include "data/list_numbers.h"
#include "engine/input.h"

namespace korvel {
namespace {

bool refused(BjError code, std::string_view message) {
  fail(message);
  set_error(code);
  return false;
}

bool valid_values(std::span<const double> b) {
  return std::ranges::all_of(b, [](double v) { return std::isfinite(v) && v != MACOM.XMISS; });
}

void prompt(const BjOrders& o, std::string_view title) {
  Line head;
  if (title[0] != ' ') head.column(2);
  head.text(title);
  const auto part = [](int count, std::string_view text) {
    if (count == 0) return;
    Line row;
    row.put<"(I4, A)">(count, text);
  };
  part(o.NARP, " AR VALUES");
  part(o.NMA, " MA VALUES");
  part(o.NSARP, " SEASONAL AR VALUES");
  part(o.NSMA, " SEASONAL MA VALUES");
  if (o.constant) {
    Line row;
    row.put<"(3X, '1 CONSTANT')">();
  }
  Line last;
  last.text(" ENTER PARAMETER VALUES :");
  OUTLINE();
}

// Numbers of one line, up to the end of b. False: something else stands there.
bool take_numbers(std::string_view line, std::span<double> b, std::size_t& have) {
  const char* p = line.data();
  const char* const end = p + line.size();
  for (;;) {
    while (p != end && ends_number(*p)) ++p;
    if (p == end || have == b.size()) return true;
    if (!scan_number(p, end, b[have])) return false;
    ++have;
  }
}

}  // namespace

bool start_vector(Workspace ws, const BjOrders& orders, std::span<double> b, BjError code,
                  std::string_view message) {
  const std::span<const double> from = elements(ws, BJCOM.STARTING);
  if (std::ssize(from) < orders.parameters()) return refused(code, message);
  std::copy_n(from.begin(), b.size(), b.begin());
  return valid_values(b) || refused(code, message);
}

bool read_parameters(const BjOrders& orders, std::string_view title, std::span<double> b,
                     BjError code, std::string_view message) {
  if (OCOM.OPUT || OSCOM.OTALK) prompt(orders, title);
  BJCOM.values_read = true;
  TextInput& stream = command_stream();
  std::size_t have = 0;
  std::string_view line;
  while (have < b.size()) {
    if (!stream.line(line)) return refused(code, message);
    if (take_numbers(line, b, have)) continue;
    // A command, or END: only the latter belongs to the values.
    if (std::string_view word = trimmed(line); word != "END" && word != "end") stream.unread();
    return refused(code, message);
  }
  return valid_values(b) || refused(code, message);
}

ParameterName parameter_name(const BjOrders& o, int i) {
  ParameterName name;
  name.text.fill(' ');
  const auto numbered = [&](std::string_view word, int lag) {
    compose<"(A, '(', I3, ')')">(name.text.data(), 8, 0, word, lag);
    return name;
  };
  if (i < o.NARP) return numbered("AR", i + 1);
  i -= o.NARP;
  if (i < o.NMA) return numbered("MA", i + 1);
  i -= o.NMA;
  if (i < o.NSARP) return numbered("SAR", (i + 1) * o.NSPAN);
  i -= o.NSARP;
  if (i < o.NSMA) return numbered("SMA", (i + 1) * o.NSPAN);
  compose<"(A8)">(name.text.data(), 8, 0, "CONSTANT");
  return name;
}

}  // namespace korvel
