// data: the items of a data statement.
//
// Tables are most of what a program holds in data, and nearly all of their items are small numbers. So the items of a node
// lie packed, in runs: numbers of one or four bytes, or whole values where an item is no such number. Where nobody asks which
// node a line has made, a node takes in the statements that go on with its table; what follows tells how far below they stand.
#pragma once

#include <cstdint>

#include "code/expr.h"
#include "code/list.h"

// Behind the record stand `count` items, each a number of `width` bytes, or a value_t where `width` is 0.
struct data_run_t {
    ref<data_run_t> next;
    uint16_t count;
    uint8_t width;
    uint8_t below;   // the first run of one more statement: lines that it stands below the one before; otherwise 0
};

// A walk over all items in their order: for (const value_t &item : data_items(op)).
struct data_items_t {
    struct cursor {
        const data_run_t *run;
        uint32_t at;
        value_t operator*() const
        {
            const void *items = run + 1;
            switch (run->width) {
            case 1: return value_const(static_cast<const uint8_t *>(items)[at]);
            case 4: return value_const(static_cast<const int32_t *>(items)[at]);
            default: return static_cast<const value_t *>(items)[at];
            }
        }
        cursor &operator++()
        {
            if (++at == run->count) {
                run = run->next;
                at = 0;
            }
            return *this;
        }
        bool operator!=(const cursor &o) const { return run != o.run || at != o.at; }
    };
    const data_run_t *first;
    cursor begin() const { return {first, 0}; }
    cursor end() const { return {nullptr, 0}; }
};
inline data_items_t data_items(const op_t *op)   // of others than DB: none
{
    return {op->op_type == T_DB ? op->op_data.get() : nullptr};
}
uint64_t data_count(const op_t *op);
void data_each_value(const op_t *op, void (*fn)(value_t *item));   // those that may hold a name, to be changed in place

// Making them: what has been added since data_begin, which drops what an earlier, broken statement has left.
void data_begin();
void data_add(const value_t *item);
data_run_t *data_end();
data_run_t *data_number(int64_t n);   // one item
