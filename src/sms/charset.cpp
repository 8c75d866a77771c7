// SPDX-License-Identifier: MIT
// The text of a message in UCS-2 as UTF-8, behind a byte order mark.
#include "sms/sms.h"

#include "support/diag.h"

int sms_get_str(const unsigned char* data, int n, char* out, int size)
{
    using namespace kelo;
    constexpr int longest = 510; // octets
    if (data == nullptr || out == nullptr || size < 1 || n < 0 || n > longest)
        return -1;
    octet text[2 + longest];
    text[0] = 0xFE;
    text[1] = 0xFF;
    std::memcpy(text + 2, data, static_cast<std::size_t>(n));
    const auto room = static_cast<std::size_t>(size);
    std::memset(out, 0, room);
    const utf8_made made = ucs2_to_utf8({text, static_cast<std::size_t>(n) + 2}, {out, room});
    if (!made.whole)
        diag_plain("iconv error!"); // so it has been called for long
    if (!made.whole || made.length == room) {
        out[room - 1] = '\0';
        return -1;
    }
    return static_cast<int>(made.length);
}
