// GENRDF: the rules of differentiation and their application to a code list.

#include "expr/genrdf.h"

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/operators.h"
#include "expr/vector_functions.h"

namespace korvel {
namespace {

constexpr int NO_OPERAND = -999;  // written where an operation has no left operand
constexpr int LONGEST_RULE = 6;   // steps, and so temporaries, of one quadruple

// What an operand of a rule step stands for.
enum Role : std::int8_t {
  NONE = 0,
  A = 1,   // left operand of the quadruple
  B = 2,   // right operand
  R = 3,   // result
  DA = 4,  // derivative of the left operand
  DB = 5,  // derivative of the right operand
  DR = 6,  // derivative of the result: the step that writes it ends the rule
  T1 = 7,  // temporaries of the rule
  T2 = 8,
  T3 = 9,
  T4 = 10,
  T5 = 11,
};

struct RuleStep {
  std::int8_t code = 0;
  Role left = NONE, right = NONE, result = NONE;
};

// One rule for each way in which an operation can depend on the variable.
struct Rules {
  RuleStep left[LONGEST_RULE], right[LONGEST_RULE], both[LONGEST_RULE];
};

constexpr RuleStep COPY_DA{OP_EQUAL, NONE, DA, DR};
constexpr RuleStep COPY_DB{OP_EQUAL, NONE, DB, DR};

constexpr Rules ADD{{COPY_DA}, {COPY_DB}, {{OP_ADD, DA, DB, DR}}};
constexpr Rules SUB{{COPY_DA}, {{OP_MINUS, NONE, DB, DR}}, {{OP_SUB, DA, DB, DR}}};
constexpr Rules MULT{{{OP_MULT, DA, B, DR}},
                     {{OP_MULT, A, DB, DR}},
                     {{OP_MULT, A, DB, T1}, {OP_MULT, DA, B, T2}, {OP_ADD, T1, T2, DR}}};
constexpr Rules DIV{
    {{OP_DIV, DA, B, DR}},
    // (-a db / b) / b: b*b would overflow before the quotient does
    {{OP_MINUS, NONE, A, T1}, {OP_MULT, T1, DB, T2}, {OP_DIV, T2, B, T3}, {OP_DIV, T3, B, DR}},
    {{OP_MULT, DA, B, T1},
     {OP_MULT, A, DB, T2},
     {OP_SUB, T1, T2, T3},
     {OP_MULT, B, B, T4},
     {OP_DIV, T3, T4, DR}}};
constexpr Rules POWER_RULES{// y b / a da
                            {{OP_MULT, R, B, T1}, {OP_DIV, T1, A, T2}, {OP_MULT, T2, DA, DR}},
                            // log(a) db y
                            {{OP_LOG, NONE, A, T1}, {OP_MULT, T1, DB, T2}, {OP_MULT, T2, R, DR}},
                            // y (da b / a + log(a) db)
                            {{OP_MULT, DA, B, T1},
                             {OP_DIV, T1, A, T2},
                             {OP_LOG, NONE, A, T3},
                             {OP_MULT, T3, DB, T4},
                             {OP_ADD, T2, T4, T5},
                             {OP_MULT, R, T5, DR}}};
constexpr Rules COPY{{}, {COPY_DB}, {}};
constexpr Rules MINUS{{}, {{OP_MINUS, NONE, DB, DR}}, {}};
constexpr Rules EXP_RULES{{}, {{OP_MULT, R, DB, DR}}, {}};
constexpr Rules ABS_RULES{{}, {{OP_DIV, B, R, T1}, {OP_MULT, T1, DB, DR}}, {}};
constexpr Rules LOG_RULES{{}, {{OP_DIV, DB, B, DR}}, {}};

// Rules of an operation, null when it has none.
const Rules* rules_of(const Quad& q) {
  switch (q.code) {
    case OP_ADD:
      return &ADD;
    case OP_SUB:
      return &SUB;
    case OP_MULT:
      return &MULT;
    case OP_DIV:
      return &DIV;
    case OP_POWER:
      return &POWER_RULES;
    case OP_EQUAL:  // with a left operand it takes an element of a series
      return q.left <= 0 ? &COPY : nullptr;
    case OP_OPEN:
      return &COPY;
    case OP_MINUS:
      return &MINUS;
    case OP_EXP:
      return &EXP_RULES;
    case OP_ABS:
      return &ABS_RULES;
    case OP_LOG:
      return &LOG_RULES;
    default:
      return nullptr;
  }
}

// Writes a list. In a shared list a step that stands there already, or that only multiplies by one
// or copies, is not written again.
class Writer {
 public:
  Writer(const DerivativeRoom& room, bool shared, std::span<const double> operands)
      : room_(room), operands_(operands), shared_(shared) {
    std::ranges::fill(room.used, 0);
  }

