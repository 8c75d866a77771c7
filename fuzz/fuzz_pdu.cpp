// The PDU of a received message, from the modem, into gsm_event and into a record of the queue.

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
    return 0;
}
