// A statement's nodes are made between the reading of its line and that of the next one, so a line needs no more than the number
// of the first node that can be its own. What is made behind the last line is known by the number as well: of whom it is, is
// for others to say.
#include "code/srclines.h"

#include <algorithm>
#include <cstring>

#include "code/list.h"
#include "common/srcpos.h"
#include "common/xalloc.h"

srclines_t srclines;

static struct {
    uint32_t *open;   // readings, the innermost one last
    uint32_t open_count, open_room;
    uint32_t last_node;   // when all had been read
} st;

void srclines_keep() { srclines.kept = true; }

void srclines_open(const char *file)
{
    const uint32_t from = st.open_count > 0 ? srclines.count - 1 : uint32_t{NO_LINE};
    xreserve(srclines.readings, srclines.reading_count, srclines.reading_count + 1, srclines.reading_room, 16u);
    xreserve(st.open, st.open_count, st.open_count + 1, st.open_room, 16u);
    st.open[st.open_count++] = srclines.reading_count;
    srclines.readings[srclines.reading_count++] = {file, from};
}

void srclines_close() { st.open_count--; }
void srclines_end() { st.last_node = op_last_id(); }

void srclines_add(const char *text, size_t length, unsigned depth)
{
    xreserve(srclines.lines, srclines.count, srclines.count + 1, srclines.room, 256u);
    char *copy = static_cast<char *>(xalloc(length + 1));   // of bytes, also of NULs
    memcpy(copy, text, length);
    srclines.lines[srclines.count++] = {copy,
                                        static_cast<uint32_t>(length),
                                        st.open[st.open_count - 1],
                                        static_cast<uint32_t>(srcpos.phys_line),
                                        op_last_id() + 1,
                                        static_cast<uint16_t>(depth),
                                        cur_psect,
                                        srcpos.cur_file,
                                        srcpos.cur_line};
}

uint32_t srclines_of_node(uint32_t op_id)
{
    if (op_id > st.last_node)
        return NO_LINE;
    const srcline_t *begin = srclines.lines, *end = begin + srclines.count;
    const srcline_t *behind =
        std::upper_bound(begin, end, op_id, [](uint32_t id, const srcline_t &line) { return id < line.first_node; });
    return behind == begin ? uint32_t{NO_LINE} : static_cast<uint32_t>(behind - begin - 1);
}
