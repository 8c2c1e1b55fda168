// options: what the command line, and a few directives, ask of the run.
//
// One record for the process. It is written while the command line is read (cmdline) and by some directives, and read
// everywhere; that is why it stands at the foot of the house and includes nothing of it. All members start at zero,
// null or false unless told.
#pragma once

#include <cstdint>
#include <cstdio>

#include "common/hash.h"
#include "common/vector.h"

struct chipinfo_t;
struct symbol_t;

// Bits of the mask of --errata=.
enum : uint32_t { ERRATA_NOPS = 0x4001, ERRATA_NO_PA = 0x0011, ERRATA_NOP2 = 0x20000 };

struct options_t {
    const char *chip_name;            // upper case
    const char *user_chipinfo_path;   // -C<path>
    chipinfo_t *cur_chip;             // the loaded chip

    char **src_files;   // the file arguments, and the next one to open
    uint32_t src_count, src_next;

    const char *obj_file;               // output file
    const char *list_file, *rlf_file;   // listing, relocation listing
    const char *crf_file;               // cross-reference file
    const char *report_file;            // --opt-report=; null for none
    FILE *crf_stream;                   // null when there is none
    FILE *out_stream;                   // where the record writers write at the moment
    const char *out_file;               // its name

    bool asm_output;                               // -A: assembly text, not an object file
    bool auto_inline;                              // -auto_inline
    hash_of<const char *, uint64_t> keep_labels;   // -B<label>: 127 buckets, string keys; null until used
    uint8_t cross_ref;                             // number of bare -C options
    uint8_t structured = 1;                        // value given to alert_set_structured by -E
    int32_t form_length;                           // lines a page; 0: no page breaks
    int32_t page_width;                            // columns
    bool hex_output;                               // -H
    bool list_all;                                 // -I
    bool list_expand;                              // macro expansion lines are listed
    bool list_enabled;                             // -L
    bool list_on;                                  // listing is on at the current source position
    bool no_pa, no_inline, no_trans;
    bool optimise;   // -O
    bool opt_debug, opt_speed, opt_space;
    uint32_t errata_mask;            // --errata=
    bool line_records;               // -V: assembler lines are recorded as source lines
    bool no_locals;                  // -X: kept, and without effect on the object file
    bool lib_paths;                  // --lib
    bool maxizel;                    // --maxizel
    bool xinst;                      // --xinst: the extended instruction set
    const char *version_text = "";   // -ver=, then the text of listing headers
    int32_t radix;                   // default radix of numbers
};

extern options_t opt;
