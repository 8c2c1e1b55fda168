// bench_shapes: odd shapes of input, and how the time for each grows when it becomes twice as large.
//
//     bench_shapes [--lines N] [--runs N] [--above SECONDS] [--aszel8 PATH] [NAME...]
//
// Real programs keep clear of the places where a tool is slow: nobody writes 300,000 psects, or a hundred thousand unknown
// keys. Machines do, and a list that is walked for each line then takes minutes. So each row below is a file that has very
// many of one thing, and the measurement is not how long that takes but the ratio of two sizes: 2 is in proportion, 4 shows
// a walk in a walk.
//
// A shape is a text for the head, one that is repeated, one for the tail, and perhaps one more that is repeated, of the source or of one of the data files that the
// assembler reads. Braces hold the counter i, which goes from 0 to n-1, in one of these ways:
//   {i} i   {n} n   {-} i-1   {+} i+1   {r} n-1-i   {x} {-x} {rx} hexadecimal   {sx} scattered: i times a prime, modulo n
//
// Time is processor time, the least of some runs, since other work on the machine only ever adds. Messages go to /dev/null,
// and a run counts whatever its status is: many shapes are made of errors. What may bite: a table that outgrows a cache
// between the two sizes makes a look-up dearer, and the ratio becomes 2.5 though the steps are twice as many. A walk in a
// walk shows 4, and again 4 at the next doubling.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "process.h"

enum file_t { SOURCE, CHIP, DATA, INCLUDED, FILES };

struct text_t {
    const char *head = "", *body = "", *tail = "", *more = "";
};

// The largest count that a shape can have: the table of symbols has 60,493 places, and a line may take several of them.
enum : int64_t {
    ANY = INT64_MAX,
    SYMBOLS = 60000,
    HALF = SYMBOLS / 2,
    THIRD = SYMBOLS / 3,
    INTERRUPTS = 65000,
    CATALOGUE = 100000
};

struct shape_t {
    const char *name;
    int64_t most;
    text_t source;
    const char *options = "";
    text_t other = {};
    file_t kind = SOURCE;   // of `other`
};

#define CODE "\tpsect\tt,class=CODE,reloc=2\n"
#define TEXT "\tpsect\ttext,class=CODE,reloc=2\n"

