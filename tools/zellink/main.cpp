// zellink: joins object files and archives to a program for a chip.
//
// Exit status: 0 if the output was written, 1 if something is wrong with the input, 2 for wrong usage or a file that can't be
// read or written. With an error, no output is made or changed.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "common/streams.h"
#include "zellink.h"

enum { GOOD = 0, FAULTY = 1, UNUSABLE = 2 };

static const char usage_text[] = "usage: zellink [option...] -o app.hex file.obj... library.a...\n"
                                 "  -o FILE                   the program; .bin is raw binary, .elf ELF, else Intel HEX\n"
                                 "  --format=hex|bin|elf      its format, whatever its name\n"
                                 "  -mcpu=CHIP                the chip, if it isn't to be that of the objects\n"
                                 "  --chipinfo=FILE           the chip's file, if it isn't to be that of the installation\n"
                                 "  --class=NAME=lo-hi[,...]  memory of a class; all addresses are hexadecimal bytes\n"
                                 "  --psect=NAME=address      address of a psect\n"
                                 "  --gc                      leave out psects that nothing reaches\n"
                                 "  --keep=NAME               but not this psect, or that of this symbol\n"
                                 "  --annotate=FILE           finish what aszel8 --annotate=FILE wrote, likewise\n"
                                 "  --listing                 finish the listings of -L with final numbers\n"
                                 "  --map=FILE                tell what lies where\n"
                                 "  --callgraph               tell who calls whom, with bytes and stack\n"
                                 "  --check                   look for wrong banks, lost code and unsaved registers\n"
                                 "  --vectors, --vectors=ADDRESS   each interrupt has a vector, from there on\n"
                                 "  --input-name=NAME, --output-name=NAME   what the next object, the program is known as\n"
                                 "  --quiet                   no table of memory\n"
                                 "  --ver                     the version\n"
                                 "  @FILE                     more of these words from a link file\n";

static int told(FILE *to, const char *text, int status)
{
    return fputs(text, to) < 0 || fflush(to) != 0 ? int{UNUSABLE} : status;
}

static void print(const std::vector<zl_message> &messages)
{
    for (const zl_message &m : messages)
        fprintf(stderr, "%s: %s: %s\n", m.where.empty() ? "zellink" : m.where.c_str(), m.warning ? "warning" : "error",
                m.text.c_str());
}

static bool same_file(const std::string &a, const std::string &b)
{
    std::error_code ignored;
    const auto whole = [&](const std::string &path) {
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path, ignored), ignored);
    };
    return whole(a) == whole(b) || std::filesystem::equivalent(a, b, ignored);   // links to one file have two names
}

// Empty, or why the file may not be written.
static std::string overwritten(const std::string &out, const std::vector<std::string> &inputs)
{
    for (const std::string &in : inputs)
        if (same_file(out, in))
            return "output " + zl_quoted(out) + " would overwrite input " + zl_quoted(in);
    return "";
}

// Empty, or why an output may not be written there.
static std::string conflict(const zl_options &o)
{
    for (const std::string &out : {o.output, o.map})
        if (std::string error = out.empty() ? "" : overwritten(out, o.inputs); !error.empty())
            return error;
    return !o.map.empty() && same_file(o.map, o.output) ? "program and map are the same file" : "";
}

// `name` is what it is known as.
static bool write_file(const std::string &path, const std::string &name, const std::string &content)
{
    FILE *const f = fopen(path.c_str(), "wb");
    bool good = f && fwrite(content.data(), 1, content.size(), f) == content.size();
    int reason = errno;
    if (f && fclose(f) != 0 && good) {
        good = false;
        reason = errno;
    }
    if (!good) {
        fprintf(stderr, "zellink: error: can't write %s: %s\n", name.c_str(), strerror(reason));
        struct stat st {
        };
        if (f && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode))   // half a program is none
            remove(path.c_str());
    }
    return good;
}

