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
//   {k} a number   {b} a bit   {d} a destination   {n} this loop's counter   {c} rounds of a loop   {L} a label
//   {s} one instruction   {q} a short sequence   {Q} a sequence that the program has elsewhere too   {B} a block
//   {N} a block in a loop   {t} a bit test   {skip} a skip   {ret} the way out of the function
//   {f} a function   {tail} one that is called last   and the words of `words`
// Lines are parted by "/", and a line is put into columns when it is used. One that ends in "~" belongs to the next: the
// two stay together when a program is cut down.
#include "gen.h"

#include <algorithm>

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

struct function_t { std::string name; bool fast, funcret, inlined; unsigned psect; };

struct template_t { unsigned weight; const char *text; exclusion excluded = X_NONE; };

struct gen_t {
    const target_t *target = nullptr;
    uint64_t allowed = 0;
    rng_t rng{};
    pieces_t pieces;
    std::string held;                       // lines that belong to the next
    std::vector<function_t> functions;
    std::vector<std::string> sequences;     // for {Q}
    size_t function = 0, room = 0;          // the function being made; lines that it may still get
    unsigned labels = 0, loops = 0, depth = 0;
    int bank = -1;                          // selected bank, -1 if not known
    bool skipped = false;                   // the next instruction stands under a skip
    bool may(exclusion x) const { return x == X_NONE || allowed >> x & 1; }
};

using fillings_t = std::map<std::string, std::string>;

static const std::map<std::string, std::vector<std::string>> words = {
    {"alu", {"addwf", "addwf", "addwfc", "andwf", "andwf", "iorwf", "xorwf", "subwf", "subwfb", "subfwb",
             "comf",  "incf",  "decf",   "movf",  "movf",  "swapf", "rlcf",  "rrcf",  "rlncf",  "rrncf"}},
    {"lit", {"addlw", "sublw", "andlw", "iorlw", "xorlw", "movlw", "movlw"}},
    {"clr", {"clrf", "clrf", "setf", "negf"}},
    {"bit", {"bcf", "bsf", "btg"}},
    {"dsz", {"decfsz", "dcfsnz", "incfsz", "infsnz"}},
    {"cpf", {"cpfseq", "cpfsgt", "cpfslt", "tstfsz"}},
    {"bcc", {"bz", "bnz", "bc", "bnc"}},
    {"logic", {"andwf", "iorwf", "xorwf"}},
    {"arith", {"addwf", "subwf", "incf", "decf", "comf"}},
    {"keep", {"rlncf", "rrncf", "comf"}},   // leave C alone
    {"go", {"goto", "bra"}},
    {"tbl", {"*", "*+", "*+", "+*", "*-"}},
    {"port", {"PORTA", "PORTB"}},
    {"lat", {"LATA", "LATB", "LATC"}},
    {"ind", {"INDF", "POSTINC", "POSTDEC", "PREINC"}},
    {"i", {"0", "1", "2"}},
    {"bank", {"1", "2"}},
    {"z", {"0", "2"}},   // C and Z in status
};

// One instruction each.
static const template_t singles[] = {
    {12, "{alu} {r},{d}{A}"}, {6, "movf {r},w{A}"}, {6, "movwf {r}{A}"}, {4, "{clr} {r}{A}"},
    {7, "movlw {k}"}, {5, "{lit} {k}"}, {1, "mullw {k}"}, {1, "mulwf {r}{A}"},
    {3, "{bit} {r},{b}{A}"}, {2, "movff {m},{m}"}, {1, "movff {m1},{m1}"}, {3, "movff {m},WREG"},
    {3, "movff WREG,{m}"}, {1, "clrw"}, {1, "nop"}, {1, "bcf STATUS,0,c"}, {1, "bsf STATUS,0,c"},
    {1, "{alu} WREG,{d},c"}, {1, "movf PRODL,w,c"},
    {1, "movwf PRODL,c"}, {1, "{clr} WREG,c"}, {1, "btg STATUS,{z},c"}, {1, "movwf TABLAT,c"},
    {1, "lfsr {i},array+25"}, {1, "tblrd *"},
    {15, "daw", X_OVERFLOW}, {15, "{alu} a{k:0,1,2}+1,{d},c", X_TWO_NAMES}, {15, "movf {port},w,c", X_UNMARKED_PORT},
    {1, "movf {port},w,c ;volatile"}, {1, "movwf {lat},c ;volatile"}, {1, "{bit} {lat},{b},c ;volatile"},
    {1, "movff {port},{m} ;volatile"}, {1, "movff {m},{lat} ;volatile"}, {1, "{alu} {lat},{d},c ;volatile"},
};

