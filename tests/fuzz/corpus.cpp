// Makes a corpus file of a fuzzer's files, and files of a corpus file.
#include "corpus.h"

#include <cstdio>
#include <iterator>
#include <string_view>

static int pack(const char *path, char **files)
{
    std::ofstream out(path, std::ios::binary);
    for (; *files; files++) {
        std::ifstream in(*files, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        out << bytes.size() << '\n' << bytes << '\n';
    }
    return out.flush() ? 0 : 1;
}

static int unpack(const char *path, const std::string &directory)
{
    int n = 0;
    for (const std::string &input : corpus_read(path))
        if (!(std::ofstream(directory + "/" + std::to_string(n++), std::ios::binary) << input))
            return 1;
    return 0;
}

int main(int argc, char **argv)
{
    const std::string_view what = argc > 3 ? argv[1] : "";
    if (what == "pack")
        return pack(argv[2], argv + 3);
    if (what == "unpack" && argc == 4)
        return unpack(argv[2], argv[3]);
    fputs("usage: corpus pack CORPUS FILE...\n       corpus unpack CORPUS DIRECTORY\n", stderr);
    return 2;
}
