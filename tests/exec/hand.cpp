// hand: makes programs as people write them, beside those of `gen` that look like a compiler's.
//
// A program is a row of idioms, each of which is one text of `idioms`: a jump table, a delay loop, an addition of 24 bits. An
// idiom does its work in a few registers, and whatever it finds there, it ends; so idioms can follow each other in any
// order, stand in a function of their own, under `asmopt off`, or between false arms of a conditional. A third of the programs
// has two modules, and as many have an interrupt's handler.
//
// In a text, {name} is a hole, filled anew for each digit behind the name:
//   {r} a register of the access bank, with its access word; {m} the same without   {b} a bit   {k} a number
//   {small} a number from 1 to 5   {port} {lat} a port, a latch   {d} w or f   {go} goto or bra
//   {@} this idiom's own number   {callw} a call of one{@}, by address if the chip can do that
//   {own} what labels of the idiom begin with: a name like the optimiser's own labels, or a plain one
// Statements stand on a line of their own or are parted by " / ". Labels of an idiom hold {@}. What follows a line of "---" stands outside the flow of the program: functions and tables,
// each part in a psect that it names itself, or in one taken at random, and each in any module, though not ahead of the part
// before it.
#include "gen.h"

#include <set>
#include <sstream>

struct hand_t {
    uint64_t state;
    const target_t *target;
    unsigned number = 0;
    uint32_t below(size_t n)
    {
        state = state * 6364136223846793005 + 1442695040888963407;
        return static_cast<uint32_t>((state >> 33) % n);
    }
    const char *of(std::initializer_list<const char *> list) { return list.begin()[below(list.size())]; }
};

// What a hole gets. `kind` is the name without its digit, `as` what stands behind a colon.
static std::string filling(hand_t &h, const std::string &kind)
{
    if (kind == "r" || kind == "m")
        return "a" + std::to_string(h.below(8));
    if (kind == "b")
        return std::to_string(h.below(8));
    if (kind == "k")
        return std::to_string(h.below(4) ? 10 + h.below(90) : 11);
    if (kind == "small")
        return std::to_string(1 + h.below(5));
    if (kind == "callw")
        return h.target->wide ? "callw" : "call\tone" + std::to_string(h.number);
    if (kind == "own")
        return h.of({"L", "PL", "iL", "_L", "L", "wait", "lbl_"});
    return kind == "port"  ? h.of({"PORTA", "PORTB"})
           : kind == "lat" ? h.of({"LATA", "LATB", "LATC"})
           : kind == "go"  ? h.of({"goto", "bra"})
                           : h.of({"w", "f"});
}

static std::string fill(hand_t &h, const std::string &text)
{
    std::map<std::string, std::string> chosen;
    std::string out;
    for (size_t at = 0, from; at < text.size(); at = text.find('}', from) + 1) {
        from = text.find('{', at);
        out += text.substr(at, from - at);
        if (from == std::string::npos)
            break;
        std::string name = text.substr(from + 1, text.find('}', from) - from - 1), as;
        if (const size_t colon = name.find(':'); colon != std::string::npos)
            as = name.substr(colon + 1), name.erase(colon);
        const std::string kind = name.substr(0, name.find_first_of("0123456789"));
        const bool with_access = kind == "r";
        if (name == "@") {
            out += std::to_string(h.number);
            continue;
        }
        std::string &value = chosen[kind == "m" ? "r" + name.substr(1) : name];   // {m1} is the register of {r1}
        if (value.empty())
            value = filling(h, kind);
        out += value;
        if (with_access)
            out += (as == "bit" ? "," + std::to_string(h.below(8)) : as.empty() ? "" : "," + as) + ",c";
    }
    return out;
}