  int count() const { return count_; }
  std::span<Quad> code() const { return room_.code.first(static_cast<std::size_t>(count_)); }

  bool append(const Quad& q) {
    if (static_cast<std::size_t>(count_) >= room_.code.size()) {
      fail(" ...ERROR..INSUFFICIENT MEMORY FOR THIS ");
      say("PROCEDURE...RAISE PAR FIELD");
      return false;
    }
    room_.code[static_cast<std::size_t>(count_++)] = q;
    return true;
  }

  // Operand that holds the derivative of an operand for variable number `which`, 0 none.
  int derivative_of(int operand, int which) const {
    if (operand <= 0) return 0;
    const std::span<DerivativePair> list = pairs(which);
    for (auto i = static_cast<std::size_t>(room_.used[place(which)]); i-- > 0;) {
      if (list[i].operand == operand) return list[i].derivative;
    }
    return 0;
  }
  bool add_pair(int operand, int which, int derivative) {
    const std::span<DerivativePair> list = pairs(which);
    std::int32_t& used = room_.used[place(which)];
    for (DerivativePair& pair : list.first(static_cast<std::size_t>(used))) {
      if (pair.operand != operand) continue;
      pair.derivative = derivative;
      return true;
    }
    if (static_cast<std::size_t>(used) >= list.size()) {
      fail(" ...ERROR..CATASTROPHE..THIS MESSAGE SHOULD NEVER APPEAR");
      return false;
    }
    list[static_cast<std::size_t>(used++)] = {operand, derivative};
    return true;
  }

  // The steps that the dependence of source quadruple q on variable number `which` asks for.
  bool differentiate(const Quad& q, const Rules& rules, int which) {
    const int da = derivative_of(q.left, which);
    const int db = derivative_of(q.right, which);
    if (da == 0 && db == 0) return true;
    if (!room_for_temporaries()) return false;
    const RuleStep* rule = da == 0 ? rules.right : db == 0 ? rules.left : rules.both;
    // y b / a would be 0/0 where a is 0.
    if (q.code == OP_POWER && db == 0 && is_constant_one(q.right)) rule = &COPY_DA;
    int operand[T5 + 1] = {NO_OPERAND, q.left, q.right, q.result, da, db};
    for (;; ++rule) {
      const int result = emit(rule->code, operand[rule->left], operand[rule->right]);
      if (result == 0) return false;
      operand[rule->result] = result;
      if (rule->result == DR) return add_pair(q.result, which, result);
    }
  }

  // Writes one step and returns the operand that holds its result, 0 after a failure.
  int emit(int code, int left, int right) {
    if (shared_) {
      if (const int known = known_result(code, left, right); known != 0) return known;
    }
    return append({code, left, right, GENCOM.KCON + 1}) ? ++GENCOM.KCON : 0;
  }

  // A temporary whose value is wanted when the list has run.
  void mark(int operand) const {
    if (is_temporary(operand)) room_.live[temporary_place_of(operand)] = 1;
  }
  // Takes out every quadruple whose result is neither marked nor read by a later one.
  void drop_dead() {
    for (int i = count_ - 1; i >= 0; --i) {
      Quad& q = room_.code[static_cast<std::size_t>(i)];
      if (room_.live[temporary_place_of(q.result)] != 0) {
        mark(q.left);
        mark(q.right);
      } else {
        q = Quad{};
      }
    }
    const std::span<Quad> all = code();
    const auto kept =
        std::remove_if(all.begin(), all.end(), [](const Quad& q) { return q.code == 0; });
    count_ = static_cast<int>(kept - all.begin());
  }
  void clear_marks() const { std::ranges::fill(room_.live, 0); }

