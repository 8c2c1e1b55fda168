// The chip with the most, ZEL8K40, for the targets that need one. For one source of a program.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "target.h"
#include "zellink.h"

static target_t chip;

void target_prepare()
{
    std::error_code ignored;
    const std::string bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    if (const std::string error = target_find(bin, "ZEL8K40", chip); !error.empty()) {
        fprintf(stderr, "%s\n", error.c_str());
        exit(1);
    }
}
