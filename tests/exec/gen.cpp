// gen: makes programs that end, for the comparison of what they do with and without the optimiser.
//
// A program is a few functions in several psects, each of which calls only functions that stand behind it, so that no
// call comes back to where it started. Loops count with counters that nothing else writes, jumps go forward, and
// indirect accesses keep inside an array, so every program ends. Before it does, it stores W and the status bits, for
// what is in memory is what gets compared.
//
// A function is grown from templates: shapes that the rules of the optimiser look for, with holes. A hole is filled at
// random or with another template. In a template, {name} is a hole; a digit behind the name makes it the same filling
// each time:
//   {v} a register of the access bank   {r}{A} any register, with its access word   {m} any register, by its address
//   {k} a number   {n} this loop's counter   {L} a label   {x:1,2} one of these
//   {s} one instruction   {q} a short sequence   {Q} a sequence that the program has elsewhere too   {B} a block
//   {N} a block in a loop   {t} a bit test   {skip} a skip   {ret} the way out of the function
//   {f} a function   {tail} one that is called last   and the words of `words`
// Lines are parted by "/", and a line is put into columns when it is used. One that ends in "~" belongs to the next: the
// two stay together when a program is cut down. Templates are parted by "|"; a number in front says how often
// one is taken, "!name" behind it which exclusion it falls under, and what begins with "#" is a heading.
#include "gen.h"

#include <algorithm>
#include <utility>

struct rng_t {
    uint64_t state;
    uint32_t below(size_t n)
    {
        uint64_t z = state += 0x9E3779B97F4A7C15;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
        z = (z ^ z >> 27) * 0x94D049BB133111EB;
        return static_cast<uint32_t>((z ^ z >> 31) % n);
    }
    template <typename T> const T &of(const std::vector<T> &list) { return list[below(list.size())]; }
    bool one_in(size_t n) { return below(n) == 0; }
};

struct function_t {
    std::string name;
    bool fast, funcret, inlined;
    unsigned psect;
};
struct template_t {
    unsigned weight;
    std::string text;
    exclusion excluded;
};
using table_t = std::vector<template_t>;
using fillings_t = std::map<std::string, std::string>;

struct gen_t {
    const target_t *target = nullptr;
    uint64_t allowed = 0;
    rng_t rng{};
    pieces_t pieces;
    std::string held, access;   // lines that belong to the next; the access word of the last {r}
    std::vector<function_t> functions;
    std::vector<std::string> sequences;   // for {Q}
    size_t function = 0, room = 0;        // the function being made; lines that it may still get
    unsigned labels = 0, loops = 0, depth = 0;
    int bank = -1;          // selected bank, -1 if not known
    bool skipped = false;   // the next instruction stands under a skip
    bool may(exclusion x) const { return x == X_NONE || allowed >> x & 1; }
};

static std::vector<std::string> split(const std::string &text, char mark)
{
    std::vector<std::string> list;
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        end = std::min(text.find(mark, at), text.size());
        if (const size_t from = text.find_first_not_of(" \n", at); from < end)
            list.push_back(text.substr(from, text.find_last_not_of(" \n", end - 1) + 1 - from));
    }
    return list;
}

static table_t table(const char *text)
{
    table_t table;
    for (const std::string &entry : split(text, '|')) {
        if (entry[0] == '#')
            continue;
        const size_t from = entry.find_first_not_of("0123456789 "), mark = entry.find(" !");
        table.push_back({from ? static_cast<unsigned>(std::stoul(entry)) : 1, entry.substr(from, mark - from),
                         mark == std::string::npos ? X_NONE : exclusion_find(entry.substr(mark + 2))});
    }
    return table;
}

