/* The engine's one entry, for C, C++ and whatever can call C (docs/host-protocol.md shows each).
 *
 * KORVELX(code, result, text): code and result are 32-bit integers by reference, text is the host's
 * text (128 characters are looked at, blanks behind). On entry code selects what is done, on return
 * it tells what was done:
 *
 *   -1              probe: *result = 9557, nothing else is touched
 *   -2              text points to a KORVELHOST, which is registered; NULL takes it back.
 *                   *result = 9557 when that is done, else -1 (a version or size that this engine
 *                   doesn't know, no SendMsg) or 0 (a run is in progress)
 *   -3              text holds KEY=value lines (IPAR, IMAX, VPREF, VTEMP, VUSER, VPROC) that are
 *                   kept in KORVELWX.INI beside the library; *result = 0, or errno
 *   29              console run, its screen copied to KORVEL.LOG in the working folder -> 16
 *   166, 167        console run with text as its command tail                          -> 16
 *   327             the same                                                           -> 16
 *   307             run of the registered host, first kind                             -> 30
 *   337             run of the registered host, second kind                            -> 33
 *   other, > 306    no run                                                             -> -7
 *   other, < 307    "Improper KORVEL Ver 11 Installation, Reinstall"; unchanged
 *
 * *result receives the run's exit status (0 when every command ran). A host run without a
 * registered host, and a run that is asked for while another one is in progress, gives -7 and the
 * result 2.
 *
 * The engine is one interpreter with one state: calls must not overlap. Every run begins afresh. A
 * run never ends the host's process, installs no signal handler and, in a host run, leaves standard
 * input, output and error alone. */
#ifndef KORVEL_H
#define KORVEL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KORVEL_HOST_VERSION 1
#define KORVEL_LINE_ROOM 262144 /* characters of a reply to number 1224 */
#define KORVEL_QUERY_ROOM 4096  /* characters of a reply to number 1374 */

/* Values of KORVELHOST.stop. */
#define KORVEL_GO 0
#define KORVEL_STOP_COMMAND 1 /* end the running command at its next safe point; data are kept */
#define KORVEL_STOP_RUN 2     /* end the run: KORVELX returns with the result 143 */

/* What a host registers. The record itself is used, not a copy: it must stay in place until it is
 * taken back. New members will be added behind the last one, with a new version; their size tells
 * an engine how far the record goes.
 *
 * SendMsg is called on the thread that called KORVELX. text holds `length` characters and a NUL
 * behind them; it is the host's to read until SendMsg returns. For numbers that ask (1224, 1374) it
 * is a buffer of KORVEL_LINE_ROOM or KORVEL_QUERY_ROOM characters, blanks behind the question: the
 * host writes its answer there and returns the answer's length. For 1224 a negative value says that
 * there are no more lines. In all other cases the value returned is not looked at. */
typedef struct KORVELHOST {
  int32_t version; /* KORVEL_HOST_VERSION */
  int32_t size;    /* sizeof(KORVELHOST) */
  void* window;    /* handed back in every call of SendMsg */
  int32_t (*SendMsg)(void* window, int32_t number, int32_t length, char* text);
  int32_t stop; /* any thread, or a signal handler of the host, may set it while a run goes on */
  int32_t reserved;
} KORVELHOST;

__attribute__((visibility("default"))) void KORVELX(int32_t* code, int32_t* result,
                                                    const char* text);

#ifdef __cplusplus
}
#endif

#endif
