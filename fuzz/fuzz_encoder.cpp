// SPDX-License-Identifier: MIT
// A text from the host, into PDUs. Each has to fit a message, and be one that the decoder reads;
// as a whole message the text has to come back.

#include "sms/sms.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

using namespace kelo;

static void send_whole(std::string_view text)
{
    const auto cut = sms_compose(text);
    for (int part = 1; cut && part <= cut->parts; part++) {
        const auto pdu = sms_compose_part(*cut, text, part, {.destination = "1"});
        if (!pdu)
            std::abort();
        // The network puts the sender in place of the receiver, and a time of its own.
        const std::string_view submit(pdu->items, pdu->count);
        std::string deliver = cut->parts > 1 ? "00440181F1" : "00040181F1";
        deliver.append(submit.substr(12, 4)).append("42507190032180").append(submit.substr(18));
        const auto read = sms_read_deliver(deliver);
        char piece[1024];
        const int begin = part > 1 ? cut->ends[part - 2] : 0;
        const int length = read ? utf16_to_utf8(read->content.all(), piece) : -1;
        if (length != cut->ends[part - 1] - begin ||
            std::memcmp(piece, text.data() + begin, static_cast<std::size_t>(length)) != 0)
            std::abort();
    }
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const auto text = std::make_unique<char[]>(size); // of just its size, without a terminator
    std::memcpy(text.get(), data, size);
    send_whole({text.get(), size});
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