// clang-format off
static const std::map<std::string, const char *> words = {
    {"alu", "addwf,addwf,addwfc,andwf,andwf,iorwf,xorwf,subwf,subwfb,subfwb,comf,incf,decf,movf,movf,swapf,rlcf,rrcf,rlncf,"
            "rrncf"},
    {"lit", "addlw,sublw,andlw,iorlw,xorlw,movlw,movlw"}, {"clr", "clrf,clrf,setf,negf"}, {"bit", "bcf,bsf,btg"},
    {"dsz", "decfsz,dcfsnz,incfsz,infsnz"}, {"cpf", "cpfseq,cpfsgt,cpfslt,tstfsz"}, {"bcc", "bz,bnz,bc,bnc"},
    {"logic", "andwf,iorwf,xorwf"}, {"arith", "addwf,subwf,incf,decf,comf"}, {"keep", "rlncf,rrncf,comf"},   // leave C alone
    {"go", "goto,bra"}, {"tbl", "*,*+,*+,+*,*-"}, {"port", "PORTA,PORTB"}, {"lat", "LATA,LATB,LATC"},
    {"ind", "INDF,POSTINC,POSTDEC,PREINC"}, {"i", "0,1,2"}, {"bank", "1,2"}, {"z", "0,2"}, {"d", "w,f"}, {"c", "1,2,3"},
    {"b", "0,1,2,3,4,5,6,7"}, {"bt", "btfsc,btfss"},
};
// clang-format on

// One instruction each. Those of `plain` use only the access bank, so that their text is the same everywhere.
static const table_t singles = table(R"(
12 {alu} {r},{d}{A} | 6 movf {r},w{A} | 6 movwf {r}{A} | 4 {clr} {r}{A} | 7 movlw {k} | 5 {lit} {k} | mullw {k} |
mulwf {r}{A} | 3 {bit} {r},{b}{A} | 2 movff {m},{m} | movff {m1},{m1} | 3 movff {m},WREG | 3 movff WREG,{m} | clrw | nop |
bcf STATUS,0,c | bsf STATUS,0,c | {alu} WREG,{d},c | movf PRODL,w,c | movwf PRODL,c | {clr} WREG,c | btg STATUS,{z},c |
movwf TABLAT,c | lfsr {i},array+25 | tblrd * | 15 daw !overflow | 15 {alu} a{x:0,1,2}+1,{d},c |
15 movf {port},w,c | movf {port},w,c ;volatile | movwf {lat},c ;volatile | {bit} {lat},{b},c ;volatile |
movff {port},{m} ;volatile | movff {m},{lat} ;volatile | {alu} {lat},{d},c ;volatile)");

static const table_t plain = table("4 {alu} {v},{d},c | 2 movf {v},w,c | 3 movwf {v},c | movlw {k} | {bit} {v},{b},c |"
                                   "movff {m},{m} | {lit} {k} | btfsc {v},{b},c / incf {v},f,c");
static const table_t tests = table("3 {bt} {v},{b},c | {bt} STATUS,{z},c");
static const table_t skips = table("8 {t} | {cpf} {v},c | {dsz} {v},{d},c | btfsc {port},{b},c ;volatile");

