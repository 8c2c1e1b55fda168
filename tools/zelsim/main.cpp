// zelsim: runs a program for a chip, and tests it.
//
// Exit status: what the program writes to the register of --exit=; else 0 for `sleep`, the end of --until=, or expectations
// that came true; 1 for the limit, or an expectation that didn't; 2 for a fault of the program; 3 if nothing could be run.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

#include <editline/readline.h>
#include <unistd.h>

#include "common/streams.h"
#include "debug.h"
#include "zelobj.h"

enum { GOOD = 0, FAILED = 1, FAULT = 2, UNUSABLE = 3 };

static const char usage_text[] =
    "usage: zelsim [option...] app.hex | app.bin | app.elf | file.obj... library.a...\n"
    "  -mcpu=CHIP                the chip; objects tell it themselves\n"
    "  --chipinfo=FILE           the chip's file, if it isn't to be that of the installation\n"
    "  --start=LABEL             begin there, not at reset; labels may be hexadecimal addresses\n"
    "  --until=LABEL             end there\n"
    "  --until=REGISTER=text     end when this serial unit has sent the text\n"
    "  --limit=N                 cycles after which the run has failed, else 300000000\n"
    "  --exit=REGISTER           a write to it ends the run with that exit status\n"
    "  --strict                  a write to memory that isn't there is a fault\n"
    "  --xinst, --vectors        as the configuration settings, for a program that doesn't have them\n"
    "  --port=PORT=value@cycle   what the pins of a port are held at from then on\n"
    "  --irq=SOURCE@cycle        sets the interrupt flag SOURCEIF\n"
    "  --stdin=REGISTER          standard input goes to this serial unit\n"
    "  --stdout=REGISTER         what this serial unit sends goes to standard output\n"
    "  --script=FILE             inputs and expectations\n"
    "  --debug                   commands from the terminal, \"help\" tells them\n"
    "  --trace[=FILE]            each instruction\n"
    "  --profile[=FILE]          cycles by label and line\n"
    "  --vcd=FILE                waves of ports and registers\n"
    "  --coverage=FILE           which lines were run, in the form of lcov\n"
    "  --quiet                   nothing at the end of a run that succeeds\n"
    "  --ver                     the version\n";

static int told(const char *text) { return fputs(text, stdout) < 0 || fflush(stdout) != 0 ? int{UNUSABLE} : int{GOOD}; }

static int complain(const std::string &text)
{
    fprintf(stderr, "zelsim: error: %s\n", text.c_str());
    return UNUSABLE;
}

// Empty, or why the outputs can't be written where they are to.
static std::string conflict(const settings_t &s)
{
    std::error_code ignored;
    const auto whole = [&](const std::string &path) {
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path, ignored), ignored);
    };
    std::vector<std::string> others = s.inputs;
    others.insert(others.end(), {s.script, s.chip_file});
    for (const std::string &out : {s.trace, s.profile, s.vcd, s.coverage}) {
        for (const std::string &other : others)
            if (!out.empty() && out != "-" && !other.empty() &&
                (whole(out) == whole(other) || std::filesystem::equivalent(out, other, ignored)))
                return "output " + out + " would overwrite " + other;
        others.push_back(out == "-" || out.starts_with("/dev/") ? "" : out);
    }
    return "";
}

// An output: a file, "-" for standard output, null for none.
static bool open_output(const std::string &path, FILE *&f)
{
    f = path.empty() ? nullptr : path == "-" ? stdout : fopen(path.c_str(), "w");
    if (f || path.empty())
        return true;
    complain("can't write " + path + ": " + strerror(errno));
    return false;
}

static bool close_output(const std::string &path, FILE *f)
{
    const bool good = !f || (!ferror(f) && (f == stdout ? fflush(f) : fclose(f)) == 0);
    if (!good)
        complain("can't write " + (path == "-" ? "standard output" : path));
    return good;
}

static bool write_output(const std::string &path, const std::string &text)
{
    FILE *f = nullptr;
    if (!open_output(path, f))
        return false;
    if (f)
        fputs(text.c_str(), f);
    return close_output(path, f);
}