static const template_t skips[] = {
    {6, "btfsc {v},{b},c"}, {6, "btfss {v},{b},c"}, {2, "btfsc STATUS,{z},c"}, {2, "btfss STATUS,{z},c"},
    {2, "{cpf} {v},c"}, {2, "{dsz} {v},{d},c"}, {1, "btfsc {port},{b},c ;volatile"},
};

static const template_t shapes[] = {
    {40, "{s}"},
    {4, "{q}"},
    {4, "{skip} / {s}"},
    {2, "{skip} / {skip} / {s} / {s}"},
    // What W holds.
    {1, "movf {v1},w,c / movff WREG,{v2} / andwf {v3},f,c / movlw {k} / iorwf {v4},w,c"},
    {1, "movf {v1},w,c / xorlw 255 / movwf {v2},c"},
    {1, "movf {v1},w,c / movf {v2},w,c / {logic} {v1},{d},c"},
    {1, "movff {m},WREG / movwf {v},c / movlw {k}"},
    {1, "movff {m},WREG / movff WREG,{m} / movlw {k}"},
    {2, "movff {v1},WREG / movff {v1},WREG"},
    {1, "movff PRODL,WREG / addlw {k}"},
    {2, "movlw 0 / {alu} {v},{d},c / {s}"},
    {2, "movlw 255 / {alu} {v},{d},c / {s}"},
    {2, "movlw 1 / {alu} {v},{d},c / {s}"},
    {1, "movlw 0 / bcf STATUS,0,c / addwfc {v},f,c / movf {v},f,c"},
    {1, "bcf STATUS,0,c / addwfc {v},{d},c"},
    {1, "movlw 0 / {logic} {v1},f,c / movlw {k} / addwf {v2},f,c"},
    {1, "movlw 255 / andwf {v1},{d},c / addwf {v2},f,c"},
    {1, "movlw {k1} / movwf {v1},c / movlw {k1} / movwf {v2},c"},
    {1, "movlw 0 / movwf {v},c / andwf {v},f,c"},
    {1, "movwf {v1},c / {s} / movwf {v1},c"},
    {1, "{logic} {v1},w,c / movwf {v1},c / movlw {k}"},
    {1, "incf {v1},w,c / movwf {v1},c / movlw {k}"},
    {1, "andlw {k1} / andlw {k1}"},
    {1, "iorlw {k1} / iorlw {k1}"},
    {1, "movf {v},w,c / iorlw 0 / "
        "{bcc} {L1} / {s} / {L1}:"},
    {1, "addlw 0 / addlw {k}"},
    {1, "movlw 0 / andlw 0 / addwf {v},f,c"},
    {1, "{t} / addwf {v},w,c / "
        "addlw 1 / movlw {k}"},
    {1, "{L1}: / movlw {k1} / movwf {v},c / {skip} / movlw {k1} / movwf {v},c"},
    {1, "movf STATUS,w,c~ / andlw 5"},
    {1, "movff STATUS,{v1}~ / movlw 5~ / andwf {v1},f,c"},
    {1, "movf {v1},w,c / {skip} / {s} / movwf {v1},c"},
    {1, "movf {v1},w,c / {dsz} {v1},f,c / nop / movwf {v1},c"},
    {1, "movf PRODL,w,c / mulwf {v},c / movwf PRODL,c"},
    {1, "movf TABLAT,w,c / tblrd * / movwf TABLAT,c"},
    {1, "lfsr {i1},{v1} / movf {v1},w,c / {clr} INDF{i1},c / movwf {v1},c / movf INDF{i1},w,c"},
    {1, "movf {v1},w,c / {bit} {v1},{b},c / movf {v1},w,c"},
    // Bank selection.
    {2, "banksel b1~ / movwf b{b},b / banksel b1~ / incf b{b},f,b"},
    {1, "movlb {bank} / movlw {k}"},
    {1, "movlb 1~ / movwf b{b},b / movlb 1~ / incf b{b},f,b / movlb 2~ / incf d{b},f,b"},
    {1, "movlw {k} / banksel b2~ / movwf b3&255,b / movff b3,{m} / movf b3,w,b"},
    // Skips over jumps.
    {1, "{t} / goto {L1} / {L1}:"},
    {1, "{skip} / {t} / goto {L1} / {L1}:"},
    {1, "{skip} / goto {L1} / goto {L1} / {s} / {L1}:"},
    {1, "{t} / goto {L1} / bsf {v1},{b1},c / bra {L2} / {L1}: / bcf {v1},{b1},c / {L2}:"},
    {1, "{t} / goto {L1} / bcf {v1},{b1},c / bra {L2} / {L1}: / bsf {v1},{b1},c / {L2}:"},
    {1, "{t} / goto {L1} / movlw {k} / goto {L2} / {L1}: / movlw {k} / {L2}:"},
    {1, "{t} / goto {L1} / movwf {v1},c / goto {L2} / {L1}: / clrf {v1},c / {L2}:"},
    {1, "{t} / goto {L1} / movwf {v1},c / goto {L2} / {L1}: / setf {v1},c / {L2}:"},
    {1, "{t} / goto {L1} / swapf {v1},f,c / goto {L2} / {L1}: / movwf {v1},c / {L2}:"},
    {1, "{t} / goto {L1} / movwf {v1},c / goto {L2} / {L1}: / negf {v1},c / {L2}:"},
    {1, "{t} / goto {L1} / lfsr 0,array+20 / goto {L2} / {L1}: / lfsr 0,array+30 / {L2}: / movwf INDF0,c"},
    {2, "{alu} {v},{d},c / btfsc STATUS,{z},c / goto {L1} / {B} / {L1}:"},
    {2, "{alu} {v},{d},c / btfss STATUS,{z},c / goto {L1} / {B} / {L1}:"},
    {1, "{t} / {ret1} / {s} / {ret1}"},
    {1, "btfsc {v1},{b1},c / {ret} / bcf {v1},{b1},c / {ret}"},
    {1, "{t} / goto {L1} / {s} / {L1}:"},
    {1, "{t} / goto {L1} / {t} / goto {L1} / {s} / {L1}:"},
    {1, "{t} / goto {L1} / {ret} / {L1}:"},
    {1, "btfss {v1},{b1},c / goto {L1} / {s} / {s} / {L1}: / bcf {v1},{b1},c"},
    {1, "btfsc {v1},{b1},c / goto {L1} / {s} / {s} / {L1}: / bsf {v1},{b1},c"},
    {1, "{t} / goto {L1} / {bit} {v1},{b1},c / bra {L2} / {L1}: / {bit} {v1},{b1},c / {L2}:"},
    {1, "btfss {v1},{b1},c / goto {L1} / {s} / {s} / {L1}: / btg {v1},{b1},c"},
    // Two ways.
    {4, "{skip} / {go} {L1} / {B} / {go} {L2} / {L1}: / {B} / {L2}:"},
    {2, "{alu} {v},{d},c / {bcc} {L1} / {B} / {go} {L2} / {L1}: / {B} / {L2}:"},
    {2, "{bcc} {L1} / {B} / {L1}:"},
    {1, "{arith} {v},{d},c / bn {L1} / {s} / {L1}:"},
    {15, "bov {L1} / {s} / {L1}:", X_OVERFLOW},
    {1, "{bcc} {L1} / bc {L1} / {keep1} {v1},f,c / {s} / goto {L2} / {L1}: / {keep1} {v1},f,c / {s} / {L2}:"},
    {1, "bc {L1} / {keep1} {v1},f,c / {keep2} {v2},f,c / {s} / goto {L2} / {L1}: / {keep1} {v1},f,c / "
        "{keep2} {v2},f,c / {s} / {L2}:"},
    {1, "{t} / goto {L3} / btfsc {v1},{b1},c / goto {L1} / goto {L2} / {L3}: / {s} / btfss {v1},{b1},c / "
        "goto {L2} / {L1}: / {B} / {L2}:"},
    {1, "{t} / goto {L1} / {t} / goto save_{L1} / goto int_fun_{L1} / {L1}: / {s} / goto {L2} / int_fun_{L1}: / {s} / {s} / "
        "goto {L2} / "
        "save_{L1}: / {s} / {L2}:"},
    {2, "movf {v},w,c / xorlw {k1} / btfsc STATUS,2,c / goto {L1} / xorlw {k2} / btfsc STATUS,2,c / goto {L2} / goto {L3} / "
        "{L1}: / {q} / goto {L3} / {L2}: / {q} / goto {L3} / {L3}:"},
    // Branches that don't reach.
    {1, "{t} / goto {L1} / {bcc} {L2} / {L1}: / {s} / rept 140~ / nop~ / endm / {L2}:"},
    {1, "{bcc} {L1} / {B} / rept 140~ / nop~ / endm / {L1}:"},
    // Jumps to jumps, and code that nothing reaches.
    {1, "goto {L1} / {L1}:"},
    {1, "goto {L1} / {q} / {L1}:"},
    {1, "{t} / goto {L1} / {s} / goto {L2} / {L1}: / goto {L3} / {L3}: / {s} / {L2}:"},
    {1, "{bcc} {L1} / {s} / goto {L2} / {L1}: / goto {L3} / {s} / {L3}: / {s} / {L2}:"},
    {1, "{t} / goto {L1} / {s} / goto {L2} / {L1}: / {L2}:"},
    {1, "{skip} / goto {L1} / {s} / goto {L2} / {L1}: / {ret} / {L2}:"},
    // The same tail in two places, and the same sequence in many.
    {2, "{t} / goto {L1} / {s} / {q1} / goto {L2} / {L1}: / {s} / {q1} / {L2}:"},
    {2, "{t} / goto {L1} / {t} / goto {L3} / {s} / {q1} / goto {L2} / {L1}: / {s} / {q1} / goto {L2} / "
        "{L3}: / {q1} / goto {L2} / {L2}:"},
    {1, "{t} / goto {L1} / {q1} / {ret1} / {L1}: / {s} / {q1} / {ret1}"},
    {1, "{t} / goto {L1} / {s} / {skip} / {q1} / goto {L2} / {L1}: / {s} / {q1} / {L2}:"},
    {1, "{t} / goto {L1} / {s} / {q1} / goto {L2} / {L1}: / {s} / {skip} / {q1} / {L2}:"},
    {5, "{Q}"},
    {2, "{skip} / {Q}"},
    // Loops.
    {3, "movlw {c} / movwf {n1},c / {L1}: / {N} / decfsz {n1},f,c / {go} {L1}"},
    {2, "movlw {c} / movwf {n1},c / {L1}: / {N} / decf {n1},f,c / btfss STATUS,2,c / goto {L1} / {s}"},
    {1, "movlw {c} / movwf {n1},c / {L1}: / {N} / decf {n1},f,c / bnz {L1}"},
    {1, "movlw 256-{c} / movwf {n1},c / {L1}: / {N} / incf {n1},f,c / btfss STATUS,2,c / goto {L1}"},
    {1, "movlw {c} / movwf {n1},c / 1: / {q} / decfsz {n1},f,c / bra 1b"},
    {1, "decf {v},{d},c / btfsc STATUS,2,c / {s} / {s}"},
    // Calls.
    {6, "call {f}"},
    {1, "rcall {f}"},
    {15, "call {f} / bn {L1} / {s} / {L1}:", X_N_AT_RETURN},
    {15, "{t} / goto {L1} / call {tail} / bsf 3,{b},c / {ret} / {L1}:", X_ADDRESS_3},
    {1, "{skip} / call {f}"},
    {1, "{t} / goto {L1} / call {tail} / {ret} / {L1}:"},
    // Memory by pointer.
    {2, "lfsr {i1},array+{k:20,21,22,30}~ / movwf {ind}{i1},c~ / {s}~ / movf {ind}{i1},{d},c~ / {alu} {ind}{i1},{d},c~ / "
        "movff {ind}{i1},{m}~ / "
        "clrf {ind}{i1},c~ / movlw {k:0,1,5}~ / movf PLUSW{i1},w,c"},
    {2, "movlw low(table+{k:0,1,2,3})~ / movwf TBLPTRL,c~ / movlw high(table)~ / movwf TBLPTRH,c~ / clrf TBLPTRU,c / tblrd "
        "{tbl} / "
        "tblrd {tbl} / movf TABLAT,w,c / tblrd {tbl} / {clr} TABLAT,c / movff TABLAT,{m}"},
    {1, "asmopt off~ / {s}~ / {s}~ / asmopt on"},
    {1, "push~ / pop"},
};

