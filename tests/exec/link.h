// link: joins object files to one image.
#pragma once

#include "target.h"
#include "zelobj.h"

struct link_module { std::string name; zo_file file; };

struct link_psect { std::string name; uint32_t address, size; uint8_t space; };   // bytes; a piece of one module

struct image_t {
    std::vector<uint8_t> program;             // program memory from address 0; 0xFF where nothing was put
    std::map<uint32_t, uint8_t> other;        // bytes of psects above it: configuration, ID locations
    std::map<std::string, int64_t> symbols;   // of all modules, in addressing units
    std::vector<link_psect> psects;
    uint32_t start = 0;                       // 0 if no module told one
};

// Messages of what went wrong, empty if nothing did. The image is of use only then.
std::vector<std::string> link_modules(const std::vector<link_module> &modules, const target_t &target, image_t &image);

// Reads object files and links them.
std::vector<std::string> link_files(const std::vector<std::string> &paths, const target_t &target, image_t &image);
