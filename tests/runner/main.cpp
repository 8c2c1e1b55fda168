// runcases: runs case files, each a small text that says what to run and what must come of it.
//
// A case file is a title and a list of sections; tests/README.md describes them. The runner goes through the sections in
// order: those that prepare something (files, environment, standard input) act at once, in a fresh temporary directory;
// a `run` starts the program and then checks the expectations that follow it, up to the next `run`. A case fails with
// everything that is wrong about it, not only with the first thing.
//
// With --update, an exact expectation that doesn't hold is rewritten in the case file instead. Sections are kept as the
// lines that were read, so that nothing else in the file changes.
//
// Two cases run at a time, each on a thread of its own; a case shares nothing with another but the reading of options.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

enum { CONTEXT = 3, SHOWN_LINES = 200, OUTPUT_MAX = 64 << 20, DIFF_CELLS = 4000000, JOBS = 2 };

static struct {
    std::string bin;
    bool update, keep;
    int timeout = 20;   // seconds a run may take
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

// Words parted by blanks; '...' holds a word, or a part of one, together.
static strings split_words(const std::string &text)
{
    strings words;
    bool open = false, quoted = false;
    for (char c : text) {
        if (c == '\'') {
            quoted = !quoted;
            if (!open)
                words.emplace_back();
            open = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            open = false;
        } else {
            if (!open)
                words.emplace_back();
            open = true;
            words.back() += c;
        }
    }
    return words;
}

static std::string fold(const std::string &line)   // no blanks at the ends, one for several
{
    std::string out;
    for (char c : line) {
        bool blank = c == ' ' || c == '\t' || c == '\r';
        if (!blank)
            out += c;
        else if (!out.empty() && out.back() != ' ')
            out += ' ';
    }
    if (!out.empty() && out.back() == ' ')
        out.pop_back();
    return out;
}

static std::string replace_all(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// C escapes; false if there is one that it doesn't know.
static bool unescape(const std::string &text, std::string &out)
{
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        static const char from[] = "nrtfv0\\\"", to[] = "\n\r\t\f\v\0\\\"";
        const char *known = ++i < text.size() && text[i] ? strchr(from, text[i]) : nullptr;
        if (known) {
            out += to[known - from];
        } else if (i + 2 < text.size() && text[i] == 'x' && isxdigit(static_cast<unsigned char>(text[i + 1]))
                   && isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(strtoul(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            return false;
        }
    }
    return true;
}

static std::string escape_char(char c)
{
    unsigned char u = static_cast<unsigned char>(c);
    char hex[8];
    snprintf(hex, sizeof hex, "\\x%02X", u);
    return c == '\\' ? "\\\\" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : u < ' ' || u > '~' ? hex : std::string(1, c);
}

static std::string escape(const std::string &text, const char *bare = "")
{
    std::string out;
    for (char c : text)
        out += c && strchr(bare, c) ? std::string(1, c) : escape_char(c);
    return out;
}

// ---- differences ----

// Longest common subsequence, with what is alike at both ends taken off first.
static std::string diff(const strings &a, const strings &b)
{
    size_t head = 0, tail = 0;
    while (head < a.size() && head < b.size() && a[head] == b[head])
        head++;
    while (tail < a.size() - head && tail < b.size() - head && a[a.size() - 1 - tail] == b[b.size() - 1 - tail])
        tail++;
    size_t n = a.size() - head - tail, m = b.size() - head - tail;
    std::vector<uint32_t> table;
    if ((n + 1) * (m + 1) <= DIFF_CELLS) {
        table.resize((n + 1) * (m + 1));
        for (size_t i = n; i-- > 0;)
            for (size_t j = m; j-- > 0;)
                table[i * (m + 1) + j] = a[head + i] == b[head + j]
                    ? table[(i + 1) * (m + 1) + j + 1] + 1
                    : std::max(table[(i + 1) * (m + 1) + j], table[i * (m + 1) + j + 1]);
    }
    std::vector<std::pair<char, std::string>> rows;
    for (size_t i = 0; i < head; i++)
        rows.push_back({' ', a[i]});
    for (size_t i = 0, j = 0; i < n || j < m;) {
        if (!table.empty() && i < n && j < m && a[head + i] == b[head + j]) {
            rows.push_back({' ', a[head + i++]});
            j++;
        } else if (i < n && (j == m || table.empty() || table[(i + 1) * (m + 1) + j] >= table[i * (m + 1) + j + 1])) {
            rows.push_back({'-', a[head + i++]});
        } else {
            rows.push_back({'+', b[head + j++]});
        }
    }
    for (size_t i = a.size() - tail; i < a.size(); i++)
        rows.push_back({' ', a[i]});

    std::string out;
    bool skipped = true;
    for (size_t i = 0; i < rows.size(); i++) {
        size_t from = i < CONTEXT ? 0 : i - CONTEXT, to = std::min(rows.size(), i + CONTEXT + 1);
        bool near = std::any_of(rows.begin() + static_cast<ptrdiff_t>(from), rows.begin() + static_cast<ptrdiff_t>(to),
                                [](auto &r) { return r.first != ' '; });
        if (near && skipped)
            out += "    @@ line " + std::to_string(i + 1) + " @@\n";
        if (near)
            out += std::string("    ") + rows[i].first + escape(rows[i].second, "\t\\") + "\n";
        skipped = !near;
    }
    return out;
}

static std::string excerpt(const std::string &text)
{
    strings lines = split_lines(text);
    std::string out;
    for (size_t i = 0; i < lines.size() && i < SHOWN_LINES; i++)
        out += "     " + escape(lines[i], "\t\\") + "\n";
    if (lines.size() > SHOWN_LINES)
        out += "     ... " + std::to_string(lines.size() - SHOWN_LINES) + " lines more\n";
    return lines.empty() ? "     (empty)\n" : out;
}

// ---- running a program ----

struct outcome_t {
    std::string out, err;
    int status = 0;        // exit status
    std::string failure;   // timeout, signal and the like; else empty
};

// Reads both pipes until they are closed at the other end. Gives back why it didn't wait for that, or an empty string.
static std::string read_pipes(int out_fd, int err_fd, outcome_t &o, std::chrono::steady_clock::time_point deadline)
{
    pollfd fds[2] = {{out_fd, POLLIN, 0}, {err_fd, POLLIN, 0}};
    std::string *texts[2] = {&o.out, &o.err};
    while (fds[0].fd >= 0 || fds[1].fd >= 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return "took longer than " + std::to_string(opt.timeout) + " seconds";
        if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR)
            return strerror(errno);
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || !fds[i].revents)
                continue;
            char buffer[65536];
            ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0)
                texts[i]->append(buffer, static_cast<size_t>(n));
            else if (n == 0 || errno != EINTR)
                fds[i].fd = -1;
            if (texts[i]->size() > OUTPUT_MAX)
                return "wrote too much";
        }
    }
    return {};
}

