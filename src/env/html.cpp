// html: the report's state and its pages.
//
// The page that is open is at first the file that the user named. With a table of contents it is finished as a frame set,
// which refers to the other two files by their bare names, since they lie beside it; from then on the main page is the
// open one. Entries of the table of contents and the anchors they lead to are counted by one number, labelCnt.
//
// The table of contents begins with a comment that has room for the number of entries. It is filled in when the report is
// closed, so a report whose comment still says 000 belongs to a run that didn't reach its end.
//
// The frame set stands behind <BODY>, where readers of these files look for it. Browsers that follow today's rules drop a
// frame set there and show an empty page; in them the other two files are opened by themselves.
//
// When a file of the split can't be opened, the user is told and the report is given up: the assembly doesn't need it. What
// was written and didn't arrive is an error, told when the page is closed.
#include "env/html.h"

#include <cstdint>

#include "common/alert.h"
#include "common/fileguard.h"
#include "common/srcpos.h"
#include "common/stringcache.h"
#include "env/osdep.h"

enum : long { LABEL_COUNT_PLACE = 14 };   // of the digits in the comment
enum : int { COMMAND_LINE_LEVEL = 2 };    // of its heading
static const char element_class[] = "";   // elements have no class

static struct {
    FILE *main_stream;   // the open page; null without a report
    FILE *toc_stream;
    const char *directory;                      // null if the name has none
    const char *main_filename, *toc_filename;   // bare names
    const char *style_sheet;
    int32_t toc_depth;
    uint32_t labelCnt;
} st;

static const char *beside(const char *name)
{
    const char *path = path_concat(st.directory, name);
    return path ? path : name;
}

static void close_stream(FILE **stream, const char *name)
{
    FILE *to = *stream;
    *stream = nullptr;
    if (!to || guard_close(to))
        return;
    guard_perror(name);
    const srcpos_nowhere_t nowhere;
    alert_text("E", "Could not write file %s", name);
}

static void give_up()
{
    if (st.main_stream)
        fclose(st.main_stream);
    if (st.toc_stream)
        fclose(st.toc_stream);
    st.main_stream = st.toc_stream = nullptr;
}

// A file of the split can't be had. That is an error only if it would overwrite a file of the run.
static void no_page(const char *path)
{
    if (guard_refused())
        guard_perror(path);
    alert_text(guard_refused() ? "E" : "0", "Could not open file %s", path_tail(path));
    give_up();
}

static FILE *open_beside(const char *name)
{
    const char *path = beside(name);
    FILE *stream = guard_open(path, "w", no_page);
    if (!stream)
        no_page(path);
    return stream;
}

static void no_report(const char *file)
{
    if (guard_refused())
        guard_perror(file);
    alert_text("F", "Could not open file %s", file);
}

static void put_head(const char *title_prefix, const char *title)
{
    fputs("<HTML>\n<HEAD>\n", st.main_stream);
    if (title_prefix)
        fprintf(st.main_stream, "<TITLE>%s%s</TITLE>\n", title_prefix, title);
    if (st.style_sheet)
        fprintf(st.main_stream, "<LINK rel=stylesheet href=\"%s\" type=\"text/css\">\n", st.style_sheet);
    fputs("</HEAD>\n<BODY>\n", st.main_stream);
}

FILE *HTML_open(const char *file, const char *title_prefix, const char *title, const char *style_sheet)
{
    close_stream(&st.main_stream, beside(st.main_filename ? st.main_filename : ""));
    st.labelCnt = 0;
    st.directory = cache_dirname(file);
    st.main_stream = guard_open(file, "w", no_report);
    if (!st.main_stream) {
        no_report(file);
        return nullptr;
    }
    st.main_filename = cache_basename(file);
    st.style_sheet = style_sheet;
    put_head(title_prefix, title);
    return st.main_stream;
}

void HTML_useTOC(int depth)
{
    st.toc_depth = depth;
    if (st.toc_stream || !st.main_stream)
        return;
    st.toc_filename = cache_concat("toc_", st.main_filename);
    st.toc_stream = open_beside(st.toc_filename);
    if (!st.toc_stream)
        return;
    fputs("<!-- labelCnt:000: -->\n<i>Table of Contents</i><br>\n", st.toc_stream);
    const char *frame_filename = st.main_filename;
    st.main_filename = cache_concat("main_", st.main_filename);
    fprintf(st.main_stream,
            "<frameset rows=\"15%%,85%%\"><frame name =\"toc\" src=\"%s\" /><frame name =\"main\" src=\"%s\" /></frameset>"
            "</HTML>\n",
            st.toc_filename, st.main_filename);
    close_stream(&st.main_stream, beside(frame_filename));
    st.main_stream = open_beside(st.main_filename);
    if (st.main_stream)
        put_head(nullptr, nullptr);
}

void HTML_anchor(const char *name)
{
    if (st.main_stream)
        fprintf(st.main_stream, "<a name=\"%s\">", name);
}

static void put_toc_entry(int level, const char *text)
{
    fputc(' ', st.toc_stream);
    for (int i = 1; i < level; i++)
        fputs("&nbsp", st.toc_stream);
    fprintf(st.toc_stream, " <a class=\"%s\" HREF=\"%s#%u\"%s>%s</A><br>\n", element_class, st.main_filename, st.labelCnt++,
            "target=\"main\"", text);
}

static void put_heading(int level, const char *text)
{
    bool in_toc = st.toc_stream && st.toc_depth >= level;
    if (in_toc)
        fprintf(st.main_stream, "<a name=\"%u\">", st.labelCnt);
    fprintf(st.main_stream, "<h%d class=\"%s\">%s</h%d>\n", level, element_class, text, level);
    if (in_toc)
        put_toc_entry(level, text);
}

void HTML_commandLine(const char *const *arguments, int count, const char *tool_title)
{
    if (!st.main_stream)
        return;
    HTML_anchor("CLA");
    put_heading(COMMAND_LINE_LEVEL, cache_concat("Command Line Arguments for ", tool_title));
    for (int i = 0; i < count; i++)
        fprintf(st.main_stream, "<code>%s</code><br>\n", arguments[i]);
}

void HTML_close()
{
    if (!st.main_stream)
        return;
    fputs("</BODY>\n</HTML>\n", st.main_stream);
    close_stream(&st.main_stream, beside(st.main_filename));
    if (!st.toc_stream)
        return;
    fseek(st.toc_stream, LABEL_COUNT_PLACE, SEEK_SET);
    fprintf(st.toc_stream, "%3u", st.labelCnt);
    close_stream(&st.toc_stream, beside(st.toc_filename));
}
