// diagnostics: messages with what the reader needs beside them.
//
// `plain` is the line that alert makes. `rich`, the default on a terminal, adds the line of the source with the word that the
// message is about, and how the assembler came there, and what was probably meant. `json` has the same, an object a line, `sarif` a log of the run.
#pragma once

void diagnostics_start();                       // from here on messages come here before they are written
bool diagnostics_set_form(const char *form);    // "plain", "rich", "json", "sarif"; false for anything else
bool diagnostics_set_color(const char *when);   // "auto", "always", "never"
bool diagnostics_show_origins();                // messages show how the assembler came where they are
// Something else has asked for a form: without a form of their own, messages are plain.
void diagnostics_stay_plain();