static const table_t shapes = table(R"(
40 {s} | 4 {q} | 4 {skip} / {s} | 2 {skip} / {skip} / {s} / {s} |
# What W holds | movf {v1},w,c / movff WREG,{v2} / andwf {v3},f,c / movlw {k} / iorwf {v4},w,c | movf {v1},w,c / xorlw 255 /
movwf {v2},c | movf {v1},w,c / movf {v2},w,c / {logic} {v1},{d},c | movff {m},WREG / movwf {v},c / movlw {k} |
movff {m},WREG / movff WREG,{m} / movlw {k} | 2 movff {v1},WREG / movff {v1},WREG | movff PRODL,WREG / addlw {k} |
6 movlw {x:0,255,1} / {alu} {v},{d},c / {s} | movlw 0 / bcf STATUS,0,c / addwfc {v},f,c / movf {v},f,c | bcf STATUS,0,c /
addwfc {v},{d},c | movlw 0 / {logic} {v1},f,c / movlw {k} / addwf {v2},f,c | movlw 255 / andwf {v1},{d},c / addwf {v2},f,c |
movlw {k1} / movwf {v1},c / movlw {k1} / movwf {v2},c | movlw 0 / movwf {v},c / andwf {v},f,c | movwf {v1},c / {s} /
movwf {v1},c | 2 {x:andwf,iorwf,xorwf,incf} {v1},w,c / movwf {v1},c / movlw {k} | 2 {x1:andlw,iorlw} {k1} /
{x1:andlw,iorlw} {k1} | movf {v},w,c / iorlw 0 / {bcc} {L1} / {s} / {L1}: | addlw 0 / addlw {k} | movlw 0 / andlw 0 /
addwf {v},f,c | {t} / addwf {v},w,c / addlw 1 / movlw {k} | {L1}: / movlw {k1} / movwf {v},c / {skip} / movlw {k1} /
movwf {v},c | movf STATUS,w,c~ / andlw 5 | movff STATUS,{v1}~ / movlw 5~ / andwf {v1},f,c | movf {v1},w,c / {skip} / {s} /
movwf {v1},c | movf {v1},w,c / {dsz} {v1},f,c / nop / movwf {v1},c | movf PRODL,w,c / mulwf {v},c / movwf PRODL,c |
movf TABLAT,w,c / tblrd * / movwf TABLAT,c | lfsr {i1},{v1} / movf {v1},w,c / {clr} INDF{i1},c / movwf {v1},c /
movf INDF{i1},w,c | movf {v1},w,c / {bit} {v1},{b},c / movf {v1},w,c |
# Bank selection | 2 banksel b1~ / movwf b{b},b / banksel b1~ / incf b{b},f,b | movlb {bank} / movlw {k} | movlb 1~ /
movwf b{b},b / movlb 1~ / incf b{b},f,b / movlb 2~ / incf d{b},f,b | movlw {k} / banksel b2~ / movwf b3&255,b /
movff b3,{m} / movf b3,w,b |
# Skips over jumps | {t} / goto {L1} / {L1}: | {skip} / {t} / goto {L1} / {L1}: | {skip} / goto {L1} / goto {L1} / {s} /
{L1}: | 6 {t} / goto {L1} / {bit} {v1},{b1},c / bra {L2} / {L1}: / {bit} {v1},{b1},c / {L2}: | {t} / goto {L1} / movlw {k} /
goto {L2} / {L1}: / movlw {k} / {L2}: | 3 {t} / goto {L1} / movwf {v1},c / goto {L2} / {L1}: / {x:clrf,setf,negf} {v1},c /
{L2}: | {t} / goto {L1} / swapf {v1},f,c / goto {L2} / {L1}: / movwf {v1},c / {L2}: | {t} / goto {L1} / lfsr 0,array+20 /
goto {L2} / {L1}: / lfsr 0,array+30 / {L2}: / movwf INDF0,c | 4 {alu} {v},{d},c / {bt} STATUS,{z},c / goto {L1} / {B} /
{L1}: | {t} / {ret1} / {s} / {ret1} | 4 {bt} {v1},{b1},c / {ret1} / {bit} {v1},{b1},c / {ret1} | {t} / goto {L1} / {s} /
{L1}: | {t} / goto {L1} / {t} / goto {L1} / {s} / {L1}: | {t} / goto {L1} / {ret} / {L1}: | 3 {bt} {v1},{b1},c / goto {L1} /
{s} / {s} / {L1}: / {bit} {v1},{b1},c |
# Two ways | 4 {skip} / {go} {L1} / {B} / {go} {L2} / {L1}: / {B} / {L2}: | 2 {alu} {v},{d},c / {bcc} {L1} / {B} /
{go} {L2} / {L1}: / {B} / {L2}: | 2 {bcc} {L1} / {B} / {L1}: | {arith} {v},{d},c / bn {L1} / {s} / {L1}: | 15 bov {L1} /
{s} / {L1}: !overflow | {bcc} {L1} / bc {L1} / {keep1} {v1},f,c / {s} / goto {L2} / {L1}: / {keep1} {v1},f,c / {s} / {L2}: |
bc {L1} / {keep1} {v1},f,c / {keep2} {v2},f,c / {s} / goto {L2} / {L1}: / {keep1} {v1},f,c / {keep2} {v2},f,c / {s} /
{L2}: | {t} / goto {L3} / btfsc {v1},{b1},c / goto {L1} / goto {L2} / {L3}: / {s} / btfss {v1},{b1},c / goto {L2} / {L1}: /
{B} / {L2}: | {t} / goto {L1} / {t} / goto save_{L1} / goto int_fun_{L1} / {L1}: / {s} / goto {L2} / int_fun_{L1}: / {s} /
{s} / goto {L2} / save_{L1}: / {s} / {L2}: | 2 movf {v},w,c / xorlw {k1} / btfsc STATUS,2,c / goto {L1} / xorlw {k2} /
btfsc STATUS,2,c / goto {L2} / goto {L3} / {L1}: / {q} / goto {L3} / {L2}: / {q} / goto {L3} / {L3}: |
# Branches that don't reach | {t} / goto {L1} / {bcc} {L2} / {L1}: / {s} / rept 140~ / nop~ / endm / {L2}: | {bcc} {L1} /
{B} / rept 140~ / nop~ / endm / {L1}: |
# Jumps to jumps, and code that nothing reaches | goto {L1} / {L1}: | goto {L1} / {q} / {L1}: | {t} / goto {L1} / {s} /
goto {L2} / {L1}: / goto {L3} / {L3}: / {s} / {L2}: | {bcc} {L1} / {s} / goto {L2} / {L1}: / goto {L3} / {s} / {L3}: / {s} /
{L2}: | {t} / goto {L1} / {s} / goto {L2} / {L1}: / {L2}: | {skip} / goto {L1} / {s} / goto {L2} / {L1}: / {ret} / {L2}: |
# The same tail in two places, and the same sequence in many | 2 {t} / goto {L1} / {s} / {q1} / goto {L2} / {L1}: / {s} /
{q1} / {L2}: | 2 {t} / goto {L1} / {t} / goto {L3} / {s} / {q1} / goto {L2} / {L1}: / {s} / {q1} / goto {L2} / {L3}: /
{q1} / goto {L2} / {L2}: | {t} / goto {L1} / {q1} / {ret1} / {L1}: / {s} / {q1} / {ret1} | {t} / goto {L1} / {s} / {skip} /
{q1} / goto {L2} / {L1}: / {s} / {q1} / {L2}: | {t} / goto {L1} / {s} / {q1} / goto {L2} / {L1}: / {s} / {skip} / {q1} /
{L2}: | 5 {Q} | 2 {skip} / {Q} |
# Loops | 3 movlw {c} / movwf {n1},c / {L1}: / {N} / decfsz {n1},f,c / {go} {L1} | 2 movlw {c} / movwf {n1},c / {L1}: /
{N} / decf {n1},f,c / btfss STATUS,2,c / goto {L1} / {s} | movlw {c} / movwf {n1},c / {L1}: / {N} / decf {n1},f,c /
bnz {L1} | movlw 256-{c} / movwf {n1},c / {L1}: / {N} / incf {n1},f,c / btfss STATUS,2,c / goto {L1} | movlw {c} /
movwf {n1},c / 1: / {q} / decfsz {n1},f,c / bra 1b | decf {v},{d},c / btfsc STATUS,2,c / {s} / {s} |
# Calls | 6 call {f} | rcall {f} | {skip} / call {f} | {t} / goto {L1} / call {tail} / {ret} / {L1}: | 15 call {f} /
bn {L1} / {s} / {L1}: !n-at-return | 15 {t} / goto {L1} / call {tail} / bsf 3,{b},c / {ret} / {L1}: !address-3 |
# Memory by pointer | 2 lfsr {i1},array+{x:20,21,22,30}~ / movwf {ind}{i1},c~ / {s}~ / movf {ind}{i1},{d},c~ /
{alu} {ind}{i1},{d},c~ / movff {ind}{i1},{m}~ / clrf {ind}{i1},c~ / movlw {x:0,1,5}~ / movf PLUSW{i1},w,c |
2 movlw low(table+{x:0,1,2,3})~ / movwf TBLPTRL,c~ / movlw high(table)~ / movwf TBLPTRH,c~ / clrf TBLPTRU,c / tblrd {tbl} /
tblrd {tbl} / movf TABLAT,w,c / tblrd {tbl} / {clr} TABLAT,c / movff TABLAT,{m} | asmopt off~ / {s}~ / {s}~ / asmopt on |
push~ / pop)");