static const shape_t shapes[] = {
    // Symbols, psects and what hangs on them.
    {"labels", SYMBOLS, {CODE, "l{i}:\tnop\n"}},
    {"long names",
     SYMBOLS,
     {CODE, "a_name_that_goes_on_and_on_for_so_long_that_nobody_would_ever_want_to_type_it_twice_{i}:\tnop\n"}},
    {"one long name", ANY, {CODE, "a", ":\tnop\n"}},
    {"label defined again", ANY, {CODE, "l:\tnop\n"}},
    {"local labels, by equ", SYMBOLS, {CODE, "a{i}\tequ\t{i}\n\tmovlw\tlow(a{i})\n"}},
    {"equ of the one before", SYMBOLS, {"a0\tequ\t1\n", "a{+}\tequ\ta{i}+1\n", CODE "\tmovlw\tlow(a{n})\n"}},
    {"equ of the one behind", SYMBOLS, {"", "a{i}\tequ\ta{+}+1\n", "a{n}\tequ\t1\n" CODE "\tmovlw\tlow(a0)\n"}},
    {"set", ANY, {CODE, "a\tset\ta0+{i}\n\tmovlw\tlow(a)\n"}},
    {"undefined", SYMBOLS, {CODE, "\tgoto\tu{i}\n"}},
    {"external", SYMBOLS, {CODE, "\tglobal\tx{i}\n\tgoto\tx{i}\n"}},
    {"psects", SYMBOLS, {"", "\tpsect\tp{i},class=CODE,reloc=2\n\tnop\n"}},
    {"psects that refer", HALF, {"", "\tpsect\tp{i},class=CODE,reloc=2\nl{i}:\tgoto\tl{r}\n"}},
    {"psects, local, of one name", ANY, {"", "\tpsect\tp,local,class=CODE,reloc=2\n\tnop\n"}},
    {"psects in turn", ANY, {"", "\tpsect\tp,class=CODE,reloc=2\n\tnop\n\tpsect\tq,class=CODE,reloc=2\n\tnop\n"}},
    {"classes", HALF, {"", "\tpsect\tp{i},class=C{i}\n"}},
    {"with the one before", SYMBOLS, {"\tpsect\tp0\n", "\tpsect\tp{+},with=p{i}\n"}},
    {"with the one behind", SYMBOLS, {"", "\tpsect\tp{i},with=p{+}\n"}},
    {"with the first", SYMBOLS, {"\tpsect\tp0\n", "\tpsect\tp{+},with=p0\n"}},
    {"note psects, 1519", ANY, {"", "\tpsect\tn,note,keep\n"}},
    {"temporary labels", ANY, {CODE, "1:\tbra\t1b\n\tbra\t1f\n", "1:\n"}},
    {"temporary labels, distinct", ANY, {CODE, "{i}:\tbra\t{i}b\n"}},
    {"temporary labels, one target", ANY, {CODE, "\tgoto\t1f\n", "1:\n"}},
    {"temporary labels, missing", ANY, {CODE, "\tbra\t{i}f\n"}},
    {"signat", SYMBOLS, {"", "\tsignat\tf{i},{i}\n"}},
    {"fncall, a chain", SYMBOLS, {"", "\tfncall\tf{i},f{+}\n"}},
    {"fncall, from one", SYMBOLS, {"", "\tfncall\tmain,f{i}\n"}},
    {"fncall, to one", SYMBOLS, {"", "\tfncall\tf{i},main\n"}},
    {"fnarg, fnbreak, from one", SYMBOLS, {"", "\tfnarg\tmain,f{i}\n\tfnbreak\tmain,f{i}\n"}},
    {"fnsize", SYMBOLS, {"", "\tfnsize\tf{i},1,2\n"}},
    {"fnindir", ANY, {"", "\tfnindir\tmain,{i}\n"}},
    {"fnalign", HALF, {"", "\tfnalign\tf{i},g{i}\n"}},
    {"fnalign, joined", SYMBOLS, {"", "\tfnalign\tf{i},f{+}\n"}},
    {"fnroot, fnaddr", SYMBOLS, {"", "\tfnroot\tf{i}\n\tfnaddr\tf{i}\n"}},
    {"dabs", SYMBOLS, {"", "\tdabs\t1,{i},1,d{i}\n"}},
    // Code.
    {"branches, near", SYMBOLS, {CODE, "l{i}:\tbz\tl{i}\n"}},
    {"branches, each on the edge", SYMBOLS, {CODE, "l{i}:\tbz\tl{-}\n\tds\t250\n", "l-1:\n"}},
    {"branches, forward", SYMBOLS, {CODE, "l{i}:\tbz\tl{+}\n\tds\t250\n", "l{n}:\n"}},
    {"align", ANY, {CODE, "\tnop\n\talign\t4\n"}},
    {"org", ANY, {CODE, "\torg\t{i}*4\n\tnop\n"}},
    {"data", ANY, {CODE, "\tdb\t1,2,3,low(ext),high(ext+{i})\n"}},
    {"one long line of data", ANY, {CODE "\tdb\t1", ",1", "\n"}},
    {"one long sum", ANY, {CODE "x\tequ\t1\n\tdw\tx", "+x", "\n"}},
    {"one long sum of externals", ANY, {CODE "\tglobal\tx\n\tdw\tx", "+x", "\n"}},
    {"sums, growing", ANY, {CODE "a\tset\text\n", "a\tset\ta+1\n", "\tdw\ta\n"}},
    {"once-only messages, 1522", ANY, {CODE, "\tmovwf\t0x20\n"}, "-no_trans"},
    {"once-only messages, 1339", ANY, {CODE, "\tlfsr\t0,0x12345\n"}},
    {"truncations, 1352", ANY, {CODE, "\tdb\t300\n"}, "-W-9"},
    {"messg", ANY, {CODE, "\tmessg\t\"text {i}\"\n"}},
    {"if, else, endif", ANY, {CODE, "\tif\t{i}&1\n\tnop\n\telse\n\tclrwdt\n\tendif\n"}},
    {"if, nested four deep", ANY, {CODE, "\tif\t1\n\tif\t1\n\tif\t1\n\tif\t1\n\tnop\n\tendif\n\tendif\n\tendif\n\tendif\n"}},
    {"elsif", ANY, {CODE "\tif\t0\n", "\telsif\t0\n\tnop\n", "\tendif\n"}},
    {"endif alone", ANY, {CODE, "\tendif\n"}},
    {"asmopt push", ANY, {CODE, "\tasmopt\tpush\n", "\tnop\n"}},
    {"line and file", ANY, {CODE, "\tfile\t\"f{i}\"\n\tline\t{i}\n\tnop\n"}, "-V"},
    // The optimiser, which looks at psects with "text" in their names.
    {"-O: labels, goto each, skips", HALF, {TEXT, "l{i}:\n", "\tmovwf\t1,c\n", "\tbtfsc\t2,1,c\n\tgoto\tl{i}\n"}, "-O"},
    {"-O: labels, bz to each", HALF, {TEXT, "l{i}:\n", "\tmovwf\t1,c\n", "\tbz\tl{i}\n"}, "-O"},
    {"-O: jumps, a chain", SYMBOLS, {TEXT, "l{i}:\tgoto\tl{+}\n\tnop\n", "l{n}:\treturn\n"}, "-O"},
    {"-O: branches, align between", HALF, {TEXT, "l{i}:\tbz\tl{+}\n\tmovwf\t1,c\n\talign\t2\n", "l{n}:\treturn\n"}, "-O"},
    {"-O: jumps, a scattered chain", HALF, {TEXT, "l{x}:\tgoto\tl{sx}\n", "\treturn\n"}, "-O"},
    {"-O: tails, all one", HALF, {TEXT "s:\n", "\tglobal\tl{i}\nl{i}:\tincf\t1,f,c\n\tgoto\ts\n"}, "-O"},
    {"-O: state machine",
     HALF,
     {TEXT "loop:\n", "\tmovlw\tlow({i})\n\txorwf\t1,w,c\n\tbz\ts{i}\n", "\tgoto\tloop\n",
      "s{i}:\tincf\t2,f,c\n\tmovlw\tlow({+})\n\tmovwf\t1,c\n\tgoto\tloop\n"},
     "-O"},
    {"-O: one loop for all skips", ANY, {TEXT, "\tbtfsc\t2,1,c\n\tgoto\tl\n", "l:\tmovwf\t1,c\n\tbra\tl\n"}, "-O"},
    {"-O: psects that call",
     HALF,
     {"", "\tpsect\ttext{i},class=CODE,reloc=2\n\tglobal\tf{i}\nf{i}:\tcall\tf{r}\n\treturn\n"},
     "-O"},
    {"-O: jump table", HALF, {TEXT "\taddwf\t0xFF9,f,c\n", "\tgoto\tl{i}\n", "", "l{i}:\tincf\t1,f,c\n\treturn\n"}, "-O"},
    // Text.
    {"syntax errors", ANY, {CODE, "\tfoo\tbar\n"}},
    {"comments", ANY, {CODE, "; comment {i}\n", "\tnop\n"}},
    {"comments behind code", ANY, {CODE, "\tnop\t; comment {i}\n"}, "-A"},
    {"one long comment", ANY, {CODE "\tnop ;", " x", "\n"}},
    {"blank lines", ANY, {CODE, "\n"}},
    {"titles", ANY, {CODE, "\ttitle\t\"t{i}\"\n"}},
    {"include", ANY, {CODE, "\tinclude\t\"@include\"\n"}, "", {"\tnop\n"}, INCLUDED},
    {"listing", SYMBOLS, {CODE, "l{i}:\tgoto\tl{r}\n"}, "-L"},
    {"listing of macros", ANY, {CODE "m\tmacro\ta\n\tmovlw\ta\n\tendm\n", "\tm\t1\n"}, "-L"},
    {"symbol report", SYMBOLS, {CODE, "l{i}:\tnop\n"}, "-L -S"},
    {"cross-reference", SYMBOLS, {CODE, "l{i}:\tgoto\tl{r}\n"}, "-C"},
    {"comments ahead of psects", ANY, {"", "; comment {i}\n\tpsect\tp,class=CODE\n"}, "-A"},
    {"places of another source", ANY, {CODE, "# {i} \"f{i}\"\n\tmovwf\t0x20\n"}, "-no_trans -V"},
    {"assembly text", SYMBOLS, {CODE, "l{i}:\tgoto\tl{r}\n"}, "-A"},
    {"assembly text of equ", SYMBOLS, {CODE, "a{i}\tequ\t{i}\n\tmovlw\tlow(a{i})\n"}, "-A"},
    // Macros.
    {"macros", HALF, {CODE, "m{i}\tmacro\n\tnop\n\tendm\n\tm{i}\n"}},
    {"macros, defined again", ANY, {CODE, "m\tmacro\n\tnop\n\tendm\n"}},
    {"macros with parameters", THIRD, {CODE, "m{i}\tmacro\tp{i},q{i}\n\tmovlw\tp{i}\n\tendm\n"}},
    {"macro calls", ANY, {CODE "m\tmacro\ta,b\n\tmovlw\ta\n\tmovlw\tb\n\tendm\n", "\tm\t{i}&255,2\n"}},
    {"macro with local labels", HALF, {CODE "m\tmacro\n\tlocal\tx,y\nx:\tbra\ty\ny:\n\tendm\n", "\tm\n"}},
    {"macro of many lines", ANY, {CODE "m\tmacro\ta\n", "\tmovlw\ta\n", "\tendm\n\tm\t1\n\tm\t2\n"}},
    {"macro argument that is long", ANY, {CODE "m\tmacro\ta\n\tdb\ta\n\tendm\n\tm\t<1", ",1", ">\n"}},
    {"rept", ANY, {CODE "\trept\t{n}\n\tnop\n\tendm\n"}},
    {"rept of many lines", ANY, {CODE "\trept\t2\n", "\tnop\n", "\tendm\n"}},
    {"rept, nested", ANY, {CODE, "\trept\t2\n\trept\t2\n\tnop\n\tendm\n\tendm\n"}},
    {"irp, one long list", ANY, {CODE "\tirp\tx,<1", ",1", ">\n\tmovlw\tx\n\tendm\n"}},
    {"irpc, one long text", ANY, {CODE "\tirpc\tx,", "1", "\n\tmovlw\tx\n\tendm\n"}},
    {"irp", ANY, {CODE, "\tirp\tx,1,2,3\n\tmovlw\tx\n\tendm\n"}},
    {"irp of many lines", ANY, {CODE "\tirp\tx,1,2\n", "\tmovlw\tx\n", "\tendm\n"}},
    {"exitm", ANY, {CODE "m\tmacro\n\texitm\n\tnop\n\tendm\n", "\tm\n"}},
    {"global, one long list", SYMBOLS, {"\tglobal\tx", ",x{i}", "\n"}},
    // Chip information file.
    {"unknown keys", ANY, {"\tnop\n"}, "", {"", "KEY{i}=1\n"}, CHIP},
    {"one unknown key", ANY, {"\tnop\n"}, "", {"", "NONSENSE=1\n"}, CHIP},
    {"VOLSFRS, ascending", ANY, {"\tnop\n"}, "", {"", "VOLSFRS={x}0-{x}1\n"}, CHIP},
    {"VOLSFRS, descending", ANY, {"\tnop\n"}, "", {"", "VOLSFRS={rx}0-{rx}1\n"}, CHIP},
    {"VOLSFRS, scattered", ANY, {"\tnop\n"}, "", {"", "VOLSFRS={sx}0-{sx}1\n"}, CHIP},
    {"other ranges", ANY, {"\tnop\n"}, "", {"", "PROBE2RAM={x}0-{x}1\n"}, CHIP},
    {"SFR", ANY, {"\tnop\n"}, "", {"", "SFR=R{i},1{x},8\n"}, CHIP},
    {"SFR, names of one", ANY, {"\tnop\n"}, "", {"", "SFR=R{i},1000,8\n"}, CHIP},
    {"SFR, parts of one", ANY, {"\tnop\n"}, "", {"SFR=ALL,1000,4000000000\nSFR=R,1000,8\n", "SFR=R{i},1{x},8\n"}, CHIP},
    {"SFRFLD of one", ANY, {"\tnop\n"}, "", {"", "SFRFLD=F{i},FFF,0,1\n"}, CHIP},
    {"SFRFLD of one name", ANY, {"\tnop\n"}, "", {"", "SFR=R{i},1{x},8\nSFRFLD=F,1{x},0,1\n"}, CHIP},
    {"INTSRC", INTERRUPTS, {"\tnop\n"}, "", {"", "INTSRC=I{i},{i}\n"}, CHIP},
    {"text keys", ANY, {"\tnop\n"}, "", {"", "LIB=l{i}\n"}, CHIP},
    // Configuration data file.
    {"CWORD", ANY, {"\tconfig\tW0=1\n"}, "", {"", "CWORD:{x}:FF:FF:W{i}\n"}, DATA},
    {"CWORD, descending", ANY, {"\tconfig\tW0=1\n"}, "", {"", "CWORD:{rx}:FF:FF:W{i}\n"}, DATA},
    {"CWORD, all written", ANY, {"\tconfig\tW0=1\n"}, "", {"", "CWORD:3{x}:FF:FF:W{i}\n"}, DATA},
    {"CSETTING, a word each",
     ANY,
     {"", "\tconfig\tS{i}=1\n"},
     "",
     {"", "CWORD:{x}:FF:FF:W{i}\nCSETTING:1:S{i}:text\n"},
     DATA},
    {"CSETTING of one word", ANY, {"", "\tconfig\tS{i}=1\n"}, "", {"CWORD:0:FF:FF:W\n", "CSETTING:1:S{i}:text\n"}, DATA},
    {"CVALUE of one setting",
     ANY,
     {"", "\tconfig\tS=V{i}\n"},
     "",
     {"CWORD:0:FF:FF:W\nCSETTING:FFFFFFFF:S:text\n", "CVALUE:{x}:V{i}:text\n"},
     DATA},
    {"numbers for a word",
     ANY,
     {"", "\tconfig\tW={n}\n"},
     "",
     {"CWORD:0:FFFFFFFF:0:W\nCSETTING:FFFFFFFF:S:text\n", "CVALUE:{x}:V{i}:text\n"},
     DATA},
    {"CMSG, looked up",
     ANY,
     {"\tconfig\tW0=1\n"},
     "",
     {"CWORD:0:FF:0:W0\nCSETTING:1:S:text\nCVALUE:1:V:text\n", "CMSG:S=V:2101\n"},
     DATA},
    {"CMSG, programmed",
     ANY,
     {"\tconfig\tignore_cmsgs=off\n", "\tconfig\tS{i}=V\n"},
     "",
     {"", "CWORD:{x}:FF:0:W{i}\nCSETTING:1:S{i}:text\nCVALUE:1:V:text\nCMSG:S{i}=V:2101\n"},
     DATA},
    {"CMSG, never",
     ANY,
     {"\tconfig\tignore_cmsgs=off\n", "\tconfig\tS{i}=V\n"},
     "",
     {"CWORD:FFFFFF:FF:0:X\nCSETTING:1:X:text\nCVALUE:1:V:text\n",
      "CWORD:{x}:FF:0:W{i}\nCSETTING:1:S{i}:text\nCVALUE:1:V:text\nCMSG:S{i}=V,X=V:2101\n"},
     DATA},
    {"unknown configuration", ANY, {"", "\tconfig\tS{i}=1\n"}, "", {"CWORD:0:FF:FF:W\n"}, DATA},
    {"errors in the data", ANY, {"\tconfig\tW0=1\n"}, "", {"", "CWORD:{x}\n"}, DATA},
    // Others.
    {"catalogue", CATALOGUE, {"\tnop\n"}, "--edf=@include", {"", "nonsense {i}\n"}, INCLUDED},
};