// One statement a line, those with a label at its beginning.
static std::string lines_of(const std::string &text)
{
    std::istringstream in(text);
    std::string out;
    for (std::string line; std::getline(in, line);)
        for (size_t at = 0, end; at < line.size(); at = end + 3) {
            end = std::min(line.find(" / ", at), line.size());
            const std::string statement = line.substr(at, end - at);
            const size_t word = statement.find_first_of(" :");
            const bool at_front = statement == "---" || (word != std::string::npos && statement[word] == ':');
            out += (at_front ? "" : "\t") + statement + "\n";
        }
    return out;
}

static std::string around(hand_t &h, const std::string &code)
{
    switch (h.below(8)) {
    case 0: return "\tasmopt\toff\n" + code + "\tasmopt\ton\n";
    case 1: return "\tif\t0\nfalse" + std::to_string(h.number) + ":\treturn\n\tendif\n" + code;
    case 2: return "\tif\tOTHER_CHIP\n\treturn\n\telse\n" + code + "\tendif\n";
    default: return code;
    }
}

static std::string any_psect(hand_t &h)
{
    return "\tpsect\ttext" + std::to_string(h.below(3)) + "x,class=CODE,reloc=2,delta=1\n";
}

// A handler saves what it uses, in one order or another, and works in registers that are its own.
static std::string handler(hand_t &h)
{
    static const char *const works[] = {
        "\tmovlb\t2\n\tincf\tHANDLER_OWN+4,f,c\n\tmovlw\t0\n\taddwfc\tHANDLER_OWN+5,f,c\n",
        "\tbtfss\tHANDLER_OWN+4,0,c\n\tgoto\tiL1handler\n\tmovlw\t11\n\tmovwf\tHANDLER_OWN+5,c\niL1handler:\n"
        "\tbsf\tHANDLER_OWN+4,0,c\n",
        "\tmovff\tPRODL,HANDLER_OWN+6\n\tmovff\tPRODH,HANDLER_OWN+7\n\tmovf\tHANDLER_OWN+4,w,c\n\tmullw\t3\n\tmovf\tPRODL,w,c\n"
        "\tmovwf\tHANDLER_OWN+4,c\n\tmovff\tHANDLER_OWN+6,PRODL\n\tmovff\tHANDLER_OWN+7,PRODH\n",
        "\tcall\tserve\n",
    };
    static const char *const frames[][2] = {
        {"\tmovff\tSTATUS,HANDLER_OWN\n\tmovff\tWREG,HANDLER_OWN+1\n\tmovff\tBSR,HANDLER_OWN+2\n",
         "\tmovff\tHANDLER_OWN+2,BSR\n\tmovff\tHANDLER_OWN+1,WREG\n\tmovff\tHANDLER_OWN,STATUS\n\tretfie\n"},
        {"\tmovwf\tHANDLER_OWN,c\n\tmovff\tSTATUS,HANDLER_OWN+1\n\tmovff\tBSR,HANDLER_OWN+2\n",
         "\tmovff\tHANDLER_OWN+2,BSR\n\tmovf\tHANDLER_OWN,w,c\n\tmovff\tHANDLER_OWN+1,STATUS\n\tretfie\n"},
        {"\tmovwf\tHANDLER_OWN,c\n\tswapf\tSTATUS,w,c\n\tmovwf\tHANDLER_OWN+1,c\n\tmovff\tBSR,HANDLER_OWN+2\n",
         "\tmovff\tHANDLER_OWN+2,BSR\n\tswapf\tHANDLER_OWN+1,w,c\n\tmovwf\tSTATUS,c\n\tswapf\tHANDLER_OWN,f,c\n"
         "\tswapf\tHANDLER_OWN,w,c\n\tretfie\n"},
        {"", "\tretfie\tf\n"},
    };
    const auto &frame = frames[h.below(std::size(frames))];
    std::string body = frame[0];
    for (const char *work : works)
        body += h.below(2) ? work : "";
    body += frame[1];
    const std::string psect = "\tpsect\ttext0x,class=CODE,reloc=2,delta=1\n",
                      serve = "serve:\tincf\tHANDLER_OWN+6,f,c\n\tbtfsc\tHANDLER_OWN+6,3,c\n"
                              "\tretlw\t3\n\tsetf\tHANDLER_OWN+7,c\n\treturn\n";
    return "HANDLER_OWN\tequ\t0x58\n\tpsect\t" + std::string(INTERRUPT_PSECT) + ",class=CODE,abs,ovrld,delta=1\n\torg\t8\n" +
           (h.below(2) ? "\tgoto\tisr\n" + psect + "isr:\n" + body : body) +
           (body.find("serve") != std::string::npos ? psect + serve : "");
}

