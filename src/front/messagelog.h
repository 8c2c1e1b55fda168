// messagelog: messages for other programs, as JSON an object a line, or as one SARIF 2.1.0 log of the run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/alert.h"

// A line of a source, "" if it isn't known, and bytes of it that are marked; length 0: none.
struct excerpt_t {
    std::string text;
    size_t at, length;
};

struct remark_t {
    std::string text, file;   // file "", line 0: no place
    int64_t line;
    excerpt_t excerpt;
};

// Bytes of the line that the message is about, and what has to stand there.
struct fix_t {
    size_t at, length;
    std::string text;
};

// A message with all that belongs to it.
struct diagnostic_t {
    alert_severity_t severity;
    unsigned number;
    remark_t main;
    std::vector<remark_t> notes;
    std::vector<fix_t> fixes;
};

enum log_form_t { LOG_NONE, LOG_JSON, LOG_SARIF };
void log_add(log_form_t form, diagnostic_t d);   // goes to standard error when what belongs to it is known: later
void log_end(log_form_t form);                   // no more are to come
