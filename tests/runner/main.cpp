// runcases: runs case files, each a small text that says what to run and what must come of it.
//
// A case file is a title and a list of sections; tests/README.md describes them. The runner takes the sections in order:
// those that prepare something act at once, in a fresh temporary directory; a `run` starts the program; those that expect
// something look at what the last run left. A case fails with everything that is wrong about it, not only with the first
// thing. What a run says itself (exit status, standard error) and what the case doesn't (no output) is put in as sections.
//
// Input and output of a program are temporary files, so that nothing blocks and the limit on files is one on output too.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/streams.h"

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

enum { CONTEXT = 3, SHOWN_LINES = 200, OUTPUT_MAX = 64 << 20, RUN_SECONDS = 20 };

static struct {
    std::string bin;
    bool keep;
} opt;

// ---- text ----

static strings split_lines(const std::string &text)   // the last line need not end in a newline
{
    strings lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

static std::string join_lines(const strings &lines)
{
    std::string text;
    for (const std::string &l : lines)
        text += l + "\n";
    return text;
}

static strings split_words(const std::string &text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

static std::string fold(const std::string &line)   // no blanks at the ends, one for several
{
    std::string out;
    for (const std::string &w : split_words(line))
        out += (out.empty() ? "" : " ") + w;
    return out;
}

static bool starts(const std::string &text, const char *front) { return text.compare(0, strlen(front), front) == 0; }

static std::string replace_all(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// Appends what the escapes stand for; false if there is one that it doesn't know.
static bool unescape(const std::string &text, std::string &out)
{
    static const char from[] = "nrtfv\\", to[] = "\n\r\t\f\v\\";
    for (size_t i = 0; i < text.size(); i++) {
        unsigned byte;
        const char *known = text[i] == '\\' && i + 1 < text.size() ? strchr(from, text[i + 1]) : nullptr;
        if (text[i] != '\\')
            out += text[i];
        else if (known)
            out += to[known - from], i++;
        else if (i + 3 < text.size() && sscanf(text.c_str() + i + 1, "x%2x", &byte) == 1)
            out += static_cast<char>(byte), i += 3;
        else
            return false;
    }
    return true;
}

// Lines for a report, bytes that can't be shown as \xHH.
static std::string show(const strings &lines, size_t from, size_t to, char mark)
{
    std::string out;
    to = std::min(to, lines.size());
    for (size_t i = from; i < to; i++) {
        if (i - from == SHOWN_LINES)
            return out + "     ... " + std::to_string(to - i) + " lines more\n";
        out += std::string("    ") + mark;
        for (char c : lines[i]) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(c));
            out += (c < ' ' && c != '\t') || c > '~' ? hex : std::string(1, c);
        }
        out += "\n";
    }
    return out;
}

static std::string excerpt(const std::string &text) { return show(split_lines(text), 0, std::string::npos, ' '); }

// All from the first line that differs to the last one, with a few lines around it.
static std::string diff(const strings &a, const strings &b)
{
    size_t head = 0, tail = 0, least = std::min(a.size(), b.size());
    for (; head < least && a[head] == b[head]; head++) {
    }
    for (; tail < least - head && a[a.size() - 1 - tail] == b[b.size() - 1 - tail]; tail++) {
    }
    return "    @@ line " + std::to_string(head + 1) + " @@\n" + show(a, head - std::min<size_t>(head, CONTEXT), head, ' ') +
           show(a, head, a.size() - tail, '-') + show(b, head, b.size() - tail, '+') +
           show(a, a.size() - tail, a.size() - tail + CONTEXT, ' ');
}

// ---- running a program ----

struct outcome_t {
    std::string out, err;
    int status = 0;        // exit status
    std::string failure;   // timeout, signal and the like; else empty
};

static std::string take_file(FILE *f)   // what was written to it; closes it
{
    std::string text(static_cast<size_t>(std::max(0l, (fseek(f, 0, SEEK_END), ftell(f)))), '\0');
    rewind(f);
    text.resize(fread(text.data(), 1, text.size(), f));
    fclose(f);
    return text;
}

static outcome_t run_program(const strings &words, const strings &env, const std::string &dir, const std::string &input)
{
    outcome_t o;
    auto pointers = [](const strings &list) {
        std::vector<char *> all(list.size() + 1);
        std::transform(list.begin(), list.end(), all.begin(), [](auto &w) { return const_cast<char *>(w.c_str()); });
        return all;
    };
    std::vector<char *> argv = pointers(words), envp = pointers(env);
    FILE *files[3] = {tmpfile(), tmpfile(), tmpfile()};   // standard input, output, errors
    if (!files[0] || !files[1] || !files[2])
        return {"", "", -1, std::string("can't make temporary files: ") + strerror(errno)};
    fwrite(input.data(), 1, input.size(), files[0]);
    rewind(files[0]);
    pid_t pid = fork();
    if (pid == 0) {
        rlimit most = {OUTPUT_MAX, OUTPUT_MAX};
        setrlimit(RLIMIT_FSIZE, &most);
        setpgid(0, 0);
        for (int i = 0; i < 3; i++)
            dup2(fileno(files[i]), i);
        if (chdir(dir.c_str()) == 0)
            execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(RUN_SECONDS);
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            o.failure = "took too long";
            kill(-pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        usleep(500);
    }
    fclose(files[0]);
    o.out = take_file(files[1]);
    o.err = take_file(files[2]);
    o.status = WEXITSTATUS(status);
    if (o.failure.empty() && WIFSIGNALED(status))
        o.failure = std::string("died by signal: ") + strsignal(WTERMSIG(status));
    else if (pid < 0 || o.status == 127)
        o.failure = "can't run " + words[0];
    return o;
}

// ---- case files ----

struct section_t {
    std::string head;   // the line, without `--- `
    strings body;       // without blank lines at the end
    size_t line = 0;    // in the file
    std::string kind;   // first word of the head, without -has or -not
    std::string rest;   // what is behind it
    strings words;      // of the rest
    bool has = false, has_not = false;
};

struct case_t {
    std::string path, title, dir, report;
    std::vector<section_t> sections;
    strings env;
    std::string input;   // for the next run
};

static void fail(case_t &c, const section_t &s, const std::string &what, const std::string &detail = {})
{
    c.report += "  line " + std::to_string(s.line) + ", " + s.head + ": " + what + "\n" + detail;
}

static void set_head(section_t &s, const std::string &head)
{
    s.head = head;
    size_t end = std::min(head.find(' '), head.size());
    s.kind = head.substr(0, end);
    s.rest = end < head.size() ? head.substr(end + 1) : "";
    s.words = split_words(s.rest);
    std::string suffix = s.kind.substr(std::max<size_t>(end, 4) - 4);
    s.has = suffix == "-has";
    s.has_not = suffix == "-not";
    if (s.has || s.has_not)
        s.kind.resize(end - 4);
}

static bool has_option(const section_t &s, const char *word)
{
    return std::find(s.words.begin(), s.words.end(), word) != s.words.end();
}

static bool read_file(const std::string &path, std::string &text)
{
    std::error_code ignored;
    FILE *f = fs::is_directory(path, ignored) ? nullptr : fopen(path.c_str(), "rb");
    if (f)
        text = take_file(f);
    return f;
}

static bool load_case(case_t &c)
{
    std::string text;
    if (!read_file(c.path, text))
        return c.report = "  can't be read\n", false;
    strings lines = split_lines(text);
    for (size_t i = 0; i < lines.size(); i++) {
        if (starts(lines[i], "--- ")) {
            c.sections.emplace_back();
            c.sections.back().line = i + 1;
            set_head(c.sections.back(), lines[i].substr(4));
        } else if (!c.sections.empty()) {
            c.sections.back().body.push_back(lines[i]);
        } else if (!starts(lines[i], "#")) {
            return c.report = "  doesn't begin with a line that says, behind `# `, what it is for\n", false;
        } else {
            c.title += (i ? "\n" : "") + lines[i];   // one line or several
        }
    }
    for (section_t &s : c.sections)
        while (!s.body.empty() && s.body.back().empty())
            s.body.pop_back();
    return true;
}

// ---- sections that prepare ----

static void make_file(case_t &c, const section_t &s, const fs::path &path)
{
    std::string once, text;
    if (!has_option(s, "bytes"))
        once = join_lines(s.body);
    else if (!std::all_of(s.body.begin(), s.body.end(), [&](const std::string &l) { return unescape(l, once); }))
        return fail(c, s, "unknown escape");
    bool gen = s.words.size() > 1 && s.words[s.words.size() - 2] == "gen";
    unsigned long count = gen ? strtoul(s.words.back().c_str(), nullptr, 10) : 1;
    for (unsigned long i = 0; i < count; i++)
        text += gen ? replace_all(once, "%d", std::to_string(i)) : once;
    std::error_code ignored;
    fs::create_directories(path.parent_path(), ignored);
    std::ofstream f(path, s.kind == "append" ? std::ios::binary | std::ios::app : std::ios::binary);
    f << text;
    if (!f.flush())
        fail(c, s, "can't write the file");
}

static void prepare(case_t &c, const section_t &s)
{
    std::error_code error;
    if (s.kind == "stdin")
        c.input = join_lines(s.body);
    else if (s.kind == "env")
        c.env.insert(c.env.begin(), s.rest);   // the first of a name counts
    else if (s.kind != "file" && s.kind != "append" && s.kind != "dir")
        fail(c, s, "unknown section");
    else if (s.words.empty())
        fail(c, s, "no name");
    else if (s.kind == "dir")
        fs::create_directories(c.dir + "/" + s.words[0], error);
    else
        make_file(c, s, c.dir + "/" + s.words[0]);
    if (error)
        fail(c, s, error.message());
}

// ---- sections that expect ----

static bool expects(const section_t &s)
{
    static const strings kinds = {"exit", "absent", "stderr", "stdout", "text", "object"};
    return std::find(kinds.begin(), kinds.end(), s.kind) != kinds.end();
}

// What an object file's sections are about: the output of zelobj. False, and told, if it has a complaint.
static bool object_text(case_t &c, const section_t &s, std::string &text)
{
    std::string zelobj = opt.bin + "/zelobj";
    strings words = {zelobj, s.words[0]};
    std::copy_if(s.words.begin() + 1, s.words.end(), std::inserter(words, words.begin() + 1),
                 [](const std::string &w) { return starts(w, "--"); });
    outcome_t print = run_program(words, c.env, c.dir, ""), verify;
    if (!has_option(s, "noverify"))
        verify = run_program({zelobj, "--verify", s.words[0]}, c.env, c.dir, "");
    text = print.out;
    if (print.failure.empty() && verify.failure.empty() && !verify.status)
        return true;
    return fail(c, s, "zelobj complains", excerpt(print.failure + verify.failure + verify.err)), false;
}

static void compare(case_t &c, const section_t &s, const std::string &actual)
{
    strings lines = split_lines(actual);
    bool loose = s.has || s.has_not;
    if (loose && s.body.empty())
        return fail(c, s, "no lines");
    auto at = lines.begin();
    for (size_t i = 0; loose && i < s.body.size(); i++) {
        std::string want = fold(s.body[i]);
        at = std::find_if(s.has ? at : lines.begin(), lines.end(), [&](const std::string &l) { return fold(l) == want; });
        if (s.has && at == lines.end())
            return fail(c, s, "missing, or not in this order: " + want, excerpt(actual));
        if (s.has_not && at != lines.end())
            fail(c, s, "there is a line " + want);
        at += s.has;
    }
    if (loose || actual == join_lines(s.body))
        return;
    if (actual != join_lines(lines))
        lines.push_back("\\ no newline at the end");
    fail(c, s, "- expected, + found", diff(s.body, lines));
}

// What came out, with the bin directory and the build's number, which differ from build to build, shown by name.
static std::string named(const std::string &text)
{
    std::string shown = replace_all(text, opt.bin, "${BIN}");
    const std::string_view word = " build ";
    for (size_t at = 0; (at = shown.find(word, at)) != std::string::npos;)
        if (at += word.size(); shown.find_first_not_of("0123456789", at) == at + 14)
            shown.replace(at, 14, "${BUILD}");
    return shown;
}

static void expect(case_t &c, const section_t &s, const outcome_t &o)
{
    std::string path = s.words.empty() ? "" : c.dir + "/" + s.words[0], actual;
    std::string status = std::to_string(o.status);
    std::error_code ignored;
    if (s.kind == "exit" && s.rest != status)
        fail(c, s, "exit status " + status, excerpt(o.err));
    else if (s.kind == "stderr" || s.kind == "stdout")
        compare(c, s, named(s.kind == "stderr" ? o.err : o.out));
    else if (path.empty() && s.kind != "exit")
        fail(c, s, "no name");
    else if (s.kind == "absent" && fs::exists(path, ignored))
        fail(c, s, "the file exists");
    else if (s.kind == "text" && !read_file(path, actual))
        fail(c, s, "can't be read");
    else if (s.kind == "text" || (s.kind == "object" && object_text(c, s, actual)))
        compare(c, s, named(actual));
}

// ---- a case ----

static bool runs(const section_t &s) { return s.kind == "run" || starts(s.kind, "fails"); }

// Runs section i and puts in, behind it, what is expected of it without a section of its own.
static outcome_t run_section(case_t &c, size_t i)
{
    const section_t run = c.sections[i];
    strings words = run.words;
    const bool shell = starts(run.rest, "shell ");
    if (words.size() < 2 || words[0] != "tool")
        words.insert(words.begin(), {"", "aszel8"});
    words.erase(words.begin());
    words[0] = opt.bin + "/" + words[0];
    if (shell)
        words = {"/bin/sh", "-c", "PATH=" + opt.bin + ":$PATH; " + run.rest.substr(6)};
    outcome_t o = run_program(words, c.env, c.dir, c.input);
    c.input.clear();
    if (!o.failure.empty())
        fail(c, run, o.failure, excerpt(o.err));
    size_t at = i + 1;
    const std::string status = run.kind == "run" ? "0" : run.kind == "fails" ? "1" : run.kind.substr(strlen("fails:"));
    for (const std::string &head : {"exit " + status, std::string("stdout"), std::string("stderr")}) {
        section_t s;
        set_head(s, head);
        s.line = run.line;
        s.body = s.kind == "stderr" ? run.body : strings();
        size_t k = at;
        for (; k < c.sections.size() && expects(c.sections[k]) && c.sections[k].kind != s.kind; k++) {
        }
        if (k == c.sections.size() || !expects(c.sections[k]) || !s.body.empty())
            c.sections.insert(c.sections.begin() + static_cast<ptrdiff_t>(at++), s);
    }
    return o;
}

static strings base_env(const std::string &dir)
{
    strings env = {"HOME=" + dir, "LC_ALL=C", "TZ=UTC"};
    // A finding of a sanitizer must not look like an ordinary failure of the program.
    for (std::string name : {"PATH", "LD_LIBRARY_PATH", "LLVM_PROFILE_FILE", "ASAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const char *value = getenv(name.c_str()), *more = name.back() == 'S' ? ":abort_on_error=1:print_stacktrace=1" : "";
        if (value || *more)
            env.push_back(name + "=" + (value ? value : "") + more);
    }
    return env;
}

static void run_case(case_t &c)
{
    if (!load_case(c))
        return;
    c.dir = (fs::canonical(fs::temp_directory_path()) / "runcases-XXXXXX").string();
    if (!mkdtemp(c.dir.data()))
        return void(c.report = "  can't make a directory\n");
    c.env = base_env(c.dir);
    outcome_t o;
    bool current = false;   // whether there is a run that expectations are about
    for (size_t i = 0; i < c.sections.size(); i++) {
        const section_t s = c.sections[i];
        if (runs(s)) {
            o = run_section(c, i);
            current = true;
        } else if (!expects(s)) {
            prepare(c, s);
            current = false;
        } else if (!current) {
            fail(c, s, "an expectation that isn't behind a run");
        } else if (o.failure.empty()) {
            expect(c, s, o);
        }
    }
    if (!current)
        c.report += "  ends without a run\n";
    std::error_code ignored;
    if (opt.keep)
        printf("%s: %s\n", c.path.c_str(), c.dir.c_str());
    else
        fs::remove_all(c.dir, ignored);
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    strings paths;
    std::string bin;
    std::error_code error;
    for (int i = 1; i < argc; i++) {
        std::string word = argv[i];
        if (word == "--bin" && i + 1 < argc)
            bin = argv[++i];
        else if (word == "--keep")
            opt.keep = true;
        else if (!fs::is_directory(word, error))
            paths.push_back(word);
        else
            for (const fs::directory_entry &e : fs::recursive_directory_iterator(word))
                if (e.path().extension() == ".txt")
                    paths.push_back(e.path().string());
    }
    opt.bin = fs::canonical(bin, error).string();
    if (bin.empty() || error || paths.empty()) {
        fputs("usage: runcases --bin DIR [--keep] FILE-OR-DIR...\n", stderr);
        return 2;
    }
    std::sort(paths.begin(), paths.end());
    size_t failed = 0;
    for (const std::string &path : paths) {
        case_t c;
        c.path = path;
        run_case(c);
        failed += !c.report.empty();
        if (!c.report.empty())
            printf("FAILED %s\n%s\n%s  alone: %s --bin %s %s\n\n", path.c_str(), c.title.c_str(), c.report.c_str(), argv[0],
                   bin.c_str(), path.c_str());
    }
    printf("%zu passed, %zu failed\n", paths.size() - failed, failed);
    return failed ? 1 : 0;
}
