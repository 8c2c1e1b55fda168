// bench_gen: writes a program of chosen shape and size, in the language of a chosen assembler, to standard output.
//
//     bench_gen SHAPE LINES [DIALECT]
//
// The measurement compares assemblers for different machines, so it needs programs that are the same in everything that
// costs an assembler time: lines, labels, references to labels (near and far, forward and backward), symbols, expressions
// and comments. So a program is made once, in terms of a small table of instructions that every one of these machines has in
// some form, and only the last step, the text of one line, differs by dialect. All choices come from one random sequence
// with a fixed start, of which each instruction takes the same number of draws in every dialect: line n of one dialect
// is the counterpart of line n of any other, and a program is the same on every machine and on every day.
//
// A shape is a function that writes the lines, and a row of the table at the end. What limits a shape is the weakest of the
// machines: conditional branches reach 63 words on AVR and 127 bytes on the 6502, so "near" is three blocks of eight
// instructions, and single bits of an AVR port can be written in the first 32 addresses only.

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

enum dialect_t { ZEL8, AVR, NASM, CA65, DIALECTS };

static const struct {
    const char *name;
    dialect_t dialect;
} dialect_names[] = {
    {"zel8", ZEL8}, {"avr-gas", AVR}, {"avr-llvm", AVR}, {"nasm", NASM}, {"ca65", CA65},
};

enum {
    PORTS = 16,
    PORT_BASE = 0x05,   // symbols for bit operations
    VARS = 24,
    VAR_BASE = 0x20,   // symbols for bytes of memory
    BUFS = 24,
    BUF_BASE = 0x100,   // symbols above a byte, for low and high parts
    SECTIONS = 8,
    BLOCK_LINES = 10,
    NEAR_BLOCKS = 3,
    FAR_BLOCKS = 1000,   // half of all far references stay within this distance
};

static dialect_t dialect;
static uint64_t rng = 0x9E3779B97F4A7C15;

static uint32_t draw(uint32_t below)
{
    rng ^= rng << 13;
    rng ^= rng >> 7;
    rng ^= rng << 17;
    return (uint32_t)((rng >> 32) * below >> 32);
}

// The instructions, one column a dialect. An `@` and a letter stand for an operand:
//   @v variable   @p port   @w buffer   @n near label   @f far label
//   @k number below 16   @b bit number   @h two hexadecimal digits
// clang-format off
enum op_t {
    LOW, HIGH, TWICE, CONST, ADDCONST, ADDRESS, STORE, STORENEXT, LOAD, ADD, INC, CLEAR, BITCLR, BITSET,
    BRA, BZ, BNZ, BC, BNC, GOTO, CALL, OPS
};
// clang-format on

static const char *const op_text[OPS][DIALECTS] = {
    {"movlw\tlow(@w+@k)", "ldi\tr24,lo8(@w+@k)", "mov\tal,(@w+@k) & 255", "lda\t#<(@w+@k)"},
    {"movlw\thigh(@w+@k)", "ldi\tr25,hi8(@w+@k)", "mov\tah,(@w+@k) >> 8", "lda\t#>(@w+@k)"},
    {"movlw\t@v*2+1", "ldi\tr24,@v*2+1", "mov\tal,@v*2+1", "lda\t#@v*2+1"},
    {"movlw\t0x@h", "ldi\tr24,0x@h", "mov\tal,0x@h", "lda\t#$@h"},
    {"addlw\t@k", "subi\tr24,@k", "add\tal,@k", "adc\t#@k"},
    {"movlw\tlow(@f)", "ldi\tr30,lo8(@f)", "mov\tebx,@f", "lda\t#<@f"},
    {"movwf\t@v,c", "sts\t@v,r24", "mov\t[@v],al", "sta\t@v"},
    {"movwf\t@v+1,c", "sts\t@v+1,r24", "mov\t[@v+1],al", "sta\t@v+1"},
    {"movf\t@v,w,c", "lds\tr24,@v", "mov\tal,[@v]", "lda\t@v"},
    {"addwf\t@v,f,c", "subi\tr20,@v", "add\t[@v],al", "adc\t@v"},
    {"incf\t@v+1,f,c", "sts\t@v+1,r20", "inc\tbyte [@v+1]", "inc\t@v+1"},
    {"clrf\t@v,c", "sts\t@v,r1", "mov\tbyte [@v],0", "stz\t@v"},
    {"bcf\t@p,@b,c", "cbi\t@p,@b", "and\tbyte [@p],~(1 << @b)", "rmb@b\t@p"},
    {"bsf\t@p,@b,c", "sbi\t@p,@b", "or\tbyte [@p],1 << @b", "smb@b\t@p"},
    {"bra\t@n", "rjmp\t@n", "jmp\tnear @n", "bra\t@n"},
    {"bz\t@n", "breq\t@n", "jz\tnear @n", "beq\t@n"},
    {"bnz\t@n", "brne\t@n", "jnz\tnear @n", "bne\t@n"},
    {"bc\t@n", "brcs\t@n", "jc\tnear @n", "bcs\t@n"},
    {"bnc\t@n", "brcc\t@n", "jnc\tnear @n", "bcc\t@n"},
    {"goto\t@f", "jmp\t@f", "jmp\tnear @f", "jmp\t@f"},
    {"call\t@f", "call\t@f", "call\t@f", "jsr\t@f"},
};