// Modules.

static bool is_name_char(char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; }

static std::set<std::string> labels_in(const std::string &text)
{
    std::set<std::string> labels;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (const size_t colon = line.find(':'); colon != std::string::npos && is_name_char(line[0]) && !isdigit(line[0]))
            labels.insert(line.substr(0, colon));
    return labels;
}

static std::set<std::string> names_in(const std::string &text)
{
    std::set<std::string> names;
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        for (end = at; end < text.size() && is_name_char(text[end]); end++)
            ;
        names.insert(text.substr(at, end - at));
    }
    return names;
}

// Joins the pieces of two modules, the second of which begins like the first, and makes names known that both use.
static pieces_t join_modules(pieces_t pieces, const pieces_t &second)
{
    if (second.empty())
        return pieces;
    std::string head = std::string(MODULE_MARK) + "\n", shared;
    std::istringstream in(pieces[0]);
    for (std::string line; std::getline(in, line);)
        if (line.find("\tequ\t") != std::string::npos || line.starts_with("\tprocessor"))
            head += line + "\n";
    const std::string texts[2] = {pieces_text(pieces), pieces_text(second)};
    for (int i = 0; i < 2; i++) {
        const std::set<std::string> names = names_in(texts[1 - i]);
        for (const std::string &label : labels_in(texts[i]))
            if (names.contains(label))
                shared += "\tglobal\t" + label + "\n";
    }
    pieces[0] += shared;
    pieces.push_back(head + shared + "\tcallstack\t1\n");
    pieces.insert(pieces.end(), second.begin(), second.end());
    return pieces;
}

pieces_t hand_program(uint64_t seed, const target_t &target)
{
    hand_t h{seed * 0x9E3779B97F4A7C15 + 1, &target};
    pieces_t pieces = gen_frame(target), outside[2];
    const std::string last = pieces.back();
    const unsigned count = 5 + h.below(11), modules = h.below(3) ? 1 : 2;
    pieces.pop_back();
    pieces[0] += "OTHER_CHIP\tequ\t0\n\tpsect\ttext,class=CODE,reloc=2,delta=1\n";
    for (h.number = 1; h.number <= count; h.number++) {
        const std::string id = std::to_string(h.number);
        std::string text = lines_of(fill(h, hand_idioms[h.below(hand_idiom_count)])), code;
        if (text.find("n" + id) != std::string::npos)
            pieces[0] += "\tpsect\tvars\nn" + id + ":\tds\t3\n";
        for (unsigned part = 0, module = 0; !text.empty(); part++) {
            const size_t mark = std::min(text.find("---\n"), text.size());
            if (part == 0)
                code = around(h, text.substr(0, mark));
            else
                outside[module += h.below(modules - module)].push_back(any_psect(h) + text.substr(0, mark));
            text.erase(0, mark + 4);
        }
        if (h.below(4) == 0) {   // in a function of its own
            outside[h.below(modules)].push_back(any_psect(h) + "fun" + id + ":\n" + code + "\treturn\n__end_of_fun" + id +
                                                ":\n");
            code = "\tcall\tfun" + id + "\n";
        }
        pieces.push_back(code);
    }
    pieces.push_back(last + (h.below(4) ? "__end_of_main:\n" : ""));
    if (h.below(3) == 0)
        pieces.push_back(handler(h));
    pieces.insert(pieces.end(), outside[0].begin(), outside[0].end());
    return join_modules(pieces, outside[1]);
}
