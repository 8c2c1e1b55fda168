// annotation: what became of each line of the source: places, words, cycles, and what the optimiser did.
//
// The record that the writers of --annotate= show. It lies beside `srclines`, whose lines it goes by.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "code/list.h"
#include "code/srclines.h"

struct shown_word_t {
    uint64_t value;
    uint8_t bytes;   // 0: a number without a width, which a symbol stands for
    bool open;       // the linker fills it in
};

// What one or several nodes of a line make, at one place.
struct shown_row_t {
    uint32_t line;   // NO_LINE: the optimiser made it, ahead of everything in its psect
    const symbol_t *psect;
    uint64_t address;      // in units of the psect
    uint8_t rest;          // bytes from there
    bool placed;           // it has an address; a definition has none
    uint8_t least, most;   // instruction cycles; 0: it doesn't run
    uint32_t word, word_count;
    uint64_t reserved;   // bytes that are passed over or padded, without words
    const char *text;    // of an instruction that stands in no line; else null
};

enum fate_t : uint8_t { FATE_KEPT, FATE_ADDED, FATE_MOVED, FATE_REPLACED, FATE_DELETED };

struct shown_note_t {
    uint32_t line;   // as in a row
    fate_t fate;     // KEPT: it tells why nothing was done
    int64_t bytes;   // that the program has become longer
    std::string text;
};

struct annotation_t {
    std::vector<shown_row_t> rows;     // by line, and in a line as they lie in memory
    std::vector<shown_note_t> notes;   // by line, and in a line by time
    std::vector<shown_word_t> words;
    std::vector<uint32_t> row_at, note_at;                        // of each line the first, and one behind the last line
    std::vector<bool> dead;                                       // lines in arms that don't count
    std::vector<fate_t> fates;                                    // of the lines' instructions
    std::unordered_map<const symbol_t *, uint32_t> definitions;   // the line

    std::vector<uint32_t> lines, reading_at;   // the lines by reading, and of each reading the first

    std::span<const uint32_t> lines_of(uint32_t reading) const;
    std::span<const shown_row_t> rows_of(uint32_t line) const;   // also of NO_LINE
    std::span<const shown_note_t> notes_of(uint32_t line) const;
};

// Takes down what the optimiser may take away: which line defines a symbol, which arms count. All conditions are known.
void annotation_begin();
// All psects are sized, and changes_end has been called.
annotation_t annotation_make();

// The line where the symbol of this name is defined, or NO_LINE.
uint32_t annotation_definition(const annotation_t &a, std::string_view name);
