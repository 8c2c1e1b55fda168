// cursor: takes numbers and texts off the front of bytes that nobody vouches for.
//
// A read beyond the end gives zeros and leaves a reason, so that a decoder need only ask once it is done. Nothing is left behind
// a fault, and a loop that asks for more ends there.
#include <algorithm>

#include "zelobj.h"

void zo_cursor::fail(std::string reason)
{
    if (error.empty())
        error = std::move(reason);
    at = bytes.size();
}

uint32_t zo_cursor::number(unsigned count)
{
    const std::string_view digits = part(count);
    uint32_t value = 0;
    for (size_t i = 0; i < digits.size(); i++)
        value |= uint32_t{static_cast<uint8_t>(digits[i])} << 8 * i;
    return value;
}

std::string_view zo_cursor::text()
{
    const size_t end = bytes.find('\0', std::min(at, bytes.size()));
    if (end == std::string_view::npos)
        return fail("string without terminator"), std::string_view();
    const std::string_view found = part(end - at);
    at++;
    return found;
}

std::string_view zo_cursor::part(size_t size)
{
    if (at > bytes.size() || size > bytes.size() - at)
        return fail("body ends inside a number"), std::string_view();
    at += size;
    return bytes.substr(at - size, size);
}

std::string_view zo_cursor::rest() { return part(at < bytes.size() ? bytes.size() - at : 0); }
