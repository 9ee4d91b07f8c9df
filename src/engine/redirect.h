// Copies and redirects of the printed lines: SET OUTUNIT, FILE OUTPUT, FILE SCREEN, FILE KEYBOARD.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/text_output.h"

namespace korvel {

// SET OUTUNIT=n: from now on OUTLINE writes to the file of that unit; 0 or 6 is the normal output.
// A unit's file is emptied when it is first printed to; later it is gone on with, until the unit is
// closed. False after a reported failure, and the output stays where it was.
bool redirect_output(int unit);
TextOutput& redirect();  // of LOUT, while that isn't 0
// Closes the listing of a unit; errno of what failed, 0 none.
int close_listing(int unit);

// FILE OUTPUT: the normal output goes to a file, which is emptied; an empty name leads back to the
// output of the start. The lines printed so far stay where they are.
void change_output(std::string_view typed);

// FILE SCREEN: sets OSCR and L86; the lines of the normal output are copied to the file.
void mirror_screen(std::string_view typed);
TextOutput& screen_mirror();
// The copy of the screen that a whole run keeps (RunSettings.log): opened at the start, and gone on
// with behind a RESET. False when its file can't be written.
bool keep_log(bool start);
// FILE KEYBOARD: commands are copied to the file as they were typed; an empty name ends it.
void mirror_keyboard(std::string_view typed);
bool keyboard_copied();
void copy_command(std::string_view line);

// A name that ends in .HTM or .htm turns the output to the web form: its first line.
void begin_web_form(std::string_view name);

// Tells of redirects whose file can take no more and ends them; OUTLINE and the end of the run call
// it.
void check_redirects();
void flush_redirects();
void close_redirects();  // RESET
bool is_redirect(dev_t device, ino_t inode);

// Sends a line of a file or of a child: folded at the line's length, and on a terminal without
// control characters.
void raw_line(std::string_view text);

}  // namespace korvel