// Filling.

static void put(gen_t &g, const std::string &line);
static void expand(gen_t &g, const std::string &text, fillings_t &fixed);

static const std::string &pick(gen_t &g, const table_t &table)
{
    unsigned total = 0;
    for (const template_t &t : table)
        total += g.may(t.excluded) ? t.weight : 0;
    unsigned at = g.rng.below(total);
    const template_t *t = table.data();
    for (; !g.may(t->excluded) || at >= t->weight; t++)
        at -= g.may(t->excluded) ? t->weight : 0;
    return t->text;
}

static std::string number(gen_t &g)
{
    return g.rng.one_in(3) ? std::to_string(g.rng.below(256)) : g.rng.of(split("0,0,1,1,255,255,2,128,15", ','));
}

static std::string one_of_8(gen_t &g, const char *name) { return name + std::to_string(g.rng.below(8)); }

// Selects a register's bank first if that is needed and possible.
static std::string any_register(gen_t &g)
{
    const int bank = static_cast<int>(g.rng.below(2)) + 1;
    g.access = ",c";
    if (g.rng.below(3) || (bank != g.bank && g.skipped))
        return one_of_8(g, "a");
    const char *const name = bank == 1 ? "b" : "d";
    if (bank != g.bank || g.rng.one_in(3))
        put(g, (g.rng.below(2) ? "\tbanksel\t" + one_of_8(g, name) : "\tmovlb\t" + std::to_string(bank)) + "~");
    g.access = ",b";
    return one_of_8(g, name) + (g.rng.one_in(4) ? "&255" : "");
}