static struct {
    int64_t lines = 150000;
    int runs = 5;
    double above = 0;   // only shapes that take longer are shown
    std::string aszel8, dir;
    std::vector<std::string> names;
} opt;

static std::string path_of(int kind) { return opt.dir + "/" + std::string(1, "scdi"[kind]); }

// One brace of a text.
static void put_number(FILE *f, const char *what, size_t length, int64_t i, int64_t n)
{
    int64_t value = i;
    const bool hex = what[length - 1] == 'x';
    switch (*what) {
    case 'n': value = n; break;
    case '-': value = i - 1; break;
    case '+': value = i + 1; break;
    case 'r': value = n - 1 - i; break;
    case 's': value = i * 7919 % n; break;
    }
    if (hex)
        fprintf(f, "%06llX", (unsigned long long)value);
    else
        fprintf(f, "%lld", (long long)value);
}

static void put_text(FILE *f, const char *text, int64_t i, int64_t n)
{
    for (const char *s = text; *s; s++)
        if (*s == '{') {
            const size_t length = strcspn(s + 1, "}");
            put_number(f, s + 1, length, i, n);
            s += length + 1;
        } else if (!strncmp(s, "@include", 8)) {
            fputs(path_of(INCLUDED).c_str(), f);
            s += 7;
        } else {
            putc(*s, f);
        }
}

