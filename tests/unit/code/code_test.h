// What the tests of this folder share.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "common/alert.h"
#include "common/srcpos.h"

// The messages of `body` as " line:number" each, literal texts having the number 0. It starts at a line that no test had.
inline int64_t said_line;
template <class F> inline std::string said(F body)
{
    srcpos = {};
    srcpos.cur_file = "t.as";
    srcpos.cur_line = said_line += 1000;
    alert_set_structured(0);
    alert_set_emax(1000000);
    alert_set_hook([] { alert_set_location(srcpos.cur_file, &srcpos.cur_line, nullptr, nullptr); });
    testing::internal::CaptureStderr();
    body();
    const std::string all = testing::internal::GetCapturedStderr();
    std::string result;
    for (size_t at = 0; (at = all.find("t.as: ", at)) != std::string::npos; at++) {
        const char *text = all.c_str() + at + 6;
        result += " " + std::to_string(atol(text) % 1000) + ":" + std::to_string(atol(strchr(text, '(') + 1));
    }
    return result;
}