// Filling.

static void put(gen_t &g, const std::string &line);
static void expand(gen_t &g, const char *text, fillings_t &fixed);

template <size_t N> static const char *pick(gen_t &g, const template_t (&list)[N])
{
    unsigned total = 0;
    for (const template_t &t : list)
        total += g.may(t.excluded) ? t.weight : 0;
    unsigned at = g.rng.below(total);
    for (const template_t &t : list) {
        if (!g.may(t.excluded))
            continue;
        if (at < t.weight)
            return t.text;
        at -= t.weight;
    }
    return "";
}

static std::string number(gen_t &g)
{
    static const std::vector<unsigned> often = {0, 0, 1, 1, 255, 255, 2, 128, 15};
    return std::to_string(g.rng.one_in(3) ? g.rng.below(256) : g.rng.of(often));
}

static std::string indexed(gen_t &g, const char *name, size_t n) { return name + std::to_string(g.rng.below(n)); }

// A register, and in `access` its access word. Selects its bank first if that is needed and possible.
static std::string any_register(gen_t &g, std::string &access)
{
    access = ",c";
    if (g.rng.below(3))
        return indexed(g, "a", 8);
    const int bank = static_cast<int>(g.rng.below(2)) + 1;
    if (bank != g.bank && g.skipped)
        return indexed(g, "a", 8);
    const char *const name = bank == 1 ? "b" : "d";
    if (bank != g.bank || g.rng.one_in(3))
        put(g, (g.rng.below(2) ? "\tbanksel\t" + indexed(g, name, 8) : "\tmovlb\t" + std::to_string(bank)) + "~");
    access = ",b";
    return indexed(g, name, 8) + (g.rng.one_in(4) ? "&255" : "");
}

