// annotation_html: the annotated source as one page for a browser, which needs no other file.
#pragma once

#include <cstdio>

#include "annotate/annotation.h"

// To `to`, whose errors are for the caller to see.
void annotation_write_html(FILE *to, const annotation_t &a);
