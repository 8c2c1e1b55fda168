// Digits by hand, since strtoull takes blanks and signs, and doesn't tell too many digits from the largest number.
#include "common/number.h"

#include <cstdlib>

// 16: none.
static unsigned digit_of(char c)
{
    const int lower = c | 0x20;
    return static_cast<unsigned>(c >= '0' && c <= '9' ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : 16);
}

const char *scan_digits(const char *s, unsigned base, uint64_t *n)
{
    if (base == 16 && s[0] == '0' && (s[1] | 0x20) == 'x' && digit_of(s[2]) < 16)
        s += 2;
    *n = 0;
    const char *first = s;
    for (unsigned digit; (digit = digit_of(*s)) < base; s++) {
        if (*n > (UINT64_MAX - digit) / base) {
            *n = UINT64_MAX;
            return nullptr;
        }
        *n = *n * base + digit;
    }
    return s != first ? s : nullptr;
}

int32_t scan_decimal(const char *s)
{
    const long n = strtol(s, nullptr, 10);
    return static_cast<int32_t>(n < INT32_MIN ? INT32_MIN : n > INT32_MAX ? INT32_MAX : n);
}