// Instructions that use only the access bank, so that their text is the same everywhere.
static std::string sequence(gen_t &g, size_t n)
{
    std::string text;
    for (size_t i = 0; i < n; i++) {
        static const template_t list[] = {
            {4, "{alu} {v},{d},c"}, {2, "movf {v},w,c"}, {3, "movwf {v},c"}, {1, "movlw {k}"},
            {1, "{bit} {v},{b},c"}, {1, "movff {m},{m}"}, {1, "{lit} {k}"},
            {1, "btfsc {v},{b},c / incf {v},f,c"}};
        gen_t sub;
        sub.rng = g.rng;
        fillings_t fixed;
        expand(sub, pick(g, list), fixed);
        g.rng = sub.rng;
        text += (text.empty() ? "" : "\n") + pieces_text(sub.pieces);
        text.pop_back();
    }
    return text;
}

// For `rcall` in the same psect; neither it nor a last call is fast.
static std::string callee(gen_t &g, bool same_psect, bool last)
{
    std::vector<const function_t *> list;
    for (size_t i = g.function + 1; i < g.functions.size(); i++)
        if (!(same_psect && g.functions[i].psect != g.functions[g.function].psect) &&
            !(g.functions[i].fast && (same_psect || (last && !g.may(X_FAST_TAIL)))))
            list.push_back(&g.functions[i]);
    if (list.empty())
        return "";
    const function_t &f = *g.rng.of(list);
    return f.name + (f.fast ? ",f" : "");
}