static void put_all(FILE *f, const text_t &text, int64_t n)
{
    put_text(f, text.head, 0, n);
    for (int64_t i = 0; *text.body && i < n; i++)
        put_text(f, text.body, i, n);
    put_text(f, text.tail, 0, n);
    for (int64_t i = 0; *text.more && i < n; i++)
        put_text(f, text.more, i, n);
}

static const char chip_head[] =
    "[ZEL8SHAPE]\nARCH=ZEL8\nPROCID=5A00\nRAMSIZE=1000\nROMSIZE=200000\nPCBITS=14\nBSRBITS=4\nCOMMON=0-5F\nSFRCOMMON=F60-FFF\n"
    "GPRBANKS=60-FF\nSFRBANKS=ED4-FFF\nCFGMEM=300000-3FFFFF\nSFR=WREG,FFF,8\nSFRFLD=W,FFF,0,1\n";

static void write_files(const shape_t &shape, int64_t n)
{
    for (int kind = SOURCE; kind < FILES; kind++) {
        FILE *f = fopen(path_of(kind).c_str(), "w");
        if (!f) {
            perror(path_of(kind).c_str());
            exit(1);
        }
        if (kind == CHIP)
            fputs(chip_head, f);
        if (kind == SOURCE)
            put_all(f, shape.source, n);
        if (kind == shape.kind && kind != SOURCE)
            put_all(f, shape.other, n);
        fclose(f);
    }
}

