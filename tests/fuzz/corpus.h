// A kept corpus is one file: of each input its length in decimal digits, a newline, its bytes, and a newline.
#pragma once

#include <fstream>
#include <string>
#include <vector>

inline std::vector<std::string> corpus_read(const char *path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> inputs;
    for (size_t length; in >> length && in.get() == '\n';) {
        inputs.emplace_back(length, '\0');
        if (!in.read(inputs.back().data(), static_cast<std::streamsize>(length)))
            inputs.pop_back();
    }
    return inputs;
}
