// registry: paths in the installation, by kind.
#pragma once

// clang-format off
enum reg_kind_t {
    REG_BASE, REG_BIN, REG_LIB, REG_HELP, REG_INCLUDE, REG_DAT, REG_SOURCES, REG_RESOURCES, REG_DOCS, REG_KINDS
};
// clang-format on

// The directory of that kind, a cached string; null if the installation can't be located. It needn't exist.
const char *reg_instdir(int kind);

// `name` in that directory; an absolute `name` as it is, installation or not. A cached string, or null.
const char *reg_mkpath(int kind, const char *name);
