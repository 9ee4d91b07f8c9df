// Editors: one value to the characters of one field, and back.
//
// Output editors fill exactly w characters at out. Rounding works on the exact binary value, ties
// to even. A value that does not fit fills the field with asterisks; a value that edits to zeros
// has no minus sign; NaN and infinities edit as NaN and Inf, right-justified.
#pragma once

#include <cstdint>
#include <string_view>

namespace korvel {

void edit_integer(char* out, int w, std::int64_t value);
void edit_fixed(char* out, int w, int d, double value);                  // Fw.d
void edit_exponent(char* out, int w, int d, double value, char letter);  // Ew.d, Dw.d
void edit_general(char* out, int w, int d, double value);                // Gw.d
void edit_text(char* out, int w, std::string_view text);  // left-justified, cut or filled up
void edit_logical(char* out, int w, bool value);

// The two fields of long tables, fast. edit_table_value fills 15 characters with G15.7; false, with
// nothing of use in them, for the few values that edit_general has to decide.
bool edit_table_value(char* out, double value);
// The shortest decimal that reads back to the same double, with a point or an exponent, whichever
// is shorter; NaN, Inf, -Inf. Returns the end; needs SHORTEST_ROOM characters.
inline constexpr int SHORTEST_ROOM = 32;
char* edit_shortest(char* out, double value);

// Characters that I0 needs.
int integer_width(std::int64_t value);

// Reads a field under F, E, D or G with d decimals: blanks inside are nothing, an all-blank field
// is 0, without a point the last d digits are decimals, an exponent may stand behind E, D or its
// sign. False when the field is no number.
bool read_real_field(std::string_view field, int d, double& value);

// Character data: one word holds 8 characters, left of which a wider field is blank; of a word that
// is no text a field of asterisks is shown.
void edit_word(char* out, int w, double word);
double read_word_field(std::string_view field);

}  // namespace korvel
