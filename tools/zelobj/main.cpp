// zelobj: prints object files, the members of archives, and relocation listing files, or checks them; tables of symbols and
// sizes of these and of linked programs.
//
// Exit status: 0 if all is well, 1 if a file is malformed, 2 for wrong usage or a file that cannot be read or written.
#include "zelobj.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "common/streams.h"

static int usage(FILE *to, int status)
{
    const int written = fputs("usage: zelobj [option...] file...\n"
                              "  --verify           check only: print what is wrong, nothing if all is well\n"
                              "  --symbols          the symbols by name, also of a linked ELF file\n"
                              "  --symbols=address  by address\n"
                              "  --sizes            bytes of psects and classes, also of a linked ELF file\n"
                              "  --no-disassembly   show program psects as bytes too\n"
                              "  --offsets          put each record's offset in the file in front\n"
                              "  --wide             read lfsr as on chips with 14-bit data addresses\n",
                              to);
    return written < 0 || fflush(to) != 0 ? 2 : status;
}

// What a file is that isn't of records at all; empty for one that begins as an object file does.
static std::string foreign(std::span<const uint8_t> bytes)
{
    if (bytes.size() >= ZO_HEAD && bytes[1] <= 2 && bytes[2] == ZO_IDENT)
        return "";
    const std::string_view text{reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    const char *const is = text.empty()            ? "the file is empty"
                           : zo_is_archive(bytes)  ? "an archive in an archive"
                           : zo_is_elf(text)       ? "an ELF file: --symbols and --sizes show it"
                           : text.starts_with(":") ? "it looks like Intel HEX"
                                                   : "it doesn't begin with an IDENT record";
    return std::string("not an object file or relocation listing of this assembler: ") + is;
}

namespace
{

enum what_t { RECORDS, VERIFY, SYMBOLS, SYMBOLS_BY_ADDRESS, SIZES };

struct request_t {
    zo_style style;
    what_t what = RECORDS;
    bool several = false;         // objects: each is shown under its name
    std::vector<zo_size> sizes;   // of all so far
};

}   // namespace

template <typename content> static std::string table_of(request_t &request, const content &of)
{
    if (request.what != SIZES)
        return zo_symbol_table(of, request.what == SYMBOLS_BY_ADDRESS);
    const std::vector<zo_size> sizes = zo_sizes(of);
    request.sizes.insert(request.sizes.end(), sizes.begin(), sizes.end());
    return zo_size_table(sizes);
}

static std::string text_of_elf(request_t &request, std::string_view bytes, std::vector<std::string> &problems)
{
    zo_elf elf;
    if (const std::string error = zo_read_elf(bytes, elf); !error.empty()) {
        problems.push_back(error);
        return "";
    }
    return table_of(request, elf);
}

static std::string text_of_object(request_t &request, std::span<const uint8_t> bytes, std::vector<std::string> &problems)
{
    const zo_file file = zo_read(bytes);
    if (request.what == VERIFY) {
        problems = zo_verify(file);
        return "";
    }
    for (size_t k = 0; k < file.records.size(); k++)
        if (const zo_record &r = file.records[k]; !r.error.empty())
            problems.push_back(zo_format("record %zu (%s): %s", k + 1, zo_type_name(r.type), r.error.c_str()));
    if (!file.error.empty())
        problems.push_back(file.error);
    return request.what == RECORDS ? zo_print(file, request.style) : table_of(request, file);
}

// 0, or the exit status for what is wrong with it.
static int show(request_t &request, const zo_member &object)
{
    const std::string_view bytes{reinterpret_cast<const char *>(object.bytes.data()), object.bytes.size()};
    std::vector<std::string> problems;
    std::string text;
    if (request.what >= SYMBOLS && zo_is_elf(bytes))
        text = text_of_elf(request, bytes, problems);
    else if (const std::string why = foreign(object.bytes); !why.empty())
        problems.push_back(why);
    else
        text = text_of_object(request, object.bytes, problems);
    if (request.several && !text.empty())
        text = object.name + ":\n" + text + "\n";
    fputs(text.c_str(), stdout);
    fflush(stdout);
    for (const std::string &p : problems)
        fprintf(stderr, "zelobj: %s: %s\n", object.name.c_str(), p.c_str());
    return problems.empty() ? 0 : 1;
}

static int show_file(request_t &request, const std::string &path)
{
    std::vector<uint8_t> bytes;
    if (!zo_read_file(path, bytes)) {
        fprintf(stderr, "zelobj: %s: %s\n", path.c_str(), strerror(errno));
        return 2;
    }
    request.several = request.several || zo_is_archive(bytes);
    std::vector<zo_member> objects;
    const std::string error = zo_members(path, bytes, objects);
    int status = 0;
    for (const zo_member &object : objects)
        status = std::max(status, show(request, object));
    if (error.empty())
        return status;
    fprintf(stderr, "zelobj: %s: %s\n", path.c_str(), error.c_str());
    return 1;
}

static const struct {
    const char *word;
    void (*set)(request_t &);
} rows[] = {
    {"--no-disassembly", [](request_t &r) { r.style.disassembly = false; }},
    {"--offsets", [](request_t &r) { r.style.offsets = true; }},
    {"--sizes", [](request_t &r) { r.what = SIZES; }},
    {"--symbols", [](request_t &r) { r.what = SYMBOLS; }},
    {"--symbols=address", [](request_t &r) { r.what = SYMBOLS_BY_ADDRESS; }},
    {"--verify", [](request_t &r) { r.what = VERIFY; }},
    {"--wide", [](request_t &r) { r.style.wide = true; }},
};

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    request_t request;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; i++) {
        const std::string_view option = argv[i];
        if (option == "--help")
            return usage(stdout, 0);
        const auto row = std::find_if(std::begin(rows), std::end(rows), [&](const auto &r) { return r.word == option; });
        if (row == std::end(rows))
            return usage(stderr, 2);
        row->set(request);
    }
    if (i == argc)
        return usage(stderr, 2);
    request.several = argc - i > 1;

    int status = 0;
    for (; i < argc; i++)
        status = std::max(status, show_file(request, argv[i]));
    if (request.what == SIZES && request.several)
        printf("all:\n%s", zo_class_table(request.sizes).c_str());
    fflush(stdout);
    if (ferror(stdout)) {
        fputs("zelobj: can't write the output\n", stderr);
        status = 2;
    }
    return status;
}