// The blocks that a program is woven of: eight instructions, two of them branches, three with an expression in a symbol,
// two with a bare symbol and one with a number, or one and two.
static const op_t blocks[][8] = {
    {LOW, STORE, CONST, STORENEXT, BNZ, BITCLR, TWICE, CALL}, {LOAD, ADDCONST, BC, STORENEXT, TWICE, ADD, INC, BRA},
    {CONST, STORENEXT, BZ, LOW, ADD, ADDCONST, INC, GOTO},    {HIGH, ADDCONST, STORE, BNC, INC, CALL, CLEAR, TWICE},
    {LOW, BNZ, CONST, STORENEXT, ADD, ADDCONST, INC, BRA},    {ADDRESS, STORE, CONST, STORENEXT, BZ, BITSET, INC, CALL},
    {BITSET, LOAD, ADDCONST, STORENEXT, GOTO, LOW, INC, BNC}, {TWICE, ADDCONST, STORE, BC, LOW, STORENEXT, BITCLR, BRA},
};

static void put_section(int section)
{
    switch (dialect) {
    case ZEL8: printf("\tpsect\ttext%d,class=CODE,reloc=2,delta=1\n", section); break;
    case AVR: printf("\t.section\t.text%d,\"ax\",@progbits\n", section); break;
    case NASM: printf("\tsection\ttext%d progbits alloc exec nowrite align=4\n", section); break;
    default: printf("\t.segment\t\"TEXT%d\"\n", section);
    }
}

static void put_equates(const char *stem, int count, int base, int step)
{
    static const char *const form[DIALECTS] = {
        "%s%d\tequ\t0x%X\n",
        "\t.equ\t%s%d, 0x%X\n",
        "%s%d\tequ\t0x%X\n",
        "%s%d\t=\t$%X\n",
    };
    for (int i = 0; i < count; i++)
        printf(form[dialect], stem, i, base + i * step);
}

struct place_t {
    int64_t block, first, last, total;
};   // a block, the blocks of its section, and of the whole program

static int64_t clamp(int64_t n, int64_t lo, int64_t hi) { return n < lo ? lo : n > hi ? hi : n; }

static void put_op(op_t op, const place_t *at)
{
    const uint32_t var = draw(VARS), port = draw(PORTS), buf = draw(BUFS), num = draw(16), bit = draw(8), hex = draw(256);
    const int64_t near = clamp(at->block + (int64_t)draw(2 * NEAR_BLOCKS + 1) - NEAR_BLOCKS, at->first, at->last);
    const uint32_t range = draw(2), distance = draw(2 * FAR_BLOCKS + 1), anywhere = draw((uint32_t)at->total);
    const int64_t far = range ? (int64_t)anywhere : clamp(at->block + (int64_t)distance - FAR_BLOCKS, 0, at->total - 1);
    putchar('\t');
    for (const char *p = op_text[op][dialect]; *p; p++) {
        if (*p != '@') {
            putchar(*p);
            continue;
        }
        switch (*++p) {
        case 'v': printf("var%u", var); break;
        case 'p': printf("port%u", port); break;
        case 'w': printf("buffer%u", buf); break;
        case 'k': printf("%u", num); break;
        case 'b': printf("%u", bit); break;
        case 'h': printf("%02x", hex); break;
        case 'n': printf("block_%" PRId64, near); break;
        case 'f': printf("block_%" PRId64, far); break;
        }
    }
    putchar('\n');
}

// A head of one line for each equated symbol and each section; then `lines` lines, in blocks of a comment, a label and eight
// instructions, dealt out evenly to the sections one after the other.
static void shape_blocks(int64_t lines)
{
    const int64_t total = lines / BLOCK_LINES > 0 ? lines / BLOCK_LINES : 1;
    put_equates("port", PORTS, PORT_BASE, 1);
    put_equates("var", VARS, VAR_BASE, 2);
    put_equates("buffer", BUFS, BUF_BASE, 0x21);
    for (int section = 0; section < SECTIONS; section++) {
        place_t at = {0, total * section / SECTIONS, total * (section + 1) / SECTIONS - 1, total};
        put_section(section);
        for (at.block = at.first; at.block <= at.last; at.block++) {
            printf("; block %" PRId64 " of the program, in section %d\nblock_%" PRId64 ":\n", at.block, section, at.block);
            for (op_t op : blocks[draw(sizeof blocks / sizeof *blocks)])
                put_op(op, &at);
        }
    }
}

