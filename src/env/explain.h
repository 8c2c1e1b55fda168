// explain: what each message means, an example that provokes it, and the remedy.
//
// The texts are a chapter of the manual, docs/manual/message-list.md, which the program carries.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The body of the message's section, as Markdown, without its heading. "": there is no such number.
std::string_view explanation_body(uint64_t number);
std::string_view explanation_text(uint64_t number);   // the message's text of the catalogue, from the heading
// The whole section as text for a terminal. "": there is no such number.
std::string explanation(uint64_t number);
