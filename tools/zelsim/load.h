// load: what is run. Reads Intel HEX, raw binary and ELF, and links objects; the last two also tell names and source lines.
#pragma once

#include <string_view>

#include "target.h"

struct source_line {
    std::string file;
    uint32_t line = 0;
    auto operator<=>(const source_line &) const = default;
};

struct program_t {
    target_t target;
    std::vector<uint8_t> bytes;               // of program memory, 0xFF where nothing was put
    std::map<uint32_t, uint8_t> others;       // what lies outside of it: configuration and the like
    std::map<uint32_t, std::string> labels;   // of code, by byte address
    std::map<std::string, uint32_t> code;     // byte address by name
    std::map<std::string, uint32_t> data;     // data address by name
    std::map<uint32_t, source_line> lines;    // from that byte address on
    std::map<uint32_t, uint32_t> pieces;      // of code: end by begin, so that a line ends with its piece
};

struct load_request {
    std::vector<std::string> inputs;
    std::string bin;               // directory of the running program
    std::string chip, chip_file;   // empty if not told
};

// One HEX, binary or ELF file, or objects and archives. Gives back what is wrong, a line each; empty if nothing is.
std::vector<std::string> load_program(const load_request &request, program_t &program);

// Whether the program's configuration words have this setting on. One that the image doesn't hold, or of which the chip's files
// tell nothing, is off.
bool program_switch(const program_t &program, const std::string &setting);

// The bytes of a HEX file by address. Gives back an error text with the line, empty on success.
std::string read_hex(const std::string &text, std::map<uint32_t, uint8_t> &bytes);

// The bytes of an ELF file by address, its chip, if it tells one, and its names and lines into `program`. Gives back an error
// text, empty on success. In a file of its own.
std::string read_elf(std::string_view file, program_t &program, std::map<uint32_t, uint8_t> &bytes, std::string &chip);
