// warnings: the groups that warnings are named by, for --warn= and where messages show them.
#pragma once

// The group of a warning; null if it has none.
const char *warning_group(unsigned number);
// Shows or hides groups: names, "all", or either behind "no-", with commas between. Later ones win, also over --msgdisable=.
// Returns the first word that is none of these, up to the end of the text, or null.
const char *warnings_choose(const char *list);
// The names, ", " between, in the order of the table.
const char *warning_group_names();
