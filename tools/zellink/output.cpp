// output: the image as Intel HEX or as raw bytes.
//
// HEX: data records of up to 16 bytes that begin at multiples of 16 where they can, a record 04 whenever the upper half of
// the address changes, 05 with the address that a module's `end` told, and 01 at the end. Raw: all bytes from address 0 to the
// last one that was put anywhere, with 0xFF between.
#include "zellink.h"

enum : unsigned { HEX_DATA = 0, HEX_END = 1, HEX_UPPER = 4, HEX_START = 5 };
constexpr size_t HEX_BYTES = 16;

static void record(std::string &out, unsigned type, uint32_t address, const std::vector<uint8_t> &data)
{
    unsigned sum = static_cast<unsigned>(data.size()) + (address >> 8 & 255) + (address & 255) + type;
    out += zo_format(":%02zX%04X%02X", data.size(), address & 0xFFFF, type);
    for (uint8_t byte : data) {
        out += zo_format("%02X", byte);
        sum += byte;
    }
    out += zo_format("%02X\n", -sum & 255);
}

static std::vector<uint8_t> big_endian(uint32_t value, unsigned bytes)
{
    std::vector<uint8_t> out;
    for (unsigned i = bytes; i-- > 0;)
        out.push_back(static_cast<uint8_t>(value >> 8 * i));
    return out;
}

std::string zl_hex(const zl_linker &l)
{
    std::string out;
    uint32_t upper = 0, from = 0;
    std::vector<uint8_t> data;
    const auto flush = [&] {
        if (data.empty())
            return;
        if (from >> 16 != upper)
            record(out, HEX_UPPER, 0, big_endian(upper = from >> 16, 2));
        record(out, HEX_DATA, from, data);
        data.clear();
    };
    for (const auto &[number, page] : l.image)
        for (uint32_t i = 0; i < page.bytes.size(); i++) {
            const uint32_t at = number * 256 + i;
            if (!page.owner[i] || at % HEX_BYTES == 0)
                flush();
            if (!page.owner[i])
                continue;
            if (data.empty())
                from = at;
            data.push_back(page.bytes[i]);
        }
    flush();
    if (l.has_start)
        record(out, HEX_START, 0, big_endian(l.start, 4));
    record(out, HEX_END, 0, {});
    return out;
}

std::string zl_binary(const zl_linker &l)
{
    std::string out;
    for (const auto &[number, page] : l.image)   // addresses are those of the chip, so that this has some megabytes at most
        for (size_t i = 0; i < page.bytes.size(); i++)
            if (page.owner[i]) {
                out.resize(size_t{number} * 256 + i, '\xFF');
                out += static_cast<char>(page.bytes[i]);
            }
    return out;
}
