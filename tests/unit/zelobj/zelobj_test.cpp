// The reader of object files, against files put together by hand.
//
// Test cases of the whole program trust zelobj, so its own tests must not come from it: the bytes below are written out,
// with texts between quotes, and only the frame of a record is made by a function.
#include "zelobj.h"

#include <gtest/gtest.h>

using std::string;

// "0A 'text' 00" to bytes.
static string hex(const string &text)
{
    string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == ' ')
            continue;
        if (text[i] == '\'') {
            size_t end = text.find('\'', i + 1);
            out += text.substr(i + 1, end - i - 1);
            i = end;
        } else {
            out += static_cast<char>(std::stoi(text.substr(i++, 2), nullptr, 16));
        }
    }
    return out;
}

static string rec(int type, const string &body)
{
    string bytes = hex(body);
    return string{static_cast<char>(bytes.size()), static_cast<char>(bytes.size() >> 8), static_cast<char>(type)} + bytes;
}

static zo_file read(const string &bytes)
{
    // An exact copy on the heap, kept until the end, so that the sanitizer sees each byte read beyond it.
    static std::vector<std::vector<uint8_t>> kept;
    kept.emplace_back(bytes.begin(), bytes.end());
    return zo_read(kept.back());
}

static const string IDENT = rec(ZO_IDENT, "00 01 02 03 00 01 'Z8' 00 03 0B"), END = rec(ZO_END, "00 00");
static const string PSECT_T = rec(ZO_PSECT, "10 00 't' 00"), TEXT_T = rec(ZO_TEXT, "00000000 't' 00 00 0E");

static string problems(const string &bytes)
{
    string all;
    for (const string &p : zo_verify(read(bytes)))
        all += p + "\n";
    return all;
}

TEST(Zelobj, Records)
{
    string bytes = hex("10 00 07  00 01 02 03 00 01 'ZEL8K10' 00 03 0B") + rec(ZO_PSECT, "30 00 't' 00") +
                   rec(ZO_XPSECT, "00010000 0200 0000 00 02 0000 't' 00 'CODE' 00 00") + rec(ZO_PSECT, "00 14 'b c' 00") +
                   rec(ZO_XPSECT, "00000000 0000 0000 01 01 0000 'b c' 00 00 't' 00") + rec(ZO_PSECT, "D0 00 00") +
                   rec(ZO_PSECTBOUND, "0D D0 00 00000000 10000000 00 01 00 00") +
                   rec(ZO_SYM, "04000000 1000 't' 00 'main' 00  20000000 0700 00 'n' 00  00000000 1600 00 'foo' 00"
                               "00000000 0600 00 'bar' 00  01000000 1800 'main' 00 'al' 00  FFFFFFFF 1000 00 'm1' 00") +
                   rec(ZO_SYM, "00000000 0500 00 'a.asm' 00  01000000 0500 00 'b.asm' 00  06000000 0400 't' 00 '12' 00"
                               "00000000 0300 't' 00 'odd' 00") +
                   rec(ZO_TEXT, "10000000 't' 00  00 0E 00 EF 00 F0 41") +
                   rec(ZO_RELOC, "0000 31 20 'foo' 00 03 01000000 04 01 00"   // low(foo+1)
                                 "0200 31 03 FF000000 03 01000000 10 't' 00 09 0A 00"
                                 "0400 FC 03 09000000 20 'foo' 00 09 00"
                                 "0400 30 13 'bit number' 00 03 01000000 20 'n' 00 05 03 07000000 12"
                                 "0700 30 13 'at end' 00 20 'n' 00 20 'foo' 00 12") +
                   rec(ZO_TEXT, "00000000 'b c' 00 000102030405060708090A0B0C0D0E0F10") +
                   rec(ZO_RELOC, "0100 12 'b c' 00  0F00 EC 'foo' 00") + END;
    zo_file file = read(bytes);
    EXPECT_TRUE(file.decoded());
    EXPECT_EQ(zo_print(file, {}), R"(IDENT 16 bytes
    chip ZEL8K10, version 3.11, byte order 0 1 2 3, 0 1
PSECT 4 bytes
    psect t, flags global pure
XPSECT 20 bytes
    psect t, size 0x100, reloc 2, space 0, delta 2, class CODE, with -
PSECT 6 bytes
    psect "b c", flags bit note
XPSECT 19 bytes
    psect "b c", size 0, reloc 0, space 1, delta 1, class -, with t
PSECT 3 bytes
    psect "", flags global ovrld abs
PSECTBOUND 15 bytes
    psect "", flags global ovrld abs, base 0, top 0x10, space 0, delta 1, class -
SYM 68 bytes
    global main = t+4
    local n = 0x20
    undefined foo
    undefined local bar
    alias al = main+1
    global m1 = 0xFFFFFFFF
SYM 49 bytes
    file "a.asm"
    file "b.asm", value 1
    line 12 at t+6
    flags 0x03 odd = t+0
TEXT 13 bytes
    psect t, offset 0x10, 7 data bytes
    0010  0E00            movlw   0
          reloc +0, 1 byte: complex low (1 + foo)
    0012  EF00 F000       goto    0
          reloc +0, 1 byte: complex (psect t shr 1) & 0xFF
          reloc +2, 12 bits: complex foo shr 9
          reloc +2: range check "bit number", value n - 1, limit 7
    0016  41              db      0x41
RELOC 100 bytes
    4 entries, shown above
    reloc +7: range check "at end", value n, limit foo
TEXT 25 bytes
    psect "b c", offset 0, 17 data bytes
    0000  00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F
          reloc +1, 2 bytes: simple psect "b c"
          reloc +0xF, 12 bits: simple symbol foo
    0010  10
RELOC 14 bytes
    2 entries, shown above
END 2 bytes
)");
    EXPECT_EQ(zo_verify(file), std::vector<string>{"record 9 (SYM): symbol odd has flags 0x03"});
}

