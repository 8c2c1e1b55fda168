// An item is added to the run that is being made as long as its kind is that of the run and there is room; then the run is
// copied to memory of its size and the next one begins. Widths change rarely in a table. Where they do, a run of a few items
// still takes less than its values would.
#include "code/data.h"

#include <cstring>

#include "common/xalloc.h"

enum : uint32_t { MOST = 256 };   // items of a run

static struct {
    ref<data_run_t> first, *link;   // of the statement
    uint32_t count, width;          // of the run that is being made
    union {
        uint8_t bytes[MOST];
        int32_t numbers[MOST];
        value_t values[MOST];
    };
} st;

static uint32_t item_size(uint32_t width) { return width ? width : sizeof(value_t); }

uint64_t data_count(const op_t *op)
{
    uint64_t count = 0;
    for (const data_run_t *run = op->op_data; run; run = run->next)
        count += run->count;
    return count;
}

void data_each_value(const op_t *op, void (*fn)(value_t *item))
{
    for (data_run_t *run = op->op_type == T_DB ? op->op_data.get() : nullptr; run; run = run->next)
        if (run->width == 0)
            for (uint32_t i = 0; i < run->count; i++)
                fn(&reinterpret_cast<value_t *>(run + 1)[i]);
}

static uint32_t width_of(const value_t *item)
{
    if (item->v_rtype != RT_CONST || item->v_common)
        return 0;
    return item->v_offs == static_cast<uint8_t>(item->v_offs)   ? 1
           : item->v_offs == static_cast<int32_t>(item->v_offs) ? 4
                                                                : 0;
}

static void end_run()
{
    if (st.count == 0)
        return;
    const size_t size = size_t{st.count} * item_size(st.width);
    data_run_t *run = static_cast<data_run_t *>(xalloc(sizeof *run + size));
    run->count = static_cast<uint16_t>(st.count);
    run->width = static_cast<uint8_t>(st.width);
    memcpy(static_cast<void *>(run + 1), st.values, size);
    *st.link = run;
    st.link = &run->next;
    st.count = 0;
}

void data_begin()
{
    st.first = nullptr;
    st.link = &st.first;
    st.count = 0;
}

void data_add(const value_t *item)
{
    const uint32_t width = width_of(item);
    if (width != st.width || st.count == MOST)
        end_run();
    st.width = width;
    switch (width) {
    case 1: st.bytes[st.count++] = static_cast<uint8_t>(item->v_offs); break;
    case 4: st.numbers[st.count++] = static_cast<int32_t>(item->v_offs); break;
    default: st.values[st.count++] = *item;
    }
}

data_run_t *data_end()
{
    end_run();
    return st.first;
}

data_run_t *data_number(int64_t n)
{
    const value_t item = value_const(n);
    data_begin();
    data_add(&item);
    return data_end();
}