 private:
  static std::size_t place(int which) { return static_cast<std::size_t>(which); }
  std::span<DerivativePair> pairs(int which) const {
    const std::size_t each = room_.pairs.size() / room_.used.size();
    return room_.pairs.subspan(place(which) * each, each);
  }
  static bool is_temporary(int operand) {
    return operand > DATCOM.MCON && operand <= last_temporary();
  }
  static std::size_t temporary_place_of(int operand) {
    return static_cast<std::size_t>(operand - DATCOM.MCON - 1);
  }

  bool is_constant_one(int operand) const {
    return operand >= first_constant() && operand <= std::ssize(operands_) &&
           operands_[static_cast<std::size_t>(operand) - 1] == 1.0;
  }

  static bool room_for_temporaries() {
    const std::int64_t needed = GENCOM.KCON + LONGEST_RULE + std::int64_t{1};
    if (needed * 10 < std::int64_t{16} * DATCOM.MAXVAR) return true;
    fail(" ...ERROR..INSUFFICIENT SPACE..USE SIZE COMMAND");
    return false;
  }

  // The operand that holds what a step would compute, 0 when it has to be written.
  int known_result(int code, int left, int right) const {
    const int one = operand_one();
    if (code == OP_EQUAL) return right;
    if ((code == OP_MULT || code == OP_DIV) && right == one) return left;
    if (code == OP_MULT && left == one) return right;
    for (const Quad& q : Writer::code()) {
      if (q.code == code && q.left == left && q.right == right) return q.result;
    }
    return 0;
  }