// Processor time of one run; negative if it was ended, after a minute, or by a signal.
static double run(const shape_t &shape)
{
    std::vector<std::string> words = {opt.aszel8,
                                      "-mcpu=ZEL8SHAPE",
                                      "-C" + path_of(CHIP),
                                      "--cfgdata=" + path_of(DATA),
                                      "-O" + path_of(SOURCE) + ".obj",
                                      "--emax=1000000000"};
    for (std::string rest = shape.options; !rest.empty();) {
        const size_t blank = std::min(rest.find(' '), rest.size());
        std::string word = rest.substr(0, blank);
        rest.erase(0, blank + 1);
        if (const size_t at = word.find('@'); at != std::string::npos)
            word.replace(at, std::string::npos, path_of(INCLUDED));
        words.push_back(word);
    }
    words.push_back(path_of(SOURCE));
    run_t used;
    if (!process_run(words, "/dev/null", "/dev/null", 60, &used) || used.status > 1)
        return -1;
    return used.cpu;
}

static double best(const shape_t &shape, int64_t n)
{
    write_files(shape, n);
    double least = -1;
    for (int i = 0; i < opt.runs; i++) {
        const double once = run(shape);
        if (once < 0)
            return -1;
        least = least < 0 ? once : std::min(least, once);
        if (least > 10)
            break;
    }
    return least;
}

