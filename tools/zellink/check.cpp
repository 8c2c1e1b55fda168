// check: looks at the whole linked program for what each module alone can't tell.
//
// It walks the code from reset and from the interrupts, function by function. What a condition asks for isn't looked at: each arm
// is taken to be possible. On that ground it claims two things: something "is wrong" if no way through the code makes it right,
// and "may be wrong" if some way doesn't, or if what it depends on isn't known. Where it can't follow, behind a computed jump that
// no table of branches follows, it claims nothing.
//
// *Banks.* To each instruction belong the values that BSR may have there, first in terms of what it was at the function's begin
// (ENTRY), so that one look at a function serves all that call it; then with what the callers bring. A value knows from which
// instruction it came, which gives the way that brings it. A function that saves BSR by `movff` and puts it back keeps it.
//
// *Interrupts.* A handler is gone through with a token in each place of memory that tells whose original value is there. Copies
// move tokens, everything else destroys them; at the return each register has to hold its own again, if what was interrupted
// makes use of it. Of a function that the handler calls, only what it writes is known.
#include <algorithm>

#include "zellink.h"

namespace
{

enum : int { UNKNOWN = -1, ENTRY = -2 };   // of BSR, beside the numbers of banks

struct origin_t {
    uint32_t from;   // the instruction that brought the value, NOWHERE at the begin of a function
    int value;       // as it was there
};
constexpr uint32_t NOWHERE = UINT32_MAX;
using values_t = std::map<int, origin_t>;
struct caller_t {
    uint32_t function;   // NOWHERE if the chip itself, or nobody that is known, begins there
    origin_t call;
};

struct knowledge_t {
    std::map<uint32_t, values_t> at;      // of BSR, ahead of each instruction
    std::map<uint32_t, uint32_t> saved;   // where BSR was copied to, and by which instruction
    std::set<int> exits;                  // BSR at the returns; empty if there is none
    std::map<int, caller_t> entry;        // what callers bring
};

struct checker {
    zl_linker &l;
    const zl_flow &f;
    std::map<uint32_t, std::string> data{};   // names of data addresses
    std::map<uint32_t, knowledge_t> functions{};
    std::map<uint32_t, uint32_t> reached{};   // instructions, and their bytes
    std::set<const zl_piece *> entered{};     // pieces that a root, a jump or a call leads to
    bool strays = false;                      // control goes where it shouldn't, which has been told

    const zl_piece *piece(uint32_t at) const { return at < f.owner.size() ? f.owner[at] : nullptr; }

    std::string place(uint32_t at) const
    {
        const zl_piece *const p = piece(at);
        const std::string line = p ? zl_line_of(*p, at - zl_address(*p)) : "";
        return line.empty() ? zl_place_name(f, at) : line;
    }

    void tell(bool certain, uint32_t at, const std::string &text)
    {
        const zl_piece *const p = piece(at);
        const std::string what = (certain ? "is wrong: " : "may be wrong: ") + text;
        p ? zl_complain(l, *p, at - zl_address(*p), what, !certain) : zl_complain(l, "", what, !certain);
    }

    uint32_t file_address(uint32_t at, const zo_code &c) const
    {
        const auto it = l.operands.find(at);
        return c.banked ? (it == l.operands.end() ? NOWHERE : it->second) : zl_access_address(l.target, c);
    }

    void name_data();
    std::string data_name(uint32_t address) const
    {
        const auto it = data.find(address);
        return it == data.end() ? zo_format("0x%X", address) : zl_quoted(it->second);
    }

    // Banks.
    std::set<int> after(const knowledge_t &k, uint32_t at, const zo_code &c, int value) const;
    void learn(const zl_function &fn, knowledge_t &k);
    void learn_all();
    void bring(uint32_t to, int value, uint32_t caller, origin_t origin);
    void enter_all();
    std::string way(uint32_t function, uint32_t at, int value, int resolved) const;
    void check_banks(const zl_function &fn, const knowledge_t &k);

    void find_entered();
    void check_steps(const knowledge_t &k);
    void check_unreached();