TEST(Zelobj, Malformed)
{
    const struct {
        string bytes;
        const char *error;
    } frames[] = {
        {hex("00 00 18"), "Unknown record type: 24"},
        {hex("01 02 03"), "Record too long: \"RELOC\" (513)"},
        {hex("05 00"), "file ends inside a record's head"},
        {hex("00 02 11") + string(512, 'x'), ""},
    };
    for (auto &f : frames)
        EXPECT_EQ(read(f.bytes).error, f.error);
    const struct {
        int type;
        const char *body, *error;
    } bodies[] = {
        {ZO_PSECT, "10 00 't' 00 00", "1 bytes too many"},
        {ZO_SYM, "00000000 1000 00 'a' 00 00", "body ends inside a number"},
        {ZO_FNINFO, "07 'f' 00", "unknown FNINFO subcode 7"},
        {ZO_RELOC, "0000 41 'a' 00", "unknown relocation type 0x41"},
        {ZO_RELOC, "0000 31 15 00", "unknown postfix token 21"},
        {ZO_RELOC, "0000 31 20 'a' 00 04 00", "postfix token 4 lacks an operand"},
        {ZO_RELOC, "0000 30 12", "range check without its opener"},
        {ZO_RELOC, "0000 30 13 'n' 00 20 'a' 00 12", "postfix code leaves 1 values, not 2"},
    };
    for (auto &b : bodies)
        EXPECT_EQ(read(rec(b.type, b.body)).records.at(0).error, b.error) << b.body;
}

TEST(Zelobj, Verify)
{
    EXPECT_EQ(problems(IDENT + PSECT_T + TEXT_T + rec(ZO_RELOC, "0000 12 't' 00 0100 D7 't' 00") + END), "");
    const struct {
        string middle;
        const char *problem;
    } faults[] = {
        {PSECT_T + PSECT_T, "two PSECT records for psect t"},
        {TEXT_T, "record 2 (TEXT): no PSECT record for psect t"},
        {PSECT_T + TEXT_T + rec(ZO_RELOC, "0100 12 't' 00"), "record 4 (RELOC): entry at 1 lies outside the TEXT"},
        {PSECT_T + TEXT_T + rec(ZO_RELOC, "0000 21 't' 00"), "record 4 (RELOC): no SYM entry for symbol t"},
        {PSECT_T + TEXT_T + rec(ZO_SEGMENT, "00") + rec(ZO_RELOC, "0000 11 't' 00"),
         "record 5 (RELOC): not directly behind a TEXT with data"},
        {rec(ZO_SYM, "00000000 1800 'q' 00 'a' 00"), "record 2 (SYM): no SYM entry for symbol q"},
        {rec(ZO_PSECT, "10 00 'u' 00") + rec(ZO_XPSECT, "00000000 0000 0000 00 01 0000 't' 00 00 00"),
         "record 3 (XPSECT): out of place"},
        {rec(ZO_LR_TEXT, "'a'") + PSECT_T, "record 3 (PSECT): has no place in a relocation listing"},
        {hex("FE 01 11") + string(510, 'x'), "record 2 (LR_TEXT): body of 510 bytes"},
    };
    for (auto &f : faults)
        EXPECT_NE(problems(IDENT + f.middle + END).find(f.problem), string::npos) << f.problem;
    EXPECT_EQ(problems(PSECT_T),
              "record 1 (PSECT): the first record isn't IDENT\nrecord 1 (PSECT): the last record isn't END\n");
}

TEST(Zelobj, Disassembly)
{
    const struct {
        const char *bytes, *text;
        unsigned words;
    } rows[] = {
        {"00 F0", "nop", 1},
        {"FF FF", "dw      0xFFFF", 1},
        {"FF 00", "reset", 1},
        {"0F 00", "tblwt   +*", 1},
        {"12 5E", "subwf   0x12,f,c", 1},
        {"05 03", "mulwf   5,b", 1},
        {"80 BB", "btfsc   0x80,5,b", 1},
        {"FF E2", "bc      0x100", 1},
        {"00 D4", "bra     0xFFFFF902", 1},
        {"FF DB", "rcall   0x900", 1},
        {"83 E8", "addfsr  2,3", 1},
        {"08 EA", "pushl   8", 1},
        {"20 C1 30 F2", "movff   0x120,0x230", 2},
        {"20 C1 30 02", "dw      0xC120", 1},
        {"61 00 03 F0 45 F3", "movffl  0x400,0x3345", 3},
        {"02 00 FE F1 45 F3", "movsfl  [0x7F],0x2345", 3},
        {"12 EB 45 F3", "movsf   [0x12],0x345", 2},
        {"92 EB 13 F0", "movss   [0x12],[0x13]", 2},
        {"92 EB 93 F0", "dw      0xEB92", 1},
        {"11 EE 23 F0", "lfsr    1,0x123", 2},
        {"11 EE 23 F1", "lfsr    1,0x523", 2},
        {"34 ED 12 F0", "call    0x2468,f", 2},
        {"FF EF FF FF", "goto    0x1FFFFE", 2},
    };
    for (auto &r : rows) {
        string s = hex(r.bytes);
        std::vector<uint8_t> code(s.begin(), s.end());
        zo_instruction in = zo_disassemble(code, 0x100, false);
        EXPECT_EQ(in.text, r.text) << r.bytes;
        EXPECT_EQ(in.words, r.words) << r.bytes;
    }
    EXPECT_EQ(zo_disassemble(std::vector<uint8_t>{0x11, 0xEE, 0x23, 0xF0}, 0, true).text, "lfsr    1,0x423");
}
