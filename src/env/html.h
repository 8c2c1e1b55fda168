// html: the small report that --udf= leaves for a browser.
//
// Three files: a frame set under the name that the user gave, a table of contents and a main page beside it. One report a
// run. Where none is open, or one had to be given up, every call but HTML_open does nothing.
#pragma once

#include <cstdio>

// Opens the report as `file`; a file that can't be opened ends the run. The title, `title_prefix` and `title`, and the style
// sheet may be null. Returns the open page.
FILE *HTML_open(const char *file, const char *title_prefix, const char *title, const char *style_sheet);
// Splits the report into its three files. Headings up to level `depth` get an entry in the table of contents.
void HTML_useTOC(int depth);
void HTML_anchor(const char *name);
// The section on the command line: a heading, and each argument as it stands.
void HTML_commandLine(const char *const *arguments, int count, const char *tool_title);
void HTML_close();
