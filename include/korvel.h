/* The engine's one entry, for C and C++ hosts.
 *
 * KORVELX(code, result, text): code and result are 32-bit integers by reference, text is the host's
 * command line (128 characters are looked at, blanks behind). On entry code selects the setting, on
 * return it tells what was done:
 *
 *   -1              probe: *result = 9557, nothing else is touched
 *   166, 167        console run with text as its command tail      -> 16
 *   327             the same, units 5 and 6 are closed afterwards  -> 16
 *   other, > 306    no run                                         -> -7
 *   other, < 307    "Improper KORVEL Ver 11 Installation, Reinstall"; unchanged
 *
 * *result receives the run's exit status (0 when every command ran). The engine is one interpreter
 * with one state: calls must not overlap. It never ends the host's process. */
#ifndef KORVEL_H
#define KORVEL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

__attribute__((visibility("default"))) void KORVELX(int32_t* code, int32_t* result, const char* text);

#ifdef __cplusplus
}
#endif

#endif
