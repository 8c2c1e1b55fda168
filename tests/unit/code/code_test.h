// What the tests of this folder share.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "common/alert.h"
#include "common/srcpos.h"

// The numbers of the messages of `body`, literal texts having 0. It starts at a line that no test had.
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
    for (size_t at = 0; (at = all.find(": (", at)) != std::string::npos; at++)
        result += " " + std::to_string(atol(all.c_str() + at + 3));
    return result;
}
