// link: joins object files to one image.
#pragma once

#include "target.h"
#include "zelobj.h"

struct link_module {
    std::string name;
    zo_file file;
};

struct image_t {
    std::vector<uint8_t> program;             // program memory from address 0; 0xFF where nothing was put
    std::map<std::string, int64_t> symbols;   // of all modules, in addressing units
    uint32_t start = 0;                       // 0 if no module told one
};

// Messages of what went wrong, empty if nothing did. The image is of use only then.
std::vector<std::string> link_modules(const std::vector<link_module> &modules, const target_t &target, image_t &image);
