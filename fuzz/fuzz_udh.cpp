// SPDX-License-Identifier: MIT
// A user data header, as hexadecimal at the head of user data that fills its field or not.

#include "sms/sms.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

using namespace kelo;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    pdu_fields fields = {};
    std::memcpy(fields.user_data, data, std::min(size, sizeof fields.user_data));
    corvel_handle_user_data_header(&gsm_event, &fields);
    const long_sms_info* const numbers = gsm_event.long_sms;
    if (numbers == nullptr || numbers->present != 1 || numbers->flag < 0 ||
        numbers->flag > 0xffff || numbers->total > 255 || numbers->now > 255)
        std::abort();
    return 0;
}