static std::string sequence(gen_t &g, size_t n)
{
    gen_t sub;
    sub.rng = g.rng;
    for (fillings_t fixed; n; n--)
        expand(sub, pick(sub, plain), fixed);
    g.rng = sub.rng;
    std::string text = pieces_text(sub.pieces);
    std::replace(text.begin(), text.end(), '\n', '/');
    return text;
}

// For `rcall` in the same psect; neither it nor a last call is fast. Empty if there is none.
static std::string callee(gen_t &g, bool same_psect, bool last)
{
    std::vector<std::string> list;
    for (size_t i = g.function + 1; i < g.functions.size(); i++)
        if (const function_t &f = g.functions[i]; !(same_psect && f.psect != g.functions[g.function].psect) &&
                                                  !(f.fast && (same_psect || (last && !g.may(X_FAST_CALL)))))
            list.push_back(f.name + (f.fast ? ",f" : ""));
    return list.empty() ? "" : list[g.rng.below(1 + g.rng.below(list.size()))];   // the next one rather
}

static std::string way_out(gen_t &g)
{
    const function_t &f = g.functions[g.function];
    return g.function == 0                 ? "\tgoto\tfinish"
           : f.fast                        ? "\treturn\tf"
           : g.rng.one_in(3) && !g.skipped ? "\tretlw\t" + number(g)
           : f.funcret                     ? "\treturn\t;funcret"
                                           : "\treturn";
}

static void block(gen_t &g, unsigned loops)
{
    g.depth++;
    g.loops += loops;
    for (unsigned n = 1 + g.rng.below(3); n; n--) {
        fillings_t fixed;
        expand(g, g.depth > 3 || g.room == 0 ? "{s}" : pick(g, shapes), fixed);
    }
    g.loops -= loops;
    g.depth--;
}

// What a hole becomes. One with a digit behind its name has the same filling each time.
static std::string fill(gen_t &g, const std::string &hole, fillings_t &fixed)
{
    const std::string key = hole.substr(0, hole.find(':')), name = key.substr(0, key.find_last_not_of("0123456789") + 1);
    const auto it = words.find(name);
    std::string text;
    if (key != name && fixed.contains(key))
        return fixed[key];
    if (key != hole || it != words.end())
        text = g.rng.of(split(key != hole ? hole.substr(key.size() + 1) : it->second, ','));
    else
        switch (name[0]) {
        case 'v': text = one_of_8(g, "a"); break;
        case 'm': text = one_of_8(g, g.rng.below(3) ? "a" : g.rng.below(2) ? "b" : "d"); break;
        case 'k': text = number(g); break;
        case 'r': text = name == "r" ? any_register(g) : way_out(g); break;
        case 'A': text = g.access; break;
        case 'n': text = "n" + std::to_string(g.function) + "_" + std::to_string(g.loops); break;
        case 'q': text = sequence(g, 2 + g.rng.below(3)); break;
        case 'Q': text = g.rng.of(g.sequences); break;
        default: text = "at" + std::to_string(++g.labels); break;   // {L}
        }
    return key != name ? fixed[key] = text : text;
}