  const DerivativeRoom& room_;
  std::span<const double> operands_;
  bool shared_;
  int count_ = 0;
};

void print_list(std::string_view heading, std::span<const Quad> code) {
  Line title;
  title.text(heading);
  Line columns;
  columns.text(" GENRDF:JJX,JJ,KK");
  OUTLINE();
  for (const Quad& q : code) {
    say<"(1X, A4, 3I10)">(operator_row(q.code).dump, q.left, q.right, q.result);
  }
}

// The quadruples of a list up to its first END.
std::span<const Quad> statement(std::span<const Quad> source) {
  const auto end = std::ranges::find(source, static_cast<std::int32_t>(OP_END), &Quad::code);
  return source.first(static_cast<std::size_t>(end - source.begin()));
}

// Copies the quadruple and differentiates it for all variables.
bool take_quad(Writer& writer, const Quad& q, int variables) {
  const Rules* rules = rules_of(q);
  if (rules == nullptr) {
    fail(" ...ERROR..ILLEGAL FUNCTION IN AN EQ STATEMENTS");
    return false;
  }
  if (!writer.append(q)) return false;
  for (int which = 0; which < variables; ++which) {
    if (!writer.differentiate(q, *rules, which)) return false;
  }
  return true;
}

}  // namespace

std::int64_t DerivativeRoom::words(int variables) {
  const std::int64_t quads = last_temporary() - DATCOM.MAXVAR + std::int64_t{8};
  return 2 * quads + (quads + 1) * variables + (variables + quads) / 2 + 2;
}

DerivativeRoom DerivativeRoom::carve(std::span<double> words, int variables) {
  const auto quads = static_cast<std::size_t>(last_temporary() - DATCOM.MAXVAR + 8);
  const auto n = static_cast<std::size_t>(variables);
  DerivativeRoom room;
  room.code = {reinterpret_cast<Quad*>(words.data()), quads};
  words = words.subspan(2 * quads);
  room.pairs = {reinterpret_cast<DerivativePair*>(words.data()), (quads + 1) * n};
  words = words.subspan((quads + 1) * n);
  room.used = {reinterpret_cast<std::int32_t*>(words.data()), n};
  room.live = {room.used.data() + n, quads};
  return room;
}

int GENRDF(std::span<const Quad> source, int variable, const DerivativeRoom& room,
           std::span<const double> operands) {
  const Trace trace("GENRDF");
  // 1. Each quadruple, and behind it the steps of its rule.
  Writer writer(room, false, operands);
  if (!writer.add_pair(variable, 0, operand_one())) return 0;
  for (const Quad& q : statement(source)) {
    if (!take_quad(writer, q, 1)) return 0;
  }
  // 2. The derivative stands in the last quadruple; without one it is v - v.
  int derivative = 0;
  if (writer.count() > 0) derivative = writer.derivative_of(statement(source).back().result, 0);
  if (derivative == 0) {
    derivative = writer.emit(OP_SUB, variable, variable);
    if (derivative == 0) return 0;
  }
  if (OSCOM.ODMMP) print_list(" ..LONG DERIVATIVE CODE", writer.code());
  // 3. What nobody reads goes.
  writer.clear_marks();
  writer.mark(derivative);
  writer.drop_dead();
  if (OSCOM.ODMMP) print_list(" ..SHORTEND LISTING", writer.code());
  return writer.count();
}

GradientList gradient_list(std::span<const Quad> source, std::span<const std::int32_t> variables,
                           const DerivativeRoom& room, std::span<std::int32_t> derivative,
                           std::span<const double> operands) {
  const Trace trace("GENRDF");
  const int n = static_cast<int>(variables.size());
  Writer writer(room, true, operands);
  for (int which = 0; which < n; ++which) {
    if (!writer.add_pair(variables[static_cast<std::size_t>(which)], which, operand_one())) {
      return {};
    }
  }
  const std::span<const Quad> list = statement(source);
  if (list.empty()) return {};
  for (const Quad& q : list) {
    if (!take_quad(writer, q, n)) return {};
  }
  const int value = list.back().result;
  writer.clear_marks();
  writer.mark(value);
  for (int which = 0; which < n; ++which) {
    const int operand = writer.derivative_of(value, which);
    derivative[static_cast<std::size_t>(which)] = operand;
    writer.mark(operand);
  }
  if (OSCOM.ODMMP) print_list(" ..LONG DERIVATIVE CODE", writer.code());
  writer.drop_dead();
  if (OSCOM.ODMMP) print_list(" ..SHORTEND LISTING", writer.code());
  return {.count = writer.count(), .value = value};
}

PointValue run_point(std::span<const Quad> code, std::span<double> operands) {
  PointValue point;
  const auto at = [&](int k) -> double& { return operands[static_cast<std::size_t>(k) - 1]; };
  const auto illegal = [&](int op) {
    if (point.fault == 0) point.fault = op;
    return 0.0;
  };
  for (const Quad& q : code) {
    if (q.code == OP_END) break;
    const double a = q.left > 0 ? at(q.left) : 0.0;
    const double b = at(q.right);
    double r = 0.0;
    switch (q.code) {
      case OP_ADD:
        r = a + b;
        break;
      case OP_SUB:
        r = a - b;
        break;
      case OP_MULT:
        r = a * b;
        break;
      case OP_DIV:
        r = a == 0.0 ? 0.0 : b == 0.0 ? illegal(OP_DIV) : a / b;
        break;
      case OP_POWER: {
        PowerFault fault;
        r = POWER(a, b, fault);
        if (fault != PowerFault::none) r = illegal(OP_POWER);
        break;
      }
      case OP_EQUAL:
        r = q.left > 0 ? illegal(OP_EQUAL) : b;
        break;
      case OP_MINUS:
        r = -b;
        break;
      case OP_EXP:
        r = EXP(std::min(b, MACOM.EXLIM));
        break;
      case OP_ABS:
        r = std::fabs(b);
        break;
      case OP_LOG:
        r = b <= 0.0 ? illegal(OP_LOG) : LOG(b);
        break;
      default:
        r = illegal(q.code);
        break;
    }
    at(q.result) = r;
    point.value = r;
  }
  return point;
}

}  // namespace korvel