static bool write_listing(const zl_listing &to) { return write_file(to.path, to.path, to.text); }

// Or the file stays as it is: there is no other to make it of again.
static bool replace_file(const zl_listing &by)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::canonical(by.path, error), fresh = whole.string() + ".new";
    if (!error && !write_file(fresh, by.path, by.text))
        return false;
    if (!error)
        std::filesystem::rename(fresh, whole, error);
    if (error)
        fprintf(stderr, "zellink: error: can't write %s: %s\n", by.path.c_str(), error.message().c_str());
    return !error;
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return UNUSABLE;
    zl_options options;
    bool help = false, version = false;
    std::string error = zl_parse_options({argv + 1, argv + argc}, options, help, version);
    if (help)
        return told(stdout, usage_text, GOOD);
    if (version)
        return told(stdout, "zellink " ZELLINK_VERSION "\n", GOOD);
    if (error.empty())
        error = conflict(options);
    if (!error.empty()) {
        fprintf(stderr, "zellink: error: %s\n", error.c_str());
        return UNUSABLE;
    }

    std::deque<zl_source> sources;
    std::vector<zl_message> messages;
    zl_read_inputs(options, sources, messages);
    if (!messages.empty())
        return print(messages), FAULTY;
    zl_choose_members(sources);
    const std::string objects_chip = zl_common_chip(sources, messages),
                      &chip = options.chip.empty() ? objects_chip : options.chip;
    if (!messages.empty())
        return print(messages), FAULTY;
    target_t target;
    std::error_code ignored;
    const std::string bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    error = options.chip_file.empty() ? target_find(bin, chip, target) : target_read(options.chip_file, chip, target);
    target_switches(bin, target);
    options.installation = target_installation(bin);
    if (error.empty() && options.vectors && !target.vectors_at[0])
        error = "--vectors: chip " + target.name + " has no table of vectors";
    if (!error.empty()) {
        fprintf(stderr, "zellink: error: %s\n", error.c_str());
        return UNUSABLE;
    }

    zl_linker l{options, target};
    if (!options.chip.empty() && objects_chip != target.name)
        zl_complain(l, "", "the objects are for " + objects_chip + ", not for " + target.name, true);
    zl_link(l, sources);
    std::string report;
    if (!zl_failed(l) && (options.call_graph || options.check)) {
        const zl_flow flow = zl_take_apart(l);
        report = zl_call_graph(l, flow);
        if (options.check)
            zl_check(l, flow);
        if (!options.call_graph)
            report.clear();
    }
    std::vector<zl_listing> listings;
    if (options.listing && !zl_failed(l))
        listings = zl_listings(l);
    if (!zl_failed(l))
        for (zl_listing &annotation : zl_annotations(l))
            listings.push_back(std::move(annotation));
    print(l.messages);
    if (zl_failed(l))
        return FAULTY;
    std::vector<std::string> others = options.inputs;
    others.insert(others.end(), {options.output, options.map});
    for (const zl_listing &listing : listings)
        if (!listing.relocs.empty())
            others.push_back(listing.relocs);
    for (const zl_listing &listing : listings)
        if (!overwritten(listing.path, others).empty()) {
            fprintf(stderr, "zellink: error: %s is also another file of this link\n", zl_quoted(listing.path).c_str());
            return UNUSABLE;
        }
    const auto program = options.format == "bin" ? zl_binary : options.format == "elf" ? zl_elf : zl_hex;
    if (!write_file(options.output, options.output_name, program(l)) ||
        (!options.map.empty() && !write_file(options.map, options.map, zl_map(l))))
        return UNUSABLE;
    for (const zl_listing &listing : listings)
        if (!(listing.relocs.empty() ? replace_file : write_listing)(listing))
            return UNUSABLE;
    return told(stdout, ((options.quiet ? "" : zl_memory_table(l, false)) + report).c_str(), GOOD);
}