static bool wanted(const shape_t &shape)
{
    return opt.names.empty() || std::find(opt.names.begin(), opt.names.end(), shape.name) != opt.names.end();
}

int main(int argc, char **argv)
{
    opt.aszel8 = std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/aszel8";
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        const char *value = i + 1 < argc ? argv[i + 1] : "";
        if (word == "--lines" && (opt.lines = atoll(value)) >= 10 && opt.lines <= 10000000)
            i++;
        else if (word == "--runs" && (opt.runs = atoi(value)) > 0)
            i++;
        else if (word == "--above" && (opt.above = atof(value)) >= 0)
            i++;
        else if (word == "--aszel8" && *value)
            opt.aszel8 = value, i++;
        else if (word[0] != '-' || word.starts_with("-O:"))
            opt.names.push_back(word);
        else {
            fprintf(stderr, "usage: bench_shapes [--lines N] [--runs N] [--above SECONDS] [--aszel8 PATH] [NAME...]\n");
            return 2;
        }
    }
    opt.dir = process_directory("shapes");
    if (opt.dir.empty()) {
        perror("bench_shapes: no directory for the files");
        return 1;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("| shape                          |       n |  s at n | s at 2n | ratio |\n"
           "|--------------------------------|--------:|--------:|--------:|------:|\n");
    int over = 0;
    for (const shape_t &shape : shapes) {
        if (!wanted(shape))
            continue;
        const int64_t n = std::min(opt.lines, shape.most / 2);
        const double once = best(shape, n), twice = once < 0 ? -1 : best(shape, 2 * n);
        if (twice < 0)
            printf("| %-30s | %7lld | %7.3f | it took over a minute, or died\n", shape.name, (long long)n, once), over++;
        else if (twice >= opt.above) {
            over += twice / once > 2.2;
            printf("| %-30s | %7lld | %7.3f | %7.3f | %5.2f |%s\n", shape.name, (long long)n, once, twice, twice / once,
                   twice / once > 2.2 ? " !" : "");
        }
    }
    printf("%d over 2.2\n", over);
    std::filesystem::remove_all(opt.dir);
    return 0;
}
