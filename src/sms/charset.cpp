// SPDX-License-Identifier: MIT
// Character sets by their name, through iconv.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/text.h"

#include <iconv.h>

namespace kelo
{

namespace
{

void sms_charset_upper(char* name)
{
    for (; *name != '\0'; name++)
        if (*name >= 'a' && *name <= 'z')
            *name = static_cast<char>(*name - 'a' + 'A');
}

int sms_iconv(const char* from, const char* to, char* in, std::size_t n, char* out,
              std::size_t size)
{
    iconv_t descriptor = iconv_open(to, from);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): what POSIX has it give for none
    if (descriptor == reinterpret_cast<iconv_t>(-1)) {
        diag_plain("iconv_open error!");
        return -1;
    }
    std::memset(out, 0, size);
    std::size_t left = size;
    const std::size_t result = iconv(descriptor, &in, &n, &out, &left);
    iconv_close(descriptor);
    if (result == static_cast<std::size_t>(-1)) {
        diag_plain("iconv error!");
        return -1;
    }
    return static_cast<int>(left);
}

int sms_ucs2_to_charset(const char* name, const octet* data, int n, char* out, int size)
{
    char input[512] = {'\xFE', '\xFF'}; // a mark that comes out at the head of the result
    if (name == nullptr || data == nullptr || out == nullptr || size < 1 || n < 0 ||
        n > static_cast<int>(sizeof input) - 2)
        return -1;
    const auto length = static_cast<std::size_t>(n);
    std::memcpy(input + 2, data, length);
    char charset[256];
    text_set(charset, name);
    sms_charset_upper(charset);
    const int left =
        sms_iconv("UCS-2BE", charset, input, length + 2, out, static_cast<std::size_t>(size));
    if (left < 1) {
        out[size - 1] = '\0';
        return -1;
    }
    out[size - left] = '\0';
    return size - left;
}

} // namespace

} // namespace kelo

int sms_get_str(const unsigned char* data, int n, char* out, int size)
{
    return kelo::sms_ucs2_to_charset("UTF-8", data, n, out, size);
}
