// SPDX-License-Identifier: MIT
// The PDU of a received message, from the modem, into gsm_event, into a record of the queue, and
// into a part of a whole message or a status report.

#include "sms/sms.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace kelo;

// A text of just its size, without a terminator.
static void read_whole(std::string_view pdu)
{
    const auto exact = std::make_unique<char[]>(pdu.size());
    std::memcpy(exact.get(), pdu.data(), pdu.size());
    pdu = {exact.get(), pdu.size()};

    const auto part = sms_read_deliver(pdu);
    const auto report = sms_read_status_report(pdu);
    if (part && report)
        std::abort();
    if (report && (text_of(report->recipient).size() == sizeof report->recipient ||
                   text_of(report->sent.text).size() % 19 != 0))
        std::abort();
    if (!part)
        return;
    const part_numbers& numbers = part->numbers;
    if (text_of(part->sender).size() == sizeof part->sender ||
        text_of(part->smsc).size() == sizeof part->smsc ||
        text_of(part->time.text).size() % 19 != 0 || numbers.number > numbers.total ||
        (numbers.number == 0) != (numbers.total == 0) || part->port_to > 0xFFFF ||
        part->message_class > 3 || part->content.count > pdu.size() + 2 * pdu.size() / 7 ||
        (!part->data && part->content.count % 2 != 0))
        std::abort();
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::size_t length = strnlen(reinterpret_cast<const char*>(data), size);
    const auto pdu = std::make_unique<char[]>(length + 1); // of just its size
    std::memcpy(pdu.get(), data, length);

    const auto [readable, complete, message] = sms_read_pdu(pdu.get());
    if (readable != (libgsm_pdu_decode(&g_mobile, &gsm_event, pdu.get()) == 0))
        std::abort();
    if (message.length < 0 || message.length >= static_cast<int>(sizeof message.text) ||
        message.text[message.length] != '\0' || message.total > 255)
        std::abort();
    if (strnlen(gsm_event.text, sizeof gsm_event.text) == sizeof gsm_event.text ||
        strnlen(gsm_event.sender, sizeof gsm_event.sender) == sizeof gsm_event.sender)
        std::abort();

    read_whole({pdu.get(), length});
    pdu_text hex; // whatever the bytes are, as a modem would write them
    sms_hex_encode(hex, {data, size});
    read_whole({hex.items, hex.count});
    return 0;
}
