// Diagnostics, line by line as they come out on standard error.
#include <gtest/gtest.h>

#include "child.h"
#include "common/alert.h"

static std::string catalogue;   // path of the catalogue in use
static int64_t line = 12;

static void hook() { alert_set_location("main.as", &line, nullptr, nullptr); }
static const char *find() { return catalogue.c_str(); }
[[noreturn]] static void stop(int status) { exit(status); }

// The output of `body` with this catalogue, at line 12 of main.as.
template <class F> static std::string reported(F body, const std::string &texts)
{
    static const alert_services_t services = {find, stop};
    scratch_dir_t dir;
    catalogue = dir.path + "/en_msgs.txt";
    write_file(catalogue, texts);
    return in_child([&] {
               alert_set_services(&services);
               alert_set_formats(nullptr, nullptr, nullptr);
               hook();
               body();
           })
        .text;
}

TEST(Alert, CutsAndColumn)
{
    // 510 characters of text with the prefix, 8191 of line with the newline.
    std::string wide(9000, 'x');
    EXPECT_EQ(reported(
                  [&] {
                      alert_text("E", "%s", wide.c_str());
                      alert_print("%s", wide.c_str());
                      alert_set_structured(1);
                      alert_set_formats(("%n" + wide).c_str(), nullptr, nullptr);
                      alert_msg(876);
                      const char *start = "abcdef", *at = start + 4;
                      alert_set_formats("[%f %l %c] %s", nullptr, nullptr);
                      alert_set_location("f", &line, &start, &at);
                      alert_msg(876);
                  },
                  "876 E syntax error\n"),
              "main.as: 12: (0) " + wide.substr(0, 506) + "\n" + wide.substr(0, 8190) + "\n876" + wide.substr(0, 8187) +
                  "\n[f 12 4] syntax error\n");
}