// A program of calls, each of which becomes MACRO_LINES lines, of macros in macros and of `irp` and `rept` in those. The one
// label in them is a local name, since a program of 60,000 symbols is the largest there is.
static void shape_macros(int64_t lines)
{
    static const char definitions[] = "load\tmacro\treg,value\n\tmovlw\t(value) && 255\n\tmovwf\treg,c\n\tendm\n"
                                      "store\tmacro\tto,value\n\tload\tto,value\n\tload\tto+1,(value) shr 8\n\tendm\n"
                                      "block\tmacro\treg,other,pin,number\n\tlocal\tskip\n"
                                      "\tstore\treg,number*2+1\n"
                                      "\tstore\tother,number\t; both bytes\n"
                                      "\tirp\tfrom,reg,other,other+1,var0\n\taddwf\tfrom,f,c\n\tendm\n"
                                      "\tbtfsc\tport&pin,pin,c\n"
                                      "\tbra\tskip\n"
                                      "\trept\t4\n\tincf\treg+1,f,c\t; again\n\tendm\n"
                                      "skip:\tbcf\tport&pin,pin,c\n"
                                      "\tcall\tentry\n\tendm\n";
    enum { MACRO_LINES = 20 };
    put_equates("port", PORTS, PORT_BASE, 1);
    put_equates("var", VARS, VAR_BASE, 2);
    fputs(definitions, stdout);
    for (int64_t call = 0, calls = lines / MACRO_LINES; call <= calls; call++) {
        if (call % (calls / SECTIONS + 1) == 0)
            put_section((int)(call / (calls / SECTIONS + 1)));
        fputs(call ? "" : "entry:\n", stdout);
        const uint32_t reg = draw(VARS), other = draw(VARS), pin = draw(8);
        printf("\tblock\tvar%u,var%u,%u,%u\n", reg, other, pin, draw(65536));
    }
}

// For the optimiser: one section of blocks of ten lines, the last of which is a `goto`. Sixteen of these lead to one label, and
// what stands before them are tails that others have too. The `bnz` lets every block be reached.
static void shape_gotos(int64_t lines)
{
    enum { TAILS = 8, GOTOS_A_LABEL = 16 };
    const int64_t total = lines / BLOCK_LINES > 0 ? lines / BLOCK_LINES : 1;
    put_equates("port", PORTS, PORT_BASE, 1);
    put_equates("var", VARS, VAR_BASE, 2);
    put_section(0);
    printf("\tglobal\tblock_0\n");
    for (int64_t block = 0; block < total; block++) {
        const uint32_t tail = draw(TAILS), target = draw((uint32_t)(total / GOTOS_A_LABEL) + 1);
        const int64_t label = clamp((int64_t)target * GOTOS_A_LABEL, 0, total - 1);
        printf("block_%" PRId64 ":\n\tincf\tvar%u,f,c\n\tbnz\tblock_%" PRId64 "\n", block, draw(VARS),
               block + 1 < total ? block + 1 : 0);
        printf("\tmovlw\t%u\n\taddwf\tvar%u,f,c\n\tbtfsc\tport%u,%u,c\n\trlcf\tvar%u,f,c\n", draw(250), draw(VARS),
               draw(PORTS), draw(8), draw(VARS));
        printf("\tmovff\tvar%u,var%u\n\tincf\tvar%u,f,c\n\tgoto\tblock_%" PRId64 "\n", tail, tail + 8, tail + 1, label);
    }
}

// For the optimiser: functions of a hundred lines as a compiler writes them, each in a psect of its own: assignments, tests,
// loops, and calls of other functions. `@l` is a label of the statement's own, `@g` another function, the other letters are
// those of `op_text`.
static const struct {
    int lines, labels;
    const char *text;
} statements[] = {
    {5, 1, "\tbtfsc\t@p,@b,c\n\tgoto\t@l\n\tmovlw\t@k\n\tmovwf\t@v,c\n@l:\n"},
    {7, 1, "\tmovlw\t@k\n\tmovwf\tvar0,c\n@l:\n\tmovf\t@v,w,c\n\taddwf\t@v,f,c\n\tdecfsz\tvar0,f,c\n\tgoto\t@l\n"},
    {6, 1, "\tmovlw\t@k\n\txorwf\t@v,w,c\n\tbnz\t@l\n\tclrf\t@v,c\n\tbsf\t@p,@b,c\n@l:\n"},
    {2, 0, "\tmovff\t@v,@v\n\tcall\t@g\n"},
    {3, 0, "\tmovf\t@v,w,c\n\taddwf\t@v,w,c\n\tmovwf\t@v,c\n"},
    {2, 0, "\tmovlw\t@k\n\tmovwf\t@v,c\n"},
};

