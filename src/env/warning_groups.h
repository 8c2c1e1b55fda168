// warning_groups: which warnings a group has. The rows of a group stand together. Also read by the driver, so that it knows what
// it is asked for.
#pragma once

struct group_row_t {
    unsigned number;
    const char *group;
};

inline constexpr group_row_t warning_groups[] = {
    {1352, "truncation"}, {1388, "truncation"}, {2220, "truncation"}, {2250, "bank"},     {2251, "memory"},
    {2252, "memory"},     {2253, "size"},       {2254, "odd"},        {2255, "odd"},      {2212, "skip"},
    {2200, "condition"},  {2201, "condition"},  {2211, "location"},   {865, "redefined"}, {867, "redefined"},
    {1014, "redefined"},  {2068, "deprecated"}, {2069, "deprecated"}, {1433, "inline"},   {2214, "inline"},
    {2240, "inline"},     {1311, "config"},     {1386, "config"},     {2101, "config"},   {2102, "config"},
    {2103, "config"},     {2104, "config"},     {2105, "config"},     {2106, "config"},   {2107, "config"},
    {2108, "config"},     {2109, "config"},     {2221, "config"},     {2222, "config"},   {337, "newline"},
};