static std::string way_out(gen_t &g)
{
    if (g.function == 0)
        return "\tgoto\tfinish";
    const function_t &f = g.functions[g.function];
    if (f.fast)
        return "\treturn\tf";
    return g.rng.one_in(3) && !g.skipped ? "\tretlw\t" + number(g) : f.funcret ? "\treturn\t;funcret" : "\treturn";
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

// What a hole in a line becomes.
static std::string fill(gen_t &g, const std::string &hole, std::string &access)
{
    const std::string name = hole.substr(0, hole.find_last_not_of("0123456789") + 1);
    if (const size_t colon = hole.find(':'); colon != std::string::npos) {
        std::vector<std::string> list;
        for (size_t at = colon + 1; at < hole.size(); at = std::min(hole.find(',', at), hole.size()) + 1)
            list.push_back(hole.substr(at, hole.find(',', at) - at));
        return g.rng.of(list);
    }
    if (const auto it = words.find(name); it != words.end())
        return g.rng.of(it->second);
    if (name == "v")
        return indexed(g, "a", 8);
    if (name == "m")
        return indexed(g, g.rng.below(3) ? "a" : g.rng.below(2) ? "b" : "d", 8);
    if (name == "k")
        return number(g);
    if (name == "r")
        return any_register(g, access);
    if (name == "A")
        return access;
    if (name == "b")
        return std::to_string(g.rng.below(8));
    if (name == "d")
        return g.rng.below(2) ? "w" : "f";
    if (name == "c")
        return std::to_string(1 + g.rng.below(3));
    if (name == "n")
        return "n" + std::to_string(g.function) + "_" + std::to_string(g.loops);
    return "at" + std::to_string(++g.labels);   // {L}
}

static bool fixed_line(gen_t &g, const std::string &hole, std::string &line)
{
    if (hole.starts_with("q"))
        line = sequence(g, 2 + g.rng.below(3));
    else if (hole.starts_with("Q"))
        line = g.rng.of(g.sequences);
    else if (hole.starts_with("ret"))
        line = way_out(g);
    else
        return false;
    return true;
}

static void expand_line(gen_t &g, const std::string &line, fillings_t &fixed)
{
    const bool joined = line.ends_with('~');
    const std::string whole = joined ? line.substr(0, line.size() - 1) : line;
    const std::string hole = whole.starts_with('{') && whole.ends_with('}') ? whole.substr(1, whole.size() - 2) : "";
    fillings_t none;
    if (hole == "s")
        return expand(g, (pick(g, singles) + std::string(joined ? "~" : "")).c_str(), none);
    if (hole == "t" || hole == "skip")
        return expand(g, hole == "t" ? skips[g.rng.below(4)].text : pick(g, skips), none);
    if (hole == "B" || hole == "N")
        return block(g, hole == "N");
    if (std::string text; fixed_line(g, hole, text)) {
        if (isdigit(hole.back()))
            text = fixed.try_emplace(hole, text).first->second;
        return expand(g, text.c_str(), none);
    }
    std::string out, access;
    for (size_t at = 0; at < whole.size();) {
        if (whole[at] != '{') {
            out += whole[at++];
            continue;
        }
        const size_t end = whole.find('}', at);
        const std::string name = whole.substr(at + 1, end - at - 1);
        std::string text;
        if (name == "f" || name == "tail") {
            text = callee(g, whole.find("rcall") != std::string::npos, name == "tail");
            if (text.empty())
                return put(g, "\tnop");
        } else if (isdigit(name.back()) && name.find(':') == std::string::npos) {
            const auto it = fixed.find(name);
            text = it != fixed.end() ? it->second : fixed[name] = fill(g, name, access);
        } else {
            text = fill(g, name, access);
        }
        out += text;
        at = end + 1;
    }
    // Nothing reads what an exclusion, or the mark of a return, makes unsure before it is set again.
    const char *again = nullptr;
    if (whole.find("{f}") != std::string::npos && out.ends_with(",f") && !g.may(X_FAST_CALL))
        again = "bcf STATUS,0,c~ / movf last_w,w,c";
    else if (whole.find("{f}") != std::string::npos && g.functions[0].funcret)
        again = "movf last_w,f,c";
    else if (out.starts_with("\taddwfc") && out.find(",f,") != std::string::npos && !g.may(X_ADDWFC_ZERO))
        again = "movf last_w,f,c";
    put(g, out + (joined || again ? "~" : ""));
    if (again)
        expand(g, (again + std::string(joined ? "~" : "")).c_str(), none);
}

static void expand(gen_t &g, const char *text, fillings_t &fixed)
{
    const std::string all = text;
    for (size_t at = 0; at < all.size();) {
        const size_t end = std::min(all.find_first_of("\n/", at), all.size());
        const size_t from = all.find_first_not_of(' ', at), last = all.find_last_not_of(' ', end - 1);
        std::string line = all.substr(from, last + 1 - from);
        const bool hole = line[0] == '{' && line.find('}') + 2 >= line.size();
        if (!hole && line[0] != '\t' && !line.ends_with(':')) {
            line.insert(0, "\t");
            if (const size_t space = line.find(' '); space != std::string::npos)
                line[space] = '\t';
        }
        expand_line(g, line, fixed);
        at = end + 1;
    }
}

// A finished line.
static void put(gen_t &g, const std::string &line)
{
    static const std::vector<std::string> skip_words = {"\tbtfs",   "\tcpfs",   "\ttstfsz", "\tdecfsz",
                                                        "\tdcfsnz", "\tincfsz", "\tinfsnz"};
    const bool joined = line.ends_with('~');
    g.held += (joined ? line.substr(0, line.size() - 1) : line) + "\n";
    if (!joined) {
        g.pieces.push_back(g.held);
        g.held.clear();
    }
    g.room -= g.room > 0;
    g.skipped = std::any_of(skip_words.begin(), skip_words.end(), [&](const std::string &w) { return line.starts_with(w); });
    if (line.starts_with("\tbanksel\t"))
        g.bank = line[9] == 'b' ? 1 : 2;
    else if (line.starts_with("\tmovlb\t"))
        g.bank = line[7] - '0';
    else if (!line.starts_with('\t') || line.find("call\t") != std::string::npos)
        g.bank = -1;
}

// Programs.

static void prologue(gen_t &g)
{
    std::string text = "\tprocessor\t" + g.target->name + "\n";
    for (const char *name :
         {"STATUS",   "WREG",     "BSR",     "PRODL",   "PRODH", "PORTA",    "PORTB",    "LATA",    "LATB",   "LATC",
          "TABLAT",   "TBLPTRL",  "TBLPTRH", "TBLPTRU", "INDF0", "POSTINC0", "POSTDEC0", "PREINC0", "PLUSW0", "INDF1",
          "POSTINC1", "POSTDEC1", "PREINC1", "PLUSW1",  "INDF2", "POSTINC2", "POSTDEC2", "PREINC2", "PLUSW2"})
        text += name + std::string("\tequ\t") + std::to_string(target_sfr(*g.target, name)) + "\n";
    text += "\tpsect\tvars,class=COMRAM,space=1,delta=1\nlast_w:\tds\t1\nlast_status:\tds\t1\n";
    for (int i = 0; i < 8; i++)
        text += "a" + std::to_string(i) + ":\tds\t1\n";
    for (size_t f = 0; f < std::max<size_t>(g.functions.size(), 1); f++)
        for (int i = 0; i < 5; i++)
            text += "n" + std::to_string(f) + "_" + std::to_string(i) + ":\tds\t1\n";
    for (const auto &[name, bank] : {std::pair{"b", "1"}, std::pair{"d", "2"}}) {
        text += std::string("\tpsect\tvars") + bank + ",class=BANK" + bank + ",space=1,delta=1\n";
        for (int i = 0; i < 8; i++)
            text += name + std::to_string(i) + ":\tds\t1\n";
    }
    text += "\tpsect\tarrays,class=BANK3,space=1,delta=1\narray:\tds\t64\n"
            "\tpsect\ttables,class=CONST,abs,ovrld,delta=1\n\torg\t0x7000\ntable:\n\tdb\t3,1,4,1,5,9,2,6,5,3\n"
            "\tpsect\tresetVec,class=RESETVEC,reloc=2,delta=1\n\tgoto\tmain\n\tcallstack\t1\n\tglobal\tmain\n";
    g.pieces.push_back(text);
}

static void epilogue(gen_t &g)
{
    std::string text = "finish:\n\tmovwf\tlast_w,c\n";
    for (const char *bit : {"0", "2"})
        if (*bit == '0' || !g.functions[0].funcret)
            text += std::string("\tbtfsc\tSTATUS,") + bit + ",c\n\tbsf\tlast_status," + bit + ",c\n\tbtfss\tSTATUS," + bit +
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
        const bool inlined = i > 0 && g.rng.one_in(4);
        g.functions.push_back({i == 0 ? "main" : "f" + std::to_string(i), i > 0 && !inlined && g.rng.one_in(6), funcret,
                               inlined, inlined ? shared + i : g.rng.below(shared)});
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
        if (&f != &g.functions[0] && g.rng.below(2))
            g.pieces[0] += "\tglobal\t" + f.name + ",__end_of_" + f.name + "\n";
    }
    for (size_t i = 0; i < count; i++)
        make_function(g, i, psects[g.functions[i].psect]);
    return g.pieces;
}

pieces_t gen_around(const std::string &statements, const target_t &target)
{
    gen_t g;
    g.target = &target;
    g.functions.push_back({"main", false, false, false, 0});
    prologue(g);
    g.pieces.push_back("\tpsect\ttext,class=CODE,reloc=2,delta=1\nmain:\n" + statements);
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
