// alert: every diagnostic of the assembler.
//
// A caller names a message by number. The number's type and text come from the message catalogue, the user's
// overrides and warning level decide whether it is shown, and one line goes to standard error with the current
// source position in front. A fatal message, or one error too many, ends the run from inside the call.
// Calls return 1 if a line was written and 0 if the message was dropped.
#pragma once

#include <cstddef>
#include <cstdint>

// What this module needs of its surroundings, handed in once by run control before anything else is called.
struct alert_services_t {
    const char *(*find_catalogue)();       // path of the message catalogue, or null
    void (*stop)(int status);              // ends the run; must not return
    const void *own_catalogue = nullptr;   // the text that the program is built with, and its bytes
    size_t own_length = 0;
};
void alert_set_services(const alert_services_t *services);   // must outlive the run; without it: no catalogue, and exit()
// Has each finished line, newline included, handed to `log` as well; null ends that.
void alert_set_log(void (*log)(const char *line));
// What a line that is about to be written was made of. `file` is "" and `line` 0 where it shows none.
enum alert_severity_t { ALERT_FATAL, ALERT_ERROR, ALERT_WARNING, ALERT_MESSAGE, ALERT_BARE };   // BARE: alert_print
struct alert_report_t {
    alert_severity_t severity;
    unsigned number;    // 0: none
    const char *text;   // without its number
    const char *file;
    int64_t line;
    const char *whole;   // the line, newline included
    const char *hint;    // of alert_hint; "": none
};
// Asks `show` to write each message in a form of its own; where it returns false, the line is written. Null ends that.
void alert_set_show(bool (*show)(const alert_report_t *report));
[[noreturn]] void alert_stop(int status);   // ends the run through services->stop

// What helps with the numbered message that comes next, shown or not: a limit, what was expected. Only `show` gets it. If that
// of a syntax error begins with a word in quotes, the message is about that word.
[[gnu::format(printf, 1, 2)]] void alert_hint(const char *format, ...);
int alert_msg(unsigned number, ...);      // at the current position
int alert_msg_nl(unsigned number, ...);   // without a line: "Non line specific message"
int alert_once(unsigned number, ...);     // once for this number, file and line
int alert_once_nl(unsigned number, ...);
int alert_once_bare(unsigned number);   // number from a data file: a text that wants arguments is shown as it stands
// Literal texts. kind: its first character, in either case, is the type: 'F' fatal, 'E' error, 'M' message, anything else a
// warning. A kind that is a number is the warning's level.
[[gnu::format(printf, 2, 3)]] int alert_text(const char *kind, const char *format, ...);
[[gnu::format(printf, 3, 4)]] int alert_numbered_text(unsigned number, const char *kind, const char *format, ...);
// A line with no location, number or counting.
[[gnu::format(printf, 1, 2)]] void alert_print(const char *format, ...);

// Null argument: the default format. An environment variable wins over either.
void alert_set_formats(const char *error_format, const char *warning_format, const char *message_format);
unsigned alert_set_emax(unsigned limit);   // returns the previous limit
int alert_set_level(int level);            // returns the previous threshold
void alert_set_werror(int flag);
void alert_set_structured(int flag);
void alert_set_hook(void (*hook)());
void alert_set_location(const char *file, const int64_t *line, const char *const *line_start, const char *const *character);
bool alert_load_file(const char *path);      // --edf=
void alert_disable_list(const char *text);   // --msgdisable=, --disl=
// Shows a warning whatever its level, or hides it. Counts for what is told behind it, as alert_disable_list does.
void alert_choose(unsigned number, bool shown);
bool alert_is_shown(unsigned number);
int alert_exit_status();
