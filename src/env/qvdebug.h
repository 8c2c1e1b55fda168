// qvdebug: the trace of a run, the mode of assertions and the package that a user sends in; all behind --qvdebug=.
//
// Without the option nothing is written, and a traced place costs a load and a branch: trace through the macros, which test
// the flags before they evaluate an argument.
#pragma once

enum : unsigned {
    DEBUG_TRACE = 1,    // the single trace lines, beside ENTER and EXIT
    DEBUG_SDB = 2,      // of other tools
    DEBUG_DWARF = 4,    // of other tools
    DEBUG_ALERTS = 8,   // a copy of every diagnostic line
    DEBUG_ADT = 16,     // usage of the containers
};
extern unsigned debug_flags;   // written by this module only

// Takes the list of --qvdebug=. Only the first counts. A debug file that can't be opened is message 141, which is fatal.
void debug_option(const char *list);
// Whether a debug file is open.
bool debug_active();
// Logs the command line: `argv` behind its first entry, which is the program.
void debug_log_args(int argc, const char *const *argv);
// Ends debug output: packs the debug file, dumps statistics, closes. For every orderly end; a second call does nothing. False,
// after message 461, if something of the debug file got lost.
bool debug_finish();

// A call's begin, with its arguments, and its end, with its result; a null format: none. What comes between is indented.
[[gnu::format(printf, 4, 5)]] void trace_enter(const char *src, int line, const char *func, const char *fmt, ...);
[[gnu::format(printf, 4, 5)]] void trace_exit(const char *src, int line, const char *func, const char *fmt, ...);
// A line, or several. tracef cuts a formatted text at 8191 characters.
[[gnu::format(printf, 3, 4)]] void tracef(const char *src, int line, const char *fmt, ...);
void trace(const char *src, int line, const char *text);

#define TRACE_ENTER(...)                                            \
    do {                                                            \
        if (debug_flags)                                            \
            trace_enter(__FILE__, __LINE__, __func__, __VA_ARGS__); \
    } while (0)
#define TRACE_EXIT(...)                                            \
    do {                                                           \
        if (debug_flags)                                           \
            trace_exit(__FILE__, __LINE__, __func__, __VA_ARGS__); \
    } while (0)
#define TRACEF(...)                                  \
    do {                                             \
        if (debug_flags & DEBUG_TRACE)               \
            tracef(__FILE__, __LINE__, __VA_ARGS__); \
    } while (0)
#define TRACE(text)                          \
    do {                                     \
        if (debug_flags & DEBUG_TRACE)       \
            trace(__FILE__, __LINE__, text); \
    } while (0)