static void expand_line(gen_t &g, const std::string &line, fillings_t &fixed)
{
    const std::string tilde = line.ends_with('~') ? "~" : "", whole = line.substr(0, line.size() - tilde.size());
    const std::string hole = whole[0] == '{' && whole.find('}') == whole.size() - 1 ? whole.substr(1, whole.size() - 2) : "";
    fillings_t none;
    if (hole == "B" || hole == "N")
        return block(g, hole == "N");
    if (hole == "s" || hole == "t" || hole == "skip")
        return expand(g, pick(g, hole == "s" ? singles : hole == "t" ? tests : skips) + tilde, none);
    if (!hole.empty())
        return expand(g, fill(g, hole, fixed), none);
    std::string out;
    for (size_t at = 0, end; at < whole.size(); at = end + 1) {
        const size_t open = std::min(whole.find('{', at), whole.size());
        out += whole.substr(at, open - at);
        end = std::min(whole.find('}', open), whole.size());
        const std::string name = open < end ? whole.substr(open + 1, end - open - 1) : "";
        if (name == "f" || name == "tail") {
            const std::string to = callee(g, whole.find("rcall") != std::string::npos, name == "tail");
            if (to.empty())
                return put(g, "\tnop");
            out += to;
        } else if (!name.empty()) {
            out += fill(g, name, fixed);
        }
    }
    // Nothing reads what an exclusion, or the mark of a return, makes unsure before it is set again.
    const bool calls = whole.find("{f}") != std::string::npos;
    const char *const again = calls && out.ends_with(",f") && !g.may(X_FAST_CALL) ? "bcf STATUS,0,c~ / movf last_w,w,c"
                              : calls && g.functions[0].funcret                   ? "movf last_w,f,c"
                                                                                  : nullptr;
    put(g, out + (again ? "~" : tilde));
    if (again)
        expand(g, again + tilde, none);
}

static void expand(gen_t &g, const std::string &text, fillings_t &fixed)
{
    for (std::string line : split(text, '/')) {
        if (!line.ends_with(':') && line[0] != '\t' && (line[0] != '{' || line.find('}') + 2 < line.size())) {
            line.insert(0, "\t");
            if (const size_t space = line.find(' '); space != std::string::npos)
                line[space] = '\t';
        }
        expand_line(g, line, fixed);
    }
}

// A finished line.
static void put(gen_t &g, const std::string &line)
{
    const bool joined = line.ends_with('~');
    g.held += (joined ? line.substr(0, line.size() - 1) : line) + "\n";
    if (!joined)
        g.pieces.push_back(std::exchange(g.held, ""));
    g.room -= g.room > 0;
    const std::string word = line[0] == '\t' ? line.substr(1, line.find('\t', 1) - 1) : "";
    g.skipped = word.ends_with("sz") || word.ends_with("snz") || word.starts_with("btfs") || word.starts_with("cpfs");
    if (word == "banksel" || word == "movlb")
        g.bank = word == "movlb" ? line[7] - '0' : line[9] == 'b' ? 1 : 2;
    else if (word.empty() || word.ends_with("call"))
        g.bank = -1;
}

// Programs.

static void prologue(gen_t &g)
{
    std::string text = "\tprocessor\t" + g.target->name + "\n";
    const auto reserve = [&](const std::string &name, int n) {
        for (int i = 0; i < n; i++)
            text += name + std::to_string(i) + ":\tds\t1\n";
    };
    for (const auto &[name, address] : g.target->sfr)
        text += name + "\tequ\t" + std::to_string(address) + "\n";
    text += "\tpsect\tvars,class=COMRAM,space=1,delta=1\nlast_w:\tds\t1\nlast_status:\tds\t1\n";
    reserve("a", 8);
    for (size_t f = 0; f < g.functions.size(); f++)
        reserve("n" + std::to_string(f) + "_", 5);
    text += "\tpsect\tvars1,class=BANK1,space=1,delta=1\n";
    reserve("b", 8);
    text += "\tpsect\tvars2,class=BANK2,space=1,delta=1\n";
    reserve("d", 8);
    g.pieces.push_back(text +
                       "\tpsect\tarrays,class=BANK3,space=1,delta=1\narray:\tds\t64\n"
                       "\tpsect\ttables,class=CONST,abs,ovrld,delta=1\n\torg\t" +
                       std::to_string(TABLE_ADDRESS) +
                       "\ntable:\n\tdb\t3,1,4,1,5,9,2,6,5,3\n"
                       "\tpsect\tresetVec,class=RESETVEC,reloc=2,delta=1\n\tgoto\tmain\n\tcallstack\t1\n\tglobal\tmain\n");
}

