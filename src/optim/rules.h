// rules: the names of the optimiser's rules, and for each the reason that the report gives.
//
// A rule is written by its name: opt_fired("M1", ...). One that has no row here doesn't compile.
#pragma once

#include <cstdint>
#include <string_view>

struct rule_row_t {
    std::string_view name, why;   // in `why`, {} stands for the first operand of the instruction at which the rule fires
};

// clang-format off
constexpr rule_row_t rule_rows[] = {
    {"", ""},   // no rule
    {"M1", "the next instruction can read {} itself, and W, Z and N aren't needed"},
    {"M2", "comf loads the complement at once"},
    {"M3", "W holds the other operand already"},
    {"F1", "moving {} to itself changes nothing"},
    {"F2", "the next instruction moves W on, and W isn't needed"},
    {"F3", "the next instruction moves W on, and W isn't needed"},
    {"F4", "W already holds {}"},
    {"F5", "movf is shorter, and Z and N aren't needed"},
    {"B1", "both ways lead to the same place"},
    {"B2", "one arm can always run, and the other override it"},
    {"B3", "one arm can always run, and the other override it"},
    {"B4", "one arm can always run, and the other override it"},
    {"B5", "one arm can always run, and the other override it"},
    {"B6", "a branch can test Z itself"},
    {"B7", "a branch can test C itself"},
    {"B8", "both ways end alike, so the reversed test can skip what stands between"},
    {"D1", "a skip can test the result itself, and C, Z and N aren't needed"},
    {"A1", "W is 255"},
    {"A2", "W is 0 and stays it, and Z and N aren't needed"},
    {"A4", "W is 0 and not needed afterwards"},
    {"A6", "what it does isn't needed, whether skipped or not"},
    {"A7", "what it does isn't needed"},
    {"G1", "W is 255, and Z and N aren't needed"},
    {"G2", "W is 0, and Z and N aren't needed"},
    {"G3", "W is 255"},
    {"G4", "W is 0, and Z and N aren't needed"},
    {"G5", "W and C are 0, and Z and N aren't needed"},
    {"G6", "C is 0"},
    {"G7", "W is 1"},
    {"G8", "W is 255"},
    {"G9", "W is 0, so that only C changes; Z and N aren't needed"},
    {"L1", "the next instruction does the same"},
    {"L2", "W stays as it is, and Z and N tell of it already or aren't needed"},
    {"L3", "W is 0 already, and Z and N aren't needed"},
    {"R1", "what W holds is known"},
    {"C1", "{} can return in its place"},
    {"W1", "W already holds {}"},
    {"W2", "W is 1"},
    {"W3", "W isn't needed"},
    {"K1", "BSR already holds {}"},
    {"K2", "BSR isn't needed"},
    {"V1", "{} already holds W"},
    {"V2", "the instruction before can write {} itself, and W isn't needed"},
    {"V3", "W is 0, and Z isn't needed"},
    {"V4", "W is 255"},
    {"T1", "the next instruction reads the same byte again"},
    {"T2", "the next instruction overwrites what is read"},
    {"T3", "the next instruction overwrites what is read"},
    {"J1", "control never comes here"},
    {"J2", "both ways do the same"},
    {"J3", "both ways lead to the same place"},
    {"J4", "both ways lead to the same place"},
    {"J5", "the reversed test can skip the instruction behind the goto"},
    {"J6", "the reversed test can skip the next test"},
    {"J7", "the reversed test lets the goto come last"},
    {"J8", "the bit at {} has the value already that it is given where the goto leads"},
    {"J9", "at {} stands nothing but a goto"},
    {"J10", "the next instruction does the same"},
    {"J11", "another label stands at the place of {}"},
    {"J12", "at {} stands nothing but a return"},
    {"J13", "at {} stands nothing but a goto"},
    {"J14", "{} is the next instruction"},
    {"J15", "the other test of {} decides for both"},
    {"J16", "the code at {} can stand here"},
    {"J17", "the same code stands where the goto leads"},
    {"J18", "the same code stands before another goto to the same place"},
    {"J19", "the same code stands before another goto to the same place"},
    {"branch stage", "both ways begin alike"},
    {"leading dead code", "control never comes here"},
    {"unreferenced label", "nothing refers to it"},
    {"inlining", "a copy of the function stands in its place"},
    {"inlined body", "copies stand in place of every call"},
    {"abstraction", "the same code stands in several places"},
    {"errata", "the chip fetches wrongly at such a place"},
};
// clang-format on
constexpr unsigned RULES = sizeof rule_rows / sizeof *rule_rows;

struct opt_rule_t {
    uint8_t at;   // in rule_rows
    consteval opt_rule_t(const char *name) : at(0)
    {
        while (rule_rows[at].name != name)   // past the last row, which no constant may be, where the rule has none
            at++;
    }
    explicit operator bool() const { return at != 0; }
    const rule_row_t &row() const { return rule_rows[at]; }
};
constexpr opt_rule_t NO_RULE = "";