static outcome_t run_program(const strings &words, const strings &env, const std::string &dir, const std::string &input)
{
    outcome_t o;
    std::vector<char *> argv, envp;
    for (const std::string &w : words)
        argv.push_back(const_cast<char *>(w.c_str()));
    for (const std::string &e : env)
        envp.push_back(const_cast<char *>(e.c_str()));
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    int out[2], err[2];
    FILE *in = tmpfile();
    if (!in || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        o.failure = std::string("can't make pipes: ") + strerror(errno);
        return o;
    }
    fcntl(fileno(in), F_SETFD, FD_CLOEXEC);
    fwrite(input.data(), 1, input.size(), in);
    fflush(in);
    rewind(in);
    pid_t pid = fork();
    if (pid == 0) {
        rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        setpgid(0, 0);
        signal(SIGPIPE, SIG_DFL);
        if (chdir(dir.c_str()) == 0 && dup2(fileno(in), 0) == 0 && dup2(out[1], 1) == 1 && dup2(err[1], 2) == 2)
            execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    fclose(in);
    close(out[1]);
    close(err[1]);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(opt.timeout);
    o.failure = pid < 0 ? strerror(errno) : read_pipes(out[0], err[0], o, deadline);
    close(out[0]);
    close(err[0]);
    int status = 0;
    if (pid > 0) {
        while (o.failure.empty() && waitpid(pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline)
                o.failure = "closed its output and didn't end";
            usleep(500);
        }
        if (!o.failure.empty()) {
            kill(-pid, SIGKILL);
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
        } else if (WIFSIGNALED(status)) {
            o.failure = std::string("died by signal: ") + strsignal(WTERMSIG(status));
        }
    }
    o.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (o.failure.empty() && o.status == 127 && access(argv[0], X_OK) != 0)
        o.failure = "can't run " + words[0];
    return o;
}

// ---- case files ----

struct section_t {
    std::string head;     // the line, without `--- `
    strings body;         // without blank lines at the end
    size_t gap = 0;       // number of those
    size_t line = 0;      // in the file
    std::string name;     // first word of the head
    std::string rest;     // what is behind it
    strings words;        // of the rest
};

struct case_t {
    std::string path, title, dir, report;
    std::vector<section_t> sections;
    strings env;
    std::string input;   // for the next run
    bool skipped = false, changed = false;

    std::string here() const { return fs::absolute(path).lexically_normal().parent_path().string(); }

    void fail(const section_t &s, const std::string &what, const std::string &detail = {})
    {
        report += "  line " + std::to_string(s.line) + ", " + s.head + ": " + what + "\n" + detail;
    }

    // Names of directories, so that a case can tell of them wherever they are.
    std::string expand(const std::string &text) const
    {
        return replace_all(replace_all(replace_all(text, "${DIR}", dir), "${BIN}", opt.bin), "${HERE}", here());
    }
    std::string collapse(const std::string &text) const
    {
        return replace_all(replace_all(replace_all(text, dir, "${DIR}"), opt.bin, "${BIN}"), here(), "${HERE}");
    }
};

static void set_head(section_t &s, const std::string &head)
{
    s.head = head;
    size_t end = std::min(head.find(' '), head.size());
    s.name = head.substr(0, end);
    s.rest = end < head.size() ? head.substr(end + 1) : "";
    s.words = split_words(s.rest);
}

static bool has_option(const section_t &s, const char *word)
{
    return std::find(s.words.begin(), s.words.end(), word) != s.words.end();
}

static std::string read_file(const std::string &path, bool &good)
{
    std::ifstream f(path, std::ios::binary);
    std::ostringstream text;
    good = f.good() && !fs::is_directory(path);
    if (good && f.peek() != EOF)
        text << f.rdbuf();
    return text.str();
}

static bool load_case(case_t &c)
{
    bool good;
    strings lines = split_lines(read_file(c.path, good));
    if (!good || lines.empty() || lines[0].compare(0, 2, "# ") != 0) {
        c.report = good ? "  the first line doesn't say, behind `# `, what the case is for\n" : "  can't be read\n";
        return false;
    }
    c.title = lines[0].substr(2);
    for (size_t i = 1; i < lines.size(); i++) {
        if (lines[i].compare(0, 4, "--- ") == 0) {
            c.sections.emplace_back();
            c.sections.back().line = i + 1;
            set_head(c.sections.back(), lines[i].substr(4));
        } else if (!c.sections.empty()) {
            c.sections.back().body.push_back(lines[i]);
        } else if (!lines[i].empty() && lines[i][0] != '#') {
            c.report = "  line " + std::to_string(i + 1) + ": text before the first section\n";
            return false;
        } else {
            c.title += "\n" + lines[i];   // further comment lines, kept with the title
        }
    }
    for (section_t &s : c.sections)
        for (; !s.body.empty() && s.body.back().empty(); s.body.pop_back())
            s.gap++;
    return true;
}

static void save_case(const case_t &c)
{
    std::ofstream f(c.path, std::ios::binary);
    f << "# " << c.title << "\n";
    for (const section_t &s : c.sections)
        f << "--- " << s.head << "\n" << join_lines(s.body) << std::string(s.gap, '\n');
    printf("updated %s\n", c.path.c_str());
}

// The text that a section's body stands for.
static bool body_text(case_t &c, const section_t &s, std::string &text)
{
    if (!has_option(s, "bytes")) {
        text = join_lines(s.body);
        return true;
    }
    for (const std::string &l : s.body)
        if (!unescape(l, text)) {
            c.fail(s, "unknown escape");
            return false;
        }
    return true;
}

static void set_body(section_t &s, const std::string &text)
{
    strings lines = split_lines(text);
    bool plain = (text.empty() || text.back() == '\n') && (lines.empty() || !lines.back().empty());
    for (const std::string &l : lines)
        plain = plain && l.compare(0, 4, "--- ") != 0 && escape(l, "\t\\") == l;
    if (!plain) {
        if (!has_option(s, "bytes"))
            set_head(s, s.head + " bytes");
        lines = split_lines(replace_all(escape(text), "\\n", "\\n\n"));
        for (std::string &l : lines)
            if (l.compare(0, 4, "--- ") == 0)
                l.replace(0, 1, "\\x2D");
    } else if (size_t at = s.head.rfind(" bytes"); has_option(s, "bytes") && at != std::string::npos) {
        set_head(s, s.head.erase(at, 6));
    }
    s.body = lines;
}

// ---- sections that prepare ----

static void make_file(case_t &c, const section_t &s)
{
    std::string text;
    if (s.words.empty())
        return c.fail(s, "no name");
    if (!body_text(c, s, text))
        return;
    auto gen = std::find(s.words.begin(), s.words.end(), "gen");
    if (gen != s.words.end()) {
        unsigned long count = gen + 1 != s.words.end() ? strtoul(gen[1].c_str(), nullptr, 10) : 0;
        std::string once = text;
        text.clear();
        for (unsigned long i = 0; i < count; i++)
            text += replace_all(once, "%d", std::to_string(i));
    }
    fs::path path = fs::path(c.dir) / c.expand(s.words[0]);
    std::error_code ignored;
    fs::create_directories(path.parent_path(), ignored);
    std::ofstream f(path, s.name == "append" ? std::ios::binary | std::ios::app : std::ios::binary);
    f << c.expand(text);
    if (!f.flush())
        c.fail(s, "can't write the file");
}

// Takes the section if it is one that prepares.
static bool prepare(case_t &c, const section_t &s)
{
    std::error_code error;
    std::string path = s.words.empty() ? "" : c.dir + "/" + s.words[0];
    if (s.name == "file" || s.name == "append") {
        make_file(c, s);
    } else if (s.name == "dir") {
        fs::create_directories(path, error);
    } else if (s.name == "mode") {
        c.skipped = geteuid() == 0;   // for whom every file can be read and written
        unsigned long mode = strtoul(s.words.size() > 1 ? s.words[1].c_str() : "0", nullptr, 8);
        fs::permissions(path, static_cast<fs::perms>(mode), error);
    } else if (s.name == "stdin") {
        c.input.clear();
        body_text(c, s, c.input);
        c.input = c.expand(c.input);
    } else if (s.name == "env") {
        c.env.insert(c.env.begin(), c.expand(s.rest));   // the first of a name counts
    } else {
        return false;
    }
    if (error)
        c.fail(s, error.message());
    return true;
}

// ---- sections that expect ----

static bool has_suffix(const std::string &name, const char *suffix)
{
    size_t n = strlen(suffix);
    return name.size() > n && name.compare(name.size() - n, n, suffix) == 0;
}

static std::string kind_of(const section_t &s)   // the name without -has and -not
{
    bool loose = has_suffix(s.name, "-has") || has_suffix(s.name, "-not");
    return loose ? s.name.substr(0, s.name.size() - 4) : s.name;
}

// What an object file's sections are about: the output of zelobj. False, and told, if it has a complaint.
static bool object_text(case_t &c, const section_t &s, std::string &text)
{
    std::string zelobj = opt.bin + "/zelobj";
    strings words = {zelobj};
    for (size_t i = 1; i < s.words.size(); i++)
        if (s.words[i].compare(0, 2, "--") == 0)
            words.push_back(s.words[i]);
    words.push_back(s.words[0]);
    outcome_t print = run_program(words, c.env, c.dir, "");
    outcome_t verify;
    if (!has_option(s, "noverify"))
        verify = run_program({zelobj, "--verify", s.words[0]}, c.env, c.dir, "");
    text = print.out;
    if (print.failure.empty() && verify.failure.empty() && !verify.status && (!print.status || has_option(s, "noverify")))
        return true;
    c.fail(s, "zelobj complains", excerpt(print.failure + verify.failure + (verify.err.empty() ? print.err : verify.err)));
    return false;
}

static void compare(case_t &c, section_t &s, const std::string &actual)
{
    if (has_suffix(s.name, "-has") || has_suffix(s.name, "-not"))
        if (s.body.empty())
            return c.fail(s, "no lines");
    if (has_suffix(s.name, "-has")) {
        strings lines = split_lines(actual);
        auto at = lines.begin();
        for (const std::string &want : s.body) {
            at = std::find_if(at, lines.end(), [&](const std::string &l) { return fold(l) == fold(want); });
            if (at == lines.end())
                return c.fail(s, "missing, or not in this order: " + fold(want), excerpt(actual));
            ++at;
        }
    } else if (has_suffix(s.name, "-not")) {
        for (const std::string &l : split_lines(actual))
            for (const std::string &bad : s.body)
                if (fold(l) == fold(bad))
                    c.fail(s, "there is a line " + fold(bad));
    } else {
        std::string expected;
        if (!body_text(c, s, expected) || expected == actual)
            return;
        if (opt.update) {
            set_body(s, actual);
            c.changed = true;
            return;
        }
        strings a = split_lines(expected), b = split_lines(actual);
        if (!expected.empty() && expected.back() != '\n')
            a.push_back("\\ no newline at the end");
        if (!actual.empty() && actual.back() != '\n')
            b.push_back("\\ no newline at the end");
        c.fail(s, "- expected, + found", diff(a, b));
    }
}

static void expect(case_t &c, section_t &s, const outcome_t &o)
{
    std::string kind = kind_of(s), actual;
    bool good = true;
    if (kind != "exit" && kind != "stderr" && kind != "stdout" && s.words.empty())
        return c.fail(s, "no name");
    if (s.name == "exit") {
        if (s.rest == std::to_string(o.status))
            return;
        if (opt.update) {
            set_head(s, "exit " + std::to_string(o.status));
            c.changed = true;
        } else {
            c.fail(s, "exit status " + std::to_string(o.status), excerpt(c.collapse(o.err)));
        }
    } else if (s.name == "absent") {
        if (fs::exists(c.dir + "/" + s.words[0]))
            c.fail(s, "the file exists");
    } else if (kind == "stderr") {
        compare(c, s, c.collapse(o.err));
    } else if (kind == "stdout") {
        compare(c, s, c.collapse(o.out));
    } else if (kind == "text") {
        actual = read_file(c.dir + "/" + s.words[0], good);
        if (!good)
            return c.fail(s, "can't be read");
        compare(c, s, c.collapse(actual));
    } else if (kind == "object") {
        if (object_text(c, s, actual))
            compare(c, s, c.collapse(actual));
    } else {
        c.fail(s, "unknown section");
    }
}

// Runs section i and checks what follows it. Gives back the index of the next section that isn't an expectation.
static size_t run_section(case_t &c, size_t i)
{
    static const char *const prepares[] = {"file", "append", "dir", "mode", "stdin", "env", "run"};
    strings words = split_words(c.expand(c.sections[i].rest));
    std::string program = "aszel8";
    if (words.size() >= 2 && words[0] == "tool") {
        program = words[1];
        words.erase(words.begin(), words.begin() + 2);
    }
    words.insert(words.begin(), opt.bin + "/" + program);
    outcome_t o = run_program(words, c.env, c.dir, c.input);
    c.input.clear();

    auto prepares_something = [&](const section_t &s) {
        return std::any_of(std::begin(prepares), std::end(prepares), [&](const char *p) { return s.name == p; });
    };
    size_t end = i + 1;
    while (end < c.sections.size() && !prepares_something(c.sections[end]))
        end++;
    if (!o.failure.empty()) {
        c.fail(c.sections[i], o.failure, excerpt(c.collapse(o.err)));
        return end;
    }
    // What isn't told has its default.
    size_t at = i + 1;
    for (const char *head : {"exit 0", "stdout", "stderr"}) {
        section_t s;
        set_head(s, head);
        s.line = c.sections[i].line;
        auto sections = std::span(c.sections).subspan(i + 1, end - i - 1);
        if (std::any_of(sections.begin(), sections.end(), [&](const section_t &t) { return kind_of(t) == s.name; }))
            continue;
        bool before = c.changed;
        c.changed = false;
        expect(c, s, o);
        if (c.changed) {
            s.gap = std::exchange(c.sections[at - 1].gap, 0);
            c.sections.insert(c.sections.begin() + static_cast<ptrdiff_t>(at++), s);
            end++;
        }
        c.changed = c.changed || before;
    }
    for (size_t k = at; k < end; k++)
        expect(c, c.sections[k], o);
    return end;
}

static strings base_env(const std::string &dir)
{
    strings env = {"HOME=" + dir, "LC_ALL=C", "TZ=UTC"};
    for (const char *name : {"PATH", "LD_LIBRARY_PATH", "LLVM_PROFILE_FILE"})
        if (const char *value = getenv(name))
            env.push_back(std::string(name) + "=" + value);
    // A finding of a sanitizer must not look like an ordinary failure of the program.
    for (const char *name : {"ASAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const char *value = getenv(name);
        std::string given = value ? std::string(value) + ":" : "";
        env.push_back(std::string(name) + "=" + given + "abort_on_error=1:print_stacktrace=1");
    }
    return env;
}

static void remove_dir(const std::string &dir)
{
    std::error_code ignored;
    fs::recursive_directory_iterator it(dir, ignored), end;
    for (; it != end; it.increment(ignored))
        if (it->is_directory(ignored) && !it->is_symlink(ignored))
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    fs::remove_all(dir, ignored);
}

static void run_case(case_t &c)
{
    if (!load_case(c))
        return;
    std::string dir = (fs::temp_directory_path() / "runcases-XXXXXX").string();
    if (!mkdtemp(dir.data())) {
        c.report = "  can't make a directory: " + std::string(strerror(errno)) + "\n";
        return;
    }
    c.dir = fs::canonical(dir).string();
    c.env = base_env(c.dir);
    bool ran = false;
    for (size_t i = 0; i < c.sections.size() && !c.skipped;) {
        if (c.sections[i].name == "run") {
            i = run_section(c, i);
            ran = true;
        } else {
            if (!prepare(c, c.sections[i]))
                c.fail(c.sections[i], "unknown section, or an expectation before any run");
            i++;
        }
    }
    if (!ran && !c.skipped && c.report.empty())
        c.report = "  runs nothing\n";
    if (c.changed)
        save_case(c);
    if (opt.keep)
        printf("%s: %s\n", c.path.c_str(), c.dir.c_str());
    else
        remove_dir(c.dir);
}

// ---- the whole ----

static int usage(FILE *to, int status)
{
    fputs("usage: runcases --bin DIR [--update] [--keep] [--timeout SECONDS] FILE-OR-DIR...\n"
          "  --bin DIR   where the programs are\n"
          "  --update    rewrite exact expectations in the case files; read the difference before you believe it\n"
          "  --keep      leave the directories in which the cases ran, and tell which they are\n", to);
    return status;
}

static void collect(const std::string &path, std::vector<case_t> &cases)
{
    strings paths;
    if (fs::is_directory(path)) {
        for (const fs::directory_entry &e : fs::recursive_directory_iterator(path))
            if (e.is_regular_file() && e.path().extension() == ".txt")
                paths.push_back(e.path().string());
        std::sort(paths.begin(), paths.end());
    } else {
        paths.push_back(path);
    }
    for (std::string &p : paths) {
        cases.emplace_back();
        cases.back().path = std::move(p);
    }
}

int main(int argc, char **argv)
{
    std::vector<case_t> cases;
    std::string bin;
    for (int i = 1; i < argc; i++) {
        std::string word = argv[i];
        if (word == "--bin" && i + 1 < argc)
            bin = argv[++i];
        else if (word == "--timeout" && i + 1 < argc)
            opt.timeout = atoi(argv[++i]);
        else if (word == "--update")
            opt.update = true;
        else if (word == "--keep")
            opt.keep = true;
        else if (word == "--help")
            return usage(stdout, 0);
        else if (word[0] == '-')
            return usage(stderr, 2);
        else
            collect(word, cases);
    }
    std::error_code error;
    opt.bin = fs::canonical(bin, error).string();
    if (bin.empty() || error || cases.empty())
        return usage(stderr, 2);
    signal(SIGPIPE, SIG_IGN);

    std::atomic<size_t> next = 0;
    size_t failed = 0, skipped = 0;
    std::mutex lock;
    auto work = [&] {
        for (size_t i; (i = next++) < cases.size();) {
            case_t &c = cases[i];
            run_case(c);
            std::lock_guard guard(lock);
            skipped += c.skipped && c.report.empty();
            if (c.report.empty())
                continue;
            failed++;
            printf("FAILED %s\n  %s\n%s  alone: %s --bin %s %s\n\n", c.path.c_str(), split_lines(c.title + "\n")[0].c_str(),
                   c.report.c_str(), argv[0], bin.c_str(), c.path.c_str());
        }
    };
    std::vector<std::thread> threads;
    for (size_t i = 1; i < JOBS && i < cases.size(); i++)
        threads.emplace_back(work);
    work();
    for (std::thread &t : threads)
        t.join();
    printf("%zu passed, %zu failed", cases.size() - failed - skipped, failed);
    if (skipped)
        printf(", %zu skipped", skipped);
    putchar('\n');
    return failed ? 1 : 0;
}