    // Interrupts.
    void check_interrupt(const zl_root &root);
    void check_table(const knowledge_t &k);
    bool table_moved = false;   // which has been told
};

bool named(const zo_code &c, std::initializer_list<std::string_view> names)
{
    return c.name && std::find(names.begin(), names.end(), c.name) != names.end();
}

bool has_file(const zo_code &c) { return c.form == ZO_FILE_ACC || c.form == ZO_FILE_DEST || c.form == ZO_FILE_BIT; }
bool moves(const zo_code &c) { return c.form == ZO_MOVFF || c.form == ZO_MOVFFL; }

// Whether the file operand is written.
bool writes_file(const zo_code &c)
{
    return (c.form == ZO_FILE_DEST && c.file) || named(c, {"movwf", "clrf", "setf", "negf", "bsf", "bcf", "btg"});
}

void checker::name_data()
{
    const auto note = [&](const zl_symbols &table) {
        for (const auto &[name, s] : table) {
            zl_sum sum{};
            if (!zl_symbol_value(l, s, sum) || !sum.data || sum.value < 0)
                continue;
            std::string &known = data[static_cast<uint32_t>(sum.value)];
            if (known.empty() || name < known)
                known = name;
        }
    };
    note(l.globals);
    for (const zl_module &m : l.modules)
        note(m.locals);
}

// What BSR is behind an instruction, but for what a call does.
std::set<int> checker::after(const knowledge_t &k, uint32_t at, const zo_code &c, int value) const
{
    const uint32_t bsr = target_sfr(l.target, "BSR");
    if (named(c, {"movlb"}))
        return {static_cast<int>(c.a)};
    if (moves(c) && c.b == bsr) {
        const auto saved = k.saved.find(c.a);
        const auto then = saved == k.saved.end() ? k.at.end() : k.at.find(saved->second);
        std::set<int> values;
        if (then != k.at.end())
            for (const auto &[v, origin] : then->second)
                values.insert(v);
        return values.empty() ? std::set<int>{UNKNOWN} : values;
    }
    if (has_file(c) && writes_file(c) && file_address(at, c) == bsr)
        return {named(c, {"clrf"}) ? 0 : int{UNKNOWN}};
    return {value};
}

// Goes through a function with what is known of those that it calls.
void checker::learn(const zl_function &fn, knowledge_t &k)
{
    const uint32_t bsr = target_sfr(l.target, "BSR");
    std::vector<std::pair<uint32_t, int>> open;
    const auto reach = [&](uint32_t to, int value, origin_t origin) {
        if (fn.code.contains(to) && k.at[to].emplace(value, origin).second)
            open.push_back({to, value});
    };
    reach(fn.entry, ENTRY, {NOWHERE, ENTRY});
    for (const auto &[at, values] : k.at)   // again, since a function that it calls may do more than was known
        for (const auto &[value, origin] : values)
            open.push_back({at, value});
    const auto add_exits = [&](const std::set<int> &exits, int value) {
        for (int e : exits)
            k.exits.insert(e == ENTRY ? value : e);
    };
    while (!open.empty()) {
        const auto [at, value] = open.back();
        open.pop_back();
        const zo_code c = zl_code_at(f, at);
        const zl_next n = zl_next_of(f, at, c);
        if (moves(c) && c.a == bsr)
            k.saved[c.b] = at;
        if (n.returns)
            k.exits.insert(c.fast ? int{ENTRY} : value);
        std::set<int> values = after(k, at, c, value);
        if (n.computed && n.to.empty())
            k.exits.insert(UNKNOWN);
        if (named(c, {"callw"}))
            values = {UNKNOWN};
        if (n.calls) {
            values.clear();
            for (int e : functions[n.callee].exits)
                values.insert(e == ENTRY ? value : e);
        }
        for (uint32_t to : n.to)
            for (int v : values) {
                reach(to, v, {at, value});
                if (to != fn.entry && functions.contains(to))
                    add_exits(functions[to].exits, v);
            }
    }
}

void checker::learn_all()
{
    for (const auto &[entry, fn] : f.functions)
        functions[entry];
    for (bool changed = true; changed;) {
        changed = false;
        for (auto it = f.functions.rbegin(); it != f.functions.rend(); ++it) {
            knowledge_t &k = functions[it->first];
            const size_t exits = k.exits.size(), places = k.at.size();
            learn(it->second, k);
            changed = changed || exits != k.exits.size() || places != k.at.size();
        }
    }
}

// What callers bring.

void checker::bring(uint32_t to, int value, uint32_t caller, origin_t origin)
{
    std::vector<std::pair<uint32_t, int>> open;
    const auto add = [&](uint32_t callee, int v, uint32_t by, origin_t o) {
        if (functions.contains(callee) && functions[callee].entry.emplace(v, caller_t{by, o}).second)
            open.push_back({callee, v});
    };
    add(to, value, caller, origin);
    while (!open.empty()) {
        const auto [entry, brought] = open.back();
        open.pop_back();
        const knowledge_t &k = functions.at(entry);
        for (const auto &[at, values] : k.at) {
            const zo_code c = zl_code_at(f, at);
            const zl_next n = zl_next_of(f, at, c);
            for (const auto &[v, o] : values) {
                if (n.calls)
                    add(n.callee, v == ENTRY ? brought : v, entry, {at, v});
                for (uint32_t next : n.to)
                    if (next != entry && functions.contains(next))
                        for (int w : after(k, at, c, v))
                            add(next, w == ENTRY ? brought : w, entry, {at, v});
            }
        }
        for (const zl_call &call : f.functions.at(entry).calls)
            if (call.recorded)
                add(call.to, UNKNOWN, entry, {NOWHERE, UNKNOWN});
    }
}

void checker::enter_all()
{
    for (const zl_root &r : f.roots)   // a chip starts with BSR 0
        bring(r.entry, r.what == "main" ? 0 : int{UNKNOWN}, NOWHERE, {NOWHERE, UNKNOWN});
    for (uint32_t at : f.pointed)
        bring(at, UNKNOWN, NOWHERE, {NOWHERE, UNKNOWN});
    for (const auto &[entry, k] : functions)
        if (!k.entry.empty())
            for (const auto &[at, values] : k.at)
                reached[at] = 2 * zl_code_at(f, at).words;
}

// The way that brings a value: where it was set, and the branches and calls since then. `value` is what the function knows of
// it, `resolved` what that is with what the callers bring.
std::string checker::way(uint32_t function, uint32_t at, int value, int resolved) const
{
    const size_t STEPS = 6;
    std::vector<std::string> steps;   // from the last to the first
    std::set<std::tuple<uint32_t, uint32_t, int>> seen;
    while (seen.emplace(function, at, value).second) {
        const knowledge_t &k = functions.at(function);
        const origin_t o = k.at.at(at).at(value);
        const bool begins = o.from == NOWHERE;
        const caller_t by = begins ? k.entry.at(resolved) : caller_t{function, o};
        if (by.call.from == NOWHERE) {
            const auto root =
                std::find_if(f.roots.begin(), f.roots.end(), [&](const zl_root &r) { return r.entry == function; });
            steps.push_back((root == f.roots.end() ? zl_place_name(f, function) : root->what) + " begins");
            break;
        }
        const zo_code c = zl_code_at(f, by.call.from);
        const bool sets =
            begins ? by.call.value != ENTRY && by.call.value != resolved : by.call.value != value;   // else only brings
        if (begins || sets || at != by.call.from + 2 * c.words)
            steps.push_back(place(by.call.from) + " " + c.name);
        if (sets)
            break;
        function = by.function;
        at = by.call.from;
        value = by.call.value;
    }
    std::string text;
    const size_t left_out = steps.size() > STEPS ? steps.size() - STEPS : 0;
    for (size_t i = steps.size(); i-- > 0;)
        if (i == steps.size() - 1 || i < STEPS)
            text += (text.empty() ? "" : i + 1 == STEPS && left_out > 1 ? ", ..., " : ", ") + steps[i];
    return text;
}

void checker::check_banks(const zl_function &fn, const knowledge_t &k)
{
    std::set<std::pair<uint32_t, std::set<int>>> told;   // one slip makes many wrong accesses
    for (const auto &[at, values] : k.at) {
        const zo_code c = zl_code_at(f, at);
        const auto operand = l.operands.find(at);
        if (!has_file(c) || !c.banked || operand == l.operands.end())
            continue;
        const uint32_t bank = operand->second >> 8;
        std::set<int> wrong;
        std::string how;
        const auto look = [&, at = at](int value, int resolved) {
            if (resolved == static_cast<int>(bank) || !wrong.insert(resolved).second)
                return;
            how += (how.empty() ? "" : "; ") + (resolved == UNKNOWN ? "isn't known" : zo_format("is %d", resolved)) +
                   " by " + way(fn.entry, at, value, resolved);
        };
        for (const auto &[value, origin] : values) {
            if (value != ENTRY)
                look(value, value);
            else
                for (const auto &[brought, by] : k.entry)
                    look(value, brought);
        }
        if (wrong.empty() || !told.emplace(bank, wrong).second)
            continue;
        const bool certain = !wrong.contains(UNKNOWN) && !values.contains(static_cast<int>(bank)) &&
                             !(values.contains(ENTRY) && k.entry.contains(static_cast<int>(bank)));
        tell(certain, at,
             data_name(operand->second) + zo_format(" is in bank %u, but BSR ", bank) + how + ": select the bank here");
    }
}

bool jumps_always(const zo_code &c) { return c.form == ZO_GOTO || named(c, {"bra"}); }

void checker::find_entered()
{
    for (const zl_root &r : f.roots)
        entered.insert(piece(r.entry));
    for (uint32_t at : f.pointed)
        entered.insert(piece(at));
    for (const auto &[at, bytes] : reached) {
        const zo_code c = zl_code_at(f, at);
        const zl_next n = zl_next_of(f, at, c);
        const auto enter = [&, here = piece(at)](uint32_t to) {
            if (piece(to) != here)
                entered.insert(piece(to));
        };
        if (n.calls)
            enter(n.callee);
        for (uint32_t to : n.to)
            if (to != at + bytes || jumps_always(c))
                enter(to);
    }
}

// Where control goes that there is no code, or another psect's. What comes of a piece that is only run into has its cause there.
void checker::check_steps(const knowledge_t &k)
{
    for (const auto &[at, values] : k.at) {
        const zo_code c = zl_code_at(f, at);
        zl_next n = zl_next_of(f, at, c);
        const uint32_t next = at + 2 * c.words;
        const bool sole = n.to.size() == 1 && !n.computed;
        if (n.calls && functions.at(n.callee).exits.empty())
            n.to.clear();
        if (n.calls)
            n.to.push_back(n.callee);
        for (uint32_t to : n.to) {
            const zl_piece *const from_piece = piece(at), *const to_piece = piece(to);
            const bool jumps = (n.calls && to == n.callee) || jumps_always(c);
            const bool follows = to == next && !jumps, certain = sole || (n.calls && !follows);
            const std::string where = follows ? "runs on into " : n.calls ? "calls " : "leads to ";
            const size_t told = l.messages.size();
            if (follows && !entered.contains(from_piece))
                continue;
            const auto whole = [&](uint32_t a) { return reached.contains(a) && a + reached.at(a) > to && a < to; };
            if (!to_piece)
                tell(certain, at, where + zo_format("0x%X, where no code is", to));
            else if (!zl_code_at(f, to).name)
                tell(certain, at, where + zl_place_name(f, to) + ", where what stands is no instruction");
            else if ((jumps || c.form == ZO_REL8) && (whole(to - 2) || whole(to - 4)))
                tell(false, at, where + zo_format("0x%X, the middle of an instruction", to));
            else if (follows && from_piece != to_piece && to_piece->group->with != from_piece->group->name)
                tell(false, at,
                     "runs off the end of psect " + zl_quoted(from_piece->x.name) + " into psect " +
                         zl_quoted(to_piece->x.name) + " of " + to_piece->module->name +
                         ", which only happens to lie there: jump, or place it `with` the other");
            strays = strays || l.messages.size() > told;
        }
    }
}

// Bytes to which neither control comes nor the address of which is taken. Behind a computed jump may be its table, and behind a
// place whose address is taken may be data.
void checker::check_unreached()
{
    std::vector<bool> run(f.bytes.size());
    std::set<const zl_piece *> running;
    std::set<uint32_t> unclear;
    for (const auto &[at, bytes] : reached) {
        for (uint32_t i = at; i < at + bytes && i < run.size(); i++)
            run[i] = true;
        running.insert(piece(at));
        const zl_next n = zl_next_of(f, at, zl_code_at(f, at));
        if (n.computed || (strays && n.calls && functions.at(n.callee).exits.empty()))   // what strays doesn't return
            unclear.insert(at + bytes);
        if (n.computed && !n.to.empty())   // the last arm may stand behind its table
            unclear.insert(n.to.back() + 2 * zl_code_at(f, n.to.back()).words);
    }
    for (uint32_t at = 0, end; at < run.size(); at = end) {
        end = at + 1;
        const zl_piece *const p = piece(at);
        if (!p || run[at] || (!running.contains(p) && p->group->class_name != "CODE"))
            continue;
        while (end < run.size() && piece(end) == p && !run[end])
            end++;
        const auto mention = l.mentions.lower_bound(at);
        const uint32_t stop = mention == l.mentions.end() ? end : std::min(end, *mention);
        const bool filled = std::all_of(f.bytes.begin() + at, f.bytes.begin() + stop,
                                        [](uint8_t b) { return b == 0x00 || b == 0xFF; });   // by `align`
        if (stop > at && !filled && !unclear.contains(at))
            zl_complain(l, *p, at - zl_address(*p),
                        zo_format("never reached: 0x%X bytes from %s, and nothing takes their address: leave them out",
                                  stop - at, zl_place_name(f, at).c_str()),
                        true);
    }
}

// Interrupts.

using token_t = uint32_t;   // whose value it is, with SWAPPED if its halves are
enum : token_t { SWAPPED = 1u << 30, CHANGED = UINT32_MAX, MIXED = UINT32_MAX - 1 };   // MIXED: not on every way

struct memory_t {
    std::map<uint32_t, token_t> tokens;   // all else holds its own
    token_t get(uint32_t at) const
    {
        const auto it = tokens.find(at);
        return it == tokens.end() ? at : it->second;
    }
};

struct registers_t {
    uint32_t w, status, bsr, prod, tblptr, tablat, fsr[3];
    std::map<uint32_t, unsigned> indirect;   // addresses that go by a file select, and by which
};

registers_t registers_of(const target_t &t)
{
    registers_t r{target_sfr(t, "WREG"),
                  target_sfr(t, "STATUS"),
                  target_sfr(t, "BSR"),
                  target_sfr(t, "PRODL"),
                  target_sfr(t, "TBLPTRL"),
                  target_sfr(t, "TABLAT"),
                  {},
                  {}};
    for (unsigned i = 0; i < 3; i++) {
        const std::string n = std::to_string(i);
        r.fsr[i] = target_sfr(t, "FSR" + n + "L");
        for (const char *mode : {"INDF", "POSTINC", "POSTDEC", "PREINC", "PLUSW"})
            r.indirect[target_sfr(t, mode + n)] = i;
    }
    return r;
}

// What an instruction does to memory: `put(address, token)` for each place that it writes; `get` gives the token of a place.
// Writes by a file select go to where no saved register is.
template <typename G, typename P>
void perform(const target_t &t, const registers_t &r, const zo_code &c, uint32_t file, const G &get, const P &put)
{
    const auto change = [&](uint32_t at, unsigned bytes = 1) {
        for (unsigned i = 0; i < bytes; i++)
            put(at + i, token_t{CHANGED});
    };
    const auto select = [&](uint32_t at) {   // the pre- and post-forms move it
        const auto it = r.indirect.find(at);
        const std::string name = it == r.indirect.end() ? "" : target_sfr_name(t, at);
        if (name.starts_with("P") && !name.starts_with("PLUSW"))
            change(r.fsr[it->second], 2);
        return it != r.indirect.end();
    };
    const auto copy = [&](uint32_t from, uint32_t to) {
        const bool far = select(from), away = select(to);
        if (!away && to != NOWHERE)
            put(to, far || from == NOWHERE ? token_t{CHANGED} : get(from));
    };
    if (moves(c))
        return copy(c.a, c.b);
    if (c.form == ZO_MOVSF || c.form == ZO_MOVSFL)
        return copy(NOWHERE, c.b);
    if (named(c, {"movwf"}))
        return copy(r.w, file);
    const bool whole = named(c, {"swapf", "incfsz", "decfsz", "infsnz", "dcfsnz"});   // no status
    if (c.form == ZO_FILE_DEST) {
        const uint32_t to = c.file ? file : r.w;
        if (named(c, {"movf"})) {
            copy(file, to);
        } else if (named(c, {"swapf"}) && file != NOWHERE && !r.indirect.contains(file)) {
            const token_t token = get(file);
            put(to, token == CHANGED || token == MIXED ? token : token ^ SWAPPED);
        } else {
            copy(NOWHERE, to);
            select(c.file ? NOWHERE : file);
        }
        if (!whole)
            change(r.status);
    } else if (has_file(c)) {
        if (writes_file(c))
            copy(NOWHERE, file);
        else
            select(file);
        if (named(c, {"mulwf"}))
            change(r.prod, 2);
        if (named(c, {"clrf", "negf"}))
            change(r.status);
    } else if (c.form == ZO_LIT8) {
        if (named(c, {"mullw"}))
            change(r.prod, 2);
        else if (named(c, {"pushl"}))
            change(r.fsr[2], 2);
        else
            change(r.w);
        if (!named(c, {"mullw", "pushl", "movlw", "retlw"}))
            change(r.status);
    } else if (c.form == ZO_TABLE) {
        if (named(c, {"tblrd"}))
            change(r.tablat);
        if (c.a)
            change(r.tblptr, 3);
    } else if (c.form == ZO_LFSR || c.form == ZO_FSR_LIT) {
        change(r.fsr[c.form == ZO_FSR_LIT && c.a == 3 ? 2 : c.a % 3], 2);
    } else if (named(c, {"addulnk", "subulnk"})) {
        change(r.fsr[2], 2);
    } else if (named(c, {"movlb"})) {
        change(r.bsr);
    } else if (named(c, {"daw"})) {
        change(r.w);
        change(r.status);
    }
}

// The registers that code makes use of, beside W and STATUS.
void note_uses(const registers_t &r, const zo_code &c, uint32_t file, std::set<uint32_t> &uses)
{
    const auto use = [&](uint32_t at) {
        uses.insert(at);
        if (const auto it = r.indirect.find(at); it != r.indirect.end())
            uses.insert({r.fsr[it->second], r.fsr[it->second] + 1});
    };
    if (moves(c)) {
        use(c.a);
        if (r.indirect.contains(c.b))
            use(c.b);
    } else if (has_file(c)) {
        use(file);
        if (c.banked)
            use(r.bsr);
    } else if (c.form == ZO_TABLE) {
        uses.insert({r.tblptr, r.tblptr + 1, r.tblptr + 2, r.tablat});
    } else if (c.form == ZO_MOVSF || c.form == ZO_MOVSFL || c.form == ZO_MOVSS || named(c, {"pushl"})) {
        uses.insert({r.fsr[2], r.fsr[2] + 1});
    } else if (c.form == ZO_FSR_LIT && c.a < 3) {
        uses.insert({r.fsr[c.a], r.fsr[c.a] + 1});
    }
}

void checker::check_interrupt(const zl_root &root)
{
    const target_t &t = l.target;
    const registers_t r = registers_of(t);
    std::map<uint32_t, memory_t> states;   // ahead of each instruction
    std::map<uint32_t, uint32_t> first;    // where a place is changed
    std::vector<uint32_t> open{root.entry};
    states[root.entry];
    size_t exits = 0;
    std::map<uint32_t, size_t> changed, mixed;   // by register: at how many exits
    std::vector<std::pair<uint32_t, const char *>> kept{{r.w, "WREG"}, {r.status, "STATUS"}, {r.bsr, "BSR"}};
    for (const char *name :
         {"PRODL", "PRODH", "TBLPTRL", "TBLPTRH", "TBLPTRU", "TABLAT", "FSR0L", "FSR0H", "FSR1L", "FSR1H", "FSR2L", "FSR2H"})
        kept.push_back({target_sfr(t, name), name});
    const auto note_first = [&](uint32_t to, uint32_t at) {
        const auto [it, fresh] = first.try_emplace(to, at);
        it->second = std::min(it->second, at);
    };
    while (!open.empty()) {
        const uint32_t at = open.back();
        open.pop_back();
        const zo_code c = zl_code_at(f, at);
        if (!c.name)
            continue;
        memory_t m = states[at];
        const zl_next n = zl_next_of(f, at, c);
        const memory_t before = m;
        perform(
            t, r, c, has_file(c) ? file_address(at, c) : NOWHERE, [&](uint32_t from) { return before.get(from); },
            [&](uint32_t to, token_t token) {
                m.tokens[to] = token;
                note_first(to, at);
            });
        if (n.calls)
            zl_walk(f, n.callee, true, [&](uint32_t place, const zo_code &code, const zl_next &) {
                perform(
                    t, r, code, has_file(code) ? file_address(place, code) : NOWHERE,
                    [](uint32_t) { return token_t{MIXED}; },
                    [&](uint32_t to, token_t) {
                        m.tokens[to] = m.get(to) == CHANGED ? token_t{CHANGED} : token_t{MIXED};
                        note_first(to, place);
                    });
            });
        for (uint32_t to : n.to) {
            const auto [it, fresh] = states.try_emplace(to, m);
            bool news = fresh;
            for (const memory_t *side : {&m, &it->second}) {
                if (fresh)
                    break;
                const std::map<uint32_t, token_t> tokens = side->tokens;
                for (const auto &[place, token] : tokens)
                    if (it->second.get(place) != m.get(place) && it->second.get(place) != MIXED) {
                        it->second.tokens[place] = MIXED;
                        news = true;
                    }
            }
            if (news)
                open.push_back(to);
        }
    }
    for (const auto &[at, state] : states) {
        const zo_code c = zl_code_at(f, at);
        if (!zl_next_of(f, at, c).returns)
            continue;
        exits++;
        for (const auto &[place, name] : kept) {
            const token_t token = state.get(place);
            const bool shadowed = c.fast && (place == r.w || place == r.status || place == r.bsr);
            changed[place] += !shadowed && token != place && token != MIXED;
            mixed[place] += !shadowed && token == MIXED;
        }
    }
    std::set<uint32_t> uses{r.w, r.status}, perhaps;   // of what it interrupts for sure, or if its priority is higher
    for (const zl_root &other : f.roots) {
        const bool higher = other.interrupt && !f.vector_table && other.entry < root.entry;
        if (other.entry == root.entry || higher)
            continue;
        zl_walk(f, other.entry, true, [&](uint32_t at, const zo_code &c, const zl_next &) {
            note_uses(r, c, has_file(c) ? file_address(at, c) : NOWHERE, other.interrupt && f.vector_table ? perhaps : uses);
        });
    }
    for (const auto &[place, name] : kept) {
        if ((!uses.contains(place) && !perhaps.contains(place)) || (!changed[place] && !mixed[place]))
            continue;
        const bool all_ways = changed[place] == exits, certain = all_ways && uses.contains(place);
        tell(certain, first.contains(place) ? first[place] : root.entry,
             zo_format("the %s changes %s, and %s, but what it %s uses that: save and restore it", root.what.c_str(), name,
                       all_ways ? "doesn't restore it" : "there is a way on which it isn't restored for sure",
                       uses.contains(place) ? "interrupts" : "may interrupt"));
    }
}

// The table of vectors is looked for where it is after reset, but code may put it elsewhere.
void checker::check_table(const knowledge_t &k)
{
    const auto is_base = [&](uint32_t address) {
        const auto &at = l.target.vectors_at;
        return std::find(at.begin(), at.end(), address) != at.end();
    };
    for (const auto &[at, values] : k.at) {
        const zo_code c = zl_code_at(f, at);
        bool moved = moves(c) && is_base(c.b);
        if (has_file(c) && writes_file(c) && c.banked)
            for (const auto &[value, origin] : values) {
                moved = moved || (value >= 0 && is_base(static_cast<uint32_t>(value) << 8 | c.a));
                for (const auto &[brought, by] : k.entry)
                    moved = moved || (value == ENTRY && brought >= 0 && is_base(static_cast<uint32_t>(brought) << 8 | c.a));
            }
        if (moved && !table_moved)
            tell(false, at,
                 "moves the table of interrupt vectors to where it isn't known: tell its place by --vectors=ADDRESS");
        table_moved = table_moved || moved;
    }
}

}   // namespace

void zl_check(zl_linker &l, const zl_flow &f)
{
    checker c{l, f};
    c.name_data();
    c.learn_all();
    c.enter_all();
    c.find_entered();
    for (const auto &[entry, fn] : f.functions)
        if (const knowledge_t &k = c.functions.at(entry); !k.entry.empty()) {
            c.check_banks(fn, k);
            c.check_steps(k);
            if (f.vector_table && !l.options.vectors_at)
                c.check_table(k);
        }
    for (const zl_root &r : f.roots)
        if (r.interrupt)
            c.check_interrupt(r);
    c.check_unreached();
    zl_check_tables(l, f, c.reached);
    zl_check_returns(l, f);
}
