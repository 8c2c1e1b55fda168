// matrix: a skip list of cells that are their own keys.
//
// A cell carries its keys and its matrix, which knows how many there are. A search fills the scratch cell with the wanted
// keys and looks that up. Cells are ordered by the sum of the low halves of their keys, then key by key, the last one first.
#include "common/matrix.h"

#include "common/assertion.h"
#include "common/skiplist.h"
#include "common/xalloc.h"

struct matrix_cell_t {
    matrix_t *matrix;
    word_t value;
    word_t *keys;   // behind the record
};

struct matrix_t {
    uint32_t n;
    skip_of<matrix_cell_t *, matrix_cell_t *> cells;
    matrix_cell_t *scratch;
};

static uint32_t cell_hash(word_t w)
{
    const matrix_cell_t *c = from_word<const matrix_cell_t *>(w);
    uint32_t sum = 0;
    for (uint32_t i = 0; i < c->matrix->n; i++)
        sum += static_cast<uint32_t>(c->keys[i]);
    return sum;
}

static int cell_compare(word_t v, word_t w)
{
    const matrix_cell_t *a = from_word<const matrix_cell_t *>(v), *b = from_word<const matrix_cell_t *>(w);
    for (uint32_t i = a->matrix->n; i-- > 0;)
        if (a->keys[i] != b->keys[i])
            return a->keys[i] < b->keys[i] ? -1 : 1;
    return 0;
}

static matrix_cell_t *new_cell(matrix_t *m)
{
    matrix_cell_t *c = static_cast<matrix_cell_t *>(xalloc(sizeof(matrix_cell_t) + m->n * sizeof(word_t)));
    c->matrix = m;
    c->keys = reinterpret_cast<word_t *>(c + 1);
    return c;
}

static matrix_cell_t *find(matrix_t *m, const word_t *keys)
{
    ASSERTION(m, "p != NULL");
    memcpy(m->scratch->keys, keys, m->n * sizeof(word_t));
    return skiplist_lookup(m->cells, m->scratch);
}

matrix_t *matrix_new(uint32_t n)
{
    matrix_t *m = xnew<matrix_t>();
    m->n = n;
    m->cells = skip_make<matrix_cell_t *, matrix_cell_t *>(cell_hash, cell_compare);
    m->scratch = new_cell(m);
    return m;
}

word_t matrix_get_keys(matrix_t *m, const word_t *keys)
{
    matrix_cell_t *c = find(m, keys);
    return c ? c->value : 0;
}

word_t matrix_set_keys(matrix_t *m, word_t value, const word_t *keys)
{
    matrix_cell_t *c = find(m, keys);
    if (!c) {
        c = m->scratch;   // holds the keys already
        m->scratch = new_cell(m);
        skiplist_insert(m->cells, c, c);
    }
    word_t old = c->value;
    c->value = value;
    return old;
}
