// A text from the host, into PDUs. Each has to fit a message, and be one that the decoder reads.

#include "sms/sms.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace kelo;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const auto text = std::make_unique<char[]>(size); // of just its size, without a terminator
    std::memcpy(text.get(), data, size);
    const int result =
        libgsm_send_sms_from_buffer("t", "+123", 0, text.get(), static_cast<int>(size));
    int parts = 0;
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        parts++;
        const std::size_t ahead = 22; // characters up to TP-UD
        const std::size_t length = std::strlen(item->sms_body);
        if (length < ahead || length > ahead + 2 * user_data_octets || length % 2 != 0)
            std::abort();
        sms_outbox_free(item);
    }
    if ((result == 0) != (parts > 0) || parts > 255)
        std::abort();
    return 0;
}
