// uri: the name of a file as a URI has it, for logs that other programs read.
#pragma once

#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

// Absolute names become `file://` ones, others stay relative; bytes that a URI doesn't have are written as %XX.
inline std::string uri_of(std::string_view file)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string to = file.starts_with('/') ? "file://" : "";
    for (const char c : file) {
        const unsigned byte = static_cast<unsigned char>(c);
        if (byte < 0x80 && (isalnum(static_cast<int>(byte)) || strchr("/-._~", c)))
            to += c;
        else
            to += {'%', digits[byte >> 4], digits[byte & 15]};
    }
    return to;
}