// Tells why the run ended, and gives back the exit status.
static int finish(session_t &x)
{
    const sim_t &s = x.sim;
    const std::vector<std::string> failures = watch_failures(x.watch, x.settings, x.devices, s);
    const std::string place = place_text(x.program, s.pc);
    std::string why;
    int status = GOOD;
    switch (x.at_until ? SIM_RUNS : s.stop) {
    case SIM_SLEEP:
        status = x.until == UINT32_MAX && !x.until_unit ? GOOD : FAILED;
        why = (status == GOOD ? "sleep, on to " : "sleep before the end that `until` names, on to ") + place;
        break;
    case SIM_RUNS:
        why = (!x.at_until       ? "all is as expected, at "
               : s.pc == x.until ? "reached "
                                 : x.settings.until_register + " has sent the text, at ") +
              place;
        break;
    case SIM_EXIT:
        status = x.devices.exit_status;
        why = zo_format("exit status %d, on to ", status) + place;
        break;
    case SIM_LIMIT:
        status = FAILED;
        why = (s.cycles < x.settings.limit ? "an expectation failed, at " : "limit of cycles, at ") + place;
        break;
    default:
        status = FAULT;
        why = s.why + ", behind " + place_text(x.program, s.stopped_at - 2);
        break;
    }
    if (!failures.empty() && status == GOOD)
        status = FAILED;
    for (const std::string &failure : failures)
        fprintf(stderr, "%s\n", failure.c_str());
    for (const devices_serial &u : x.devices.serials)
        if (u.lost)
            fprintf(stderr, "zelsim: warning: %llu bytes written to %s while the unit was off\n",
                    static_cast<unsigned long long>(u.lost), target_sfr_name(*s.target, u.send).c_str());
    if (!x.settings.quiet || status != GOOD)
        fprintf(stderr, "zelsim: %s: %llu steps, %llu cycles\n", why.c_str(), static_cast<unsigned long long>(s.steps),
                static_cast<unsigned long long>(s.cycles));
    return status;
}

// A command for the debugger: edited, with history, on a terminal; else a plain line, which is shown.
static bool read_command(std::string &line)
{
    static const char prompt[] = "(zelsim) ";
    if (!isatty(STDIN_FILENO)) {
        const bool more = static_cast<bool>(std::getline(std::cin, line));
        if (more)
            printf("%s%s\n", prompt, line.c_str());
        return more;
    }
    char *typed = nullptr;
    do
        errno = 0;
    while (!(typed = readline(prompt)) && errno == EINTR);   // Ctrl-C gives up the line
    line = typed ? typed : "";
    if (!line.empty())
        add_history(typed);
    free(typed);
    if (!typed)
        puts("");
    return typed != nullptr;
}

static int simulate(session_t &x)
{
    const settings_t &settings = x.settings;
    if (!open_output(settings.trace, x.observe.trace) || !open_output(settings.vcd, x.observe.vcd))
        return UNUSABLE;
    if (x.settings.debug)
        debug_run(x, read_command);
    else
        session_run(x);
    bool good = close_output(settings.trace, x.observe.trace);
    good &= close_output(settings.vcd, x.observe.vcd);
    good &= settings.profile.empty() || write_output(settings.profile, observe_profile(x.observe, x.program));
    good &= settings.coverage.empty() || write_output(settings.coverage, observe_coverage(x.observe, x.program));
    good &= fflush(stdout) == 0;
    const int status = x.settings.debug ? int{GOOD} : finish(x);
    return good ? status : int{UNUSABLE};
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return UNUSABLE;
    session_t x;
    std::string error = read_settings({argv + 1, argv + argc}, x.settings);
    if (x.settings.help)
        return told(usage_text);
    if (x.settings.version)
        return told("zelsim " ZELLINK_VERSION "\n");
    if (!error.empty())
        return complain(error);
    if (error = conflict(x.settings); !error.empty())
        return complain(error);
    std::error_code ignored;
    const std::string bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const std::vector<std::string> errors =
        load_program({x.settings.inputs, bin, x.settings.chip, x.settings.chip_file}, x.program);
    for (const std::string &text : errors)
        complain(text);
    if (!errors.empty())
        return UNUSABLE;
    error = session_prepare(x);
    return error.empty() ? simulate(x) : complain(error);
}
