// A node's place is the line of the outermost call, so the way from there to the line that made it has to be kept. Nodes are
// numbered in the order of the lines that make them: a record tells the first number that comes from another line of a text,
// or from another text or file, than those before. Lines of files need none of their own, as the nodes have their numbers.
#include "front/origins.h"

#include <algorithm>

#include "code/list.h"

constexpr uint32_t OUTSIDE = UINT32_MAX;   // of a source of the command line

struct spot_t {
    uint32_t context;
    const char *behind;
};

struct context_t {
    spot_t from;
    line_origin_t origin;   // without `behind`
};

struct stretch_t {
    uint32_t first_node;
    spot_t spot;
};

static struct {
    bool kept;
    spot_t now;
    std::vector<context_t> contexts;
    std::vector<stretch_t> stretches;
} st = {false, {OUTSIDE, nullptr}, {}, {}};

void origins_keep() { st.kept = true; }
bool origins_kept() { return st.kept; }

static void stand_at(spot_t spot)
{
    const uint32_t next = op_last_id() + 1;
    st.now = spot;
    if (st.stretches.empty() || st.stretches.back().first_node != next)
        st.stretches.push_back({next, spot});
    else
        st.stretches.back().spot = spot;
}

static void enter(const line_origin_t &origin)
{
    if (!st.kept)
        return;
    st.contexts.push_back({st.now, origin});
    stand_at({static_cast<uint32_t>(st.contexts.size() - 1), nullptr});
}

void origins_enter(const macro_t *macro) { enter({macro, nullptr, nullptr, 0}); }
void origins_include(const char *file, int64_t line) { enter({nullptr, nullptr, file, line}); }

void origins_leave()
{
    if (st.kept)
        stand_at(st.contexts[st.now.context].from);
}

void origins_line(const char *behind)
{
    if (st.kept)
        stand_at({st.now.context, behind});
}

static std::vector<line_origin_t> way_to(spot_t spot)
{
    std::vector<line_origin_t> way;
    for (; spot.context != OUTSIDE; spot = st.contexts[spot.context].from) {
        way.push_back(st.contexts[spot.context].origin);
        way.back().behind = spot.behind;
    }
    return way;
}

std::vector<line_origin_t> origins_here() { return way_to(st.now); }

std::vector<line_origin_t> origins_of_node(uint32_t op_id)
{
    const auto behind = std::upper_bound(st.stretches.begin(), st.stretches.end(), op_id,
                                         [](uint32_t id, const stretch_t &s) { return id < s.first_node; });
    return behind == st.stretches.begin() ? std::vector<line_origin_t>() : way_to(behind[-1].spot);
}