static void put_statement(const char *text, int64_t function, int label, int64_t functions)
{
    for (const char *p = text; *p; p++) {
        if (*p != '@') {
            putchar(*p);
            continue;
        }
        switch (*++p) {
        case 'v': printf("var%u", draw(VARS)); break;
        case 'p': printf("port%u", draw(PORTS)); break;
        case 'k': printf("%u", draw(16)); break;
        case 'b': printf("%u", draw(8)); break;
        case 'g': printf("_f%u", draw((uint32_t)functions)); break;
        case 'l': printf("l%" PRId64 "_%d", function, label); break;
        }
    }
}

static void shape_compiled(int64_t lines)
{
    enum { LINES = 100, FRAME = 5, LABELS = 6, STATEMENTS = sizeof statements / sizeof *statements };
    const int64_t total = lines / LINES > 0 ? lines / LINES : 1;
    put_equates("port", PORTS, PORT_BASE, 1);
    put_equates("var", VARS, VAR_BASE, 2);
    for (int64_t f = 0; f < total; f++) {
        printf("\tpsect\ttext%" PRId64 ",local,class=CODE,reloc=2\n\tglobal\t_f%" PRId64 "\n_f%" PRId64 ":\n", f, f, f);
        for (int used = FRAME, label = 0; used < LINES;) {
            const auto &s = statements[draw(STATEMENTS)];
            if (s.labels + label > LABELS)
                continue;
            put_statement(s.text, f, label, total);
            label += s.labels;
            used += s.lines;
        }
        printf("\treturn\n__end_of_f%" PRId64 ":\n", f);
    }
}

// Sixteen bytes a line, in one section.
static void shape_data(int64_t lines)
{
    static const char *const form[DIALECTS] = {"\tdb\t%u", "\t.byte\t%u", "\tdb\t%u", "\t.byte\t%u"};
    put_section(0);
    for (int64_t line = 0; line < lines; line++) {
        printf(form[dialect], draw(256));
        for (int i = 1; i < 16; i++)
            printf(",%u", draw(256));
        putchar('\n');
    }
}

static const struct {
    const char *name;
    void (*write)(int64_t lines);
    unsigned dialects;
    const char *what;
} shapes[] = {
    {"blocks", shape_blocks, (1U << DIALECTS) - 1,
     "blocks of ten lines: comment, label, eight instructions of which two are branches"},
    {"macros", shape_macros, 1U << ZEL8, "calls of nested macros, with irp and rept; LINES counts what they become"},
    {"gotos", shape_gotos, 1U << ZEL8, "one section in which every tenth line is a goto, with tails that several share"},
    {"data", shape_data, (1U << DIALECTS) - 1, "sixteen bytes a line"},
    {"compiled", shape_compiled, 1U << ZEL8, "functions of a hundred lines, each in a psect of its own"},
};

static int usage()
{
    fprintf(stderr, "usage: bench_gen SHAPE LINES [DIALECT]\nshapes:\n");
    for (const auto &shape : shapes)
        fprintf(stderr, "  %-10s %s\n", shape.name, shape.what);
    fprintf(stderr, "dialects:");
    for (const auto &d : dialect_names)
        fprintf(stderr, " %s", d.name);
    fputc('\n', stderr);
    return 2;
}

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 4)
        return usage();
    char *end;
    const int64_t lines = strtoll(argv[2], &end, 10);
    if (*end || lines < 1 || lines > 1000000000)
        return usage();
    bool known = false;
    for (const auto &d : dialect_names)
        if (!strcmp(d.name, argc == 4 ? argv[3] : "zel8"))
            known = true, dialect = d.dialect;
    if (!known)
        return usage();
    for (const auto &shape : shapes) {
        if (strcmp(shape.name, argv[1]))
            continue;
        if (!(shape.dialects >> dialect & 1)) {
            fprintf(stderr, "bench_gen: shape %s has no form in %s\n", argv[1], argv[3]);
            return 1;
        }
        shape.write(lines);
        if (fflush(stdout) || ferror(stdout)) {
            perror("bench_gen: standard output");
            return 1;
        }
        return 0;
    }
    return usage();
}
