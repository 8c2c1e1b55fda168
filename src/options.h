// options: what the command line asks of the run.
//
// One record for the process, read everywhere; that is why it stands at the foot of the house. cmdline writes it, and when the
// command line has been read it is constant. What directives change, and all else that changes during a run, belongs to the
// module that it is about: radix and lines shown (lexutil), page (program), chip (chip), streams (record, crossref). All
// members start at zero, null or false unless told.
#pragma once

#include <cstdint>

#include "common/hash.h"
#include "common/vector.h"

// Bits of the mask of --errata=.
enum : uint32_t { ERRATA_NOPS = 0x4001, ERRATA_NO_PA = 0x0011, ERRATA_NOP2 = 0x20000 };

// A symbol that the command line defines.
struct define_t {
    const char *name;
    int64_t value;
};

struct options_t {
    const char *chip_name;            // upper case
    const char *user_chipinfo_path;   // -C<path>

    char **src_files;   // the file arguments
    uint32_t src_count;

    const char *source_name;   // --source-name=: what the source is known as, or null

    // Names of outputs, those that no option tells beside the first source. Null without a source.
    const char *obj_file;               // object file, or assembly text
    const char *object_name;            // what it will be known as: --object-name=, or obj_file
    const char *list_file, *rlf_file;   // listing, relocation listing
    const char *crf_file;               // cross-reference file
    const char *report_file;            // --opt-report=; null for none
    const char *annotation_file;        // --annotate=; null for none
    const char *dep_file;               // --depfile=; null for none
    const char *dep_target;             // what it tells of: --deptarget=, or object_name

    vec_t<const char *> include_dirs;   // --include=: searched in this order; may be null
    vec_t<const define_t *> defines;    // --define=, in their order; may be null

    bool asm_output;                               // -A: assembly text, not an object file
    bool auto_inline;                              // -auto_inline
    hash_of<const char *, uint64_t> keep_labels;   // -B<label>: 127 buckets, string keys; null until used
    uint8_t cross_ref;                             // number of bare -C options
    uint8_t structured = 1;                        // value given to alert_set_structured by -E
    int32_t form_length, page_width;               // of a page, where the source tells none; see program.h
    bool hex_output;                               // -H
    bool list_all;                                 // -I
    bool list_enabled;                             // -L
    bool no_pa, no_inline, no_trans;
    bool optimise;         // -O, without --xinst
    bool xinst_optimise;   // -O with --xinst: nodes are made as for the optimiser while the source is read, and no more
    bool opt_debug, opt_speed, opt_space;
    uint32_t errata_mask;            // --errata=
    bool line_records;               // -V: assembler lines are recorded as source lines
    bool no_locals;                  // -X: kept, and without effect on the object file
    bool lib_paths;                  // --lib
    bool maxizel;                    // --maxizel
    bool xinst;                      // --xinst: the extended instruction set
    const char *version_text = "";   // of listing headers: "ver build stamp ", with what -ver= gave
};

extern const options_t &opt;
options_t &options_to_write();   // the same record, for cmdline alone, and for tests in its place
