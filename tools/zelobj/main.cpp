// zelobj: prints object files and relocation listing files, or checks them.
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

static bool read_file(const char *path, std::vector<uint8_t> &bytes)
{
    FILE *f = fopen(path, "rb");
    if (!f)
        return false;
    uint8_t buffer[65536];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, f)) != 0;)
        bytes.insert(bytes.end(), buffer, buffer + n);
    bool good = !ferror(f);
    fclose(f);
    return good;
}

// What a file is that isn't of records at all; empty for one that begins as an object file does.
static std::string foreign(const std::vector<uint8_t> &bytes)
{
    if (bytes.size() >= ZO_HEAD && bytes[1] <= 2 && bytes[2] == ZO_IDENT)
        return "";
    const std::string_view text{reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    const char *is = text.empty()                    ? "the file is empty"
                     : text.starts_with("!<arch>\n") ? "an archive: take its members out with `ar x`"
                     : text.starts_with("\x7F"
                                        "ELF")
                         ? "an ELF file: readelf and nm show it"
                     : text.starts_with(":") ? "it looks like Intel HEX"
                                             : "it doesn't begin with an IDENT record";
    return std::string("not an object file or relocation listing of this assembler: ") + is;
}

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    zo_style style;
    bool verify = false;
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; i++) {
        std::string_view option = argv[i];
        if (option == "--verify")
            verify = true;
        else if (option == "--no-disassembly")
            style.disassembly = false;
        else if (option == "--offsets")
            style.offsets = true;
        else if (option == "--wide")
            style.wide = true;
        else if (option == "--help")
            return usage(stdout, 0);
        else
            return usage(stderr, 2);
    }
    if (i == argc)
        return usage(stderr, 2);

    int status = 0;
    bool several = argc - i > 1;
    for (; i < argc; i++) {
        std::vector<uint8_t> bytes;
        if (!read_file(argv[i], bytes)) {
            fprintf(stderr, "zelobj: %s: %s\n", argv[i], strerror(errno));
            status = 2;
            continue;
        }
        if (const std::string why = foreign(bytes); !why.empty()) {
            fprintf(stderr, "zelobj: %s: %s\n", argv[i], why.c_str());
            status = std::max(status, 1);
            continue;
        }
        zo_file file = zo_read(bytes);
        std::vector<std::string> problems;
        if (verify) {
            problems = zo_verify(file);
        } else {
            std::string text = zo_print(file, style);
            printf("%s%s%s%s", several ? argv[i] : "", several ? ":\n" : "", text.c_str(), several ? "\n" : "");
            for (size_t k = 0; k < file.records.size(); k++)
                if (const zo_record &r = file.records[k]; !r.error.empty())
                    problems.push_back(zo_format("record %zu (%s): %s", k + 1, zo_type_name(r.type), r.error.c_str()));
            if (!file.error.empty())
                problems.push_back(file.error);
        }
        fflush(stdout);
        for (const std::string &p : problems)
            fprintf(stderr, "zelobj: %s: %s\n", argv[i], p.c_str());
        if (!problems.empty() && status == 0)
            status = 1;
    }
    if (ferror(stdout)) {   // each file's output has been flushed
        fputs("zelobj: can't write the output\n", stderr);
        status = 2;
    }
    return status;
}
