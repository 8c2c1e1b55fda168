// zelobj: prints object files, the members of archives, and relocation listing files, or checks them.
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
    const int written = fputs("usage: zelobj [--verify] [--no-disassembly] [--offsets] [--wide] file...\n"
                              "  --verify          check only: print what is wrong, nothing if all is well\n"
                              "  --no-disassembly  show program psects as bytes too\n"
                              "  --offsets         put each record's offset in the file in front\n"
                              "  --wide            read lfsr as on chips with 14-bit data addresses\n",
                              to);
    return written < 0 || fflush(to) != 0 ? 2 : status;
}

// What a file is that isn't of records at all; empty for one that begins as an object file does.
static std::string foreign(std::span<const uint8_t> bytes)
{
    if (bytes.size() >= ZO_HEAD && bytes[1] <= 2 && bytes[2] == ZO_IDENT)
        return "";
    const std::string_view text{reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    const char *is = text.empty()           ? "the file is empty"
                     : zo_is_archive(bytes) ? "an archive in an archive"
                     : text.starts_with("\x7F"
                                        "ELF")
                         ? "an ELF file: readelf and nm show it"
                     : text.starts_with(":") ? "it looks like Intel HEX"
                                             : "it doesn't begin with an IDENT record";
    return std::string("not an object file or relocation listing of this assembler: ") + is;
}

namespace
{

struct request_t {
    zo_style style;
    bool verify = false;
    bool several = false;   // objects: each is shown under its name
};

}   // namespace

// 0, or the exit status for what is wrong with it.
static int show(const request_t &request, const zo_member &object)
{
    std::vector<std::string> problems;
    if (const std::string why = foreign(object.bytes); !why.empty()) {
        problems.push_back(why);
    } else if (const zo_file file = zo_read(object.bytes); request.verify) {
        problems = zo_verify(file);
    } else {
        const std::string text = zo_print(file, request.style);
        printf("%s%s%s%s", request.several ? object.name.c_str() : "", request.several ? ":\n" : "", text.c_str(),
               request.several ? "\n" : "");
        for (size_t k = 0; k < file.records.size(); k++)
            if (const zo_record &r = file.records[k]; !r.error.empty())
                problems.push_back(zo_format("record %zu (%s): %s", k + 1, zo_type_name(r.type), r.error.c_str()));
        if (!file.error.empty())
            problems.push_back(file.error);
    }
    fflush(stdout);
    for (const std::string &p : problems)
        fprintf(stderr, "zelobj: %s: %s\n", object.name.c_str(), p.c_str());
    return problems.empty() ? 0 : 1;
}

static int show_file(request_t request, const std::string &path)
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

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    request_t request;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; i++) {
        const std::string_view option = argv[i];
        if (option == "--verify")
            request.verify = true;
        else if (option == "--no-disassembly")
            request.style.disassembly = false;
        else if (option == "--offsets")
            request.style.offsets = true;
        else if (option == "--wide")
            request.style.wide = true;
        else if (option == "--help")
            return usage(stdout, 0);
        else
            return usage(stderr, 2);
    }
    if (i == argc)
        return usage(stderr, 2);
    request.several = argc - i > 1;

    int status = 0;
    for (; i < argc; i++)
        status = std::max(status, show_file(request, argv[i]));
    if (ferror(stdout)) {   // each object's output has been flushed
        fputs("zelobj: can't write the output\n", stderr);
        status = 2;
    }
    return status;
}