static void epilogue(gen_t &g)
{
    std::string text = "finish:\n\tmovwf\tlast_w,c\n";
    for (const std::string bit : {"0", "2"})
        if (bit == "0" || !g.functions[0].funcret)
            text += "\tbtfsc\tSTATUS," + bit + ",c\n\tbsf\tlast_status," + bit + ",c\n\tbtfss\tSTATUS," + bit +
                    ",c\n\tbcf\tlast_status," + bit + ",c\n";
    g.pieces.push_back(text + "\taddlw\t1\n\tsleep\n");   // the addition makes the bits dead
}

static void make_function(gen_t &g, size_t i, const std::string &psect)
{
    const function_t &f = g.functions[i];
    g.function = i;
    g.bank = -1;
    g.room = i == 0 ? 60 : f.inlined ? 6 : 5 + g.rng.below(40);
    g.pieces.push_back("\tpsect\t" + psect + "\n" + f.name + ":\n");
    if (f.fast && !g.may(X_FAST_INLINE))
        g.pieces.back() += "\tmovff\ta0,a1\n\tmovff\ta1,a2\n";   // too long to be inlined unasked
    do
        block(g, 0);
    while (g.room && (i == 0 || !g.rng.one_in(4)));
    if (i == 0)
        epilogue(g);
    else
        put(g, way_out(g));
    g.pieces.push_back("__end_of_" + f.name + ":\n");
}

pieces_t gen_program(uint64_t seed, const target_t &target, uint64_t allowed)
{
    gen_t g;
    g.target = &target;
    g.allowed = allowed;
    g.rng.state = seed;
    const unsigned count = 2 + g.rng.below(5), shared = 1 + g.rng.below(3);
    const bool funcret = g.rng.one_in(4);
    for (unsigned i = 0; i < count; i++) {
        const bool inlined = i > 0 && g.rng.one_in(3), fast = i > 0 && !inlined && g.rng.one_in(6);
        g.functions.push_back(
            {i == 0 ? "main" : "f" + std::to_string(i), fast, funcret, inlined, inlined ? shared + i : g.rng.below(shared)});
    }
    for (int i = 0; i < 3; i++)
        g.sequences.push_back(sequence(g, 4 + g.rng.below(4)));
    prologue(g);
    std::map<unsigned, std::string> psects;
    for (const function_t &f : g.functions) {
        std::string &flags = psects[f.psect];
        if (flags.empty()) {
            static const std::vector<std::string> lists = {"peep", "jump", "pa:jump", "inline:pa:jump:peep:remove"};
            flags = "text" + std::to_string(f.psect) + ",class=CODE,reloc=2,delta=1" + (f.inlined ? ",inline" : "");
            if (g.rng.one_in(6))
                flags += ",minocg,group=" + std::to_string(1 + g.rng.below(2));
            if (!f.inlined && g.rng.one_in(8))
                flags += ",optim=" + g.rng.of(lists);
        }
        if (&f != &g.functions[0] && g.rng.below(2) && flags.find("inline") == std::string::npos)   // one that goes is told
            g.pieces[0] += "\tglobal\t" + f.name + ",__end_of_" + f.name + "\n";
    }
    for (size_t i = 0; i < count; i++)
        make_function(g, i, psects[g.functions[i].psect]);
    return g.pieces;
}

static void begin_main(gen_t &g, const target_t &target)
{
    g.target = &target;
    g.allowed = UINT64_MAX;
    g.functions.push_back({"main", false, false, false, 0});
    prologue(g);
    g.pieces.push_back("\tpsect\ttext,class=CODE,reloc=2,delta=1\nmain:\n");
}

pieces_t gen_frame(const target_t &target)
{
    gen_t g;
    begin_main(g, target);
    epilogue(g);
    return g.pieces;
}

pieces_t gen_around(const std::string &statements, const target_t &target)
{
    gen_t g;
    fillings_t none;
    begin_main(g, target);
    expand(g, statements, none);
    epilogue(g);
    return g.pieces;
}

std::string pieces_text(const pieces_t &pieces)
{
    std::string text;
    for (const std::string &piece : pieces)
        text += piece;
    return text;
}
