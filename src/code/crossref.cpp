// A line for each name as it is scanned, and a line with a tilde wherever the file changes. Nothing is kept in memory.
#include "code/crossref.h"

#include "common/alert.h"
#include "common/fileguard.h"
#include "common/srcpos.h"

FILE *crf_stream;
static const char *crossref_path;

static void no_cross_reference(const char *path)
{
    guard_perror(path);
    const srcpos_nowhere_t nowhere;
    alert_msg(461, "cross reference", path);
}

void crossref_open(const char *path)
{
    crossref_path = path;
    crf_stream = guard_open(path, "w", no_cross_reference);
    if (!crf_stream)
        no_cross_reference(path);
}

void crossref_close()
{
    if (crf_stream && !guard_close(crf_stream))
        no_cross_reference(crossref_path);
}

void crossref_file(const char *name)
{
    if (crf_stream)
        fprintf(crf_stream, "~%s\n", name);
}

void crossref_use(const char *name, size_t length)
{
    if (!crf_stream)
        return;
    fwrite(name, 1, length, crf_stream);
    fprintf(crf_stream, " %ld\n", static_cast<long>(srcpos.cur_line));
}
