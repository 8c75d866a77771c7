// Reads of the port that hold reports of messages. A byte 0xFF parts two reads.

#include "sms/sms.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace kelo;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const unsigned char* const end = data + size;
    while (data < end) {
        const unsigned char* const stop = std::find(data, end, 0xFF);
        const std::string read(data, std::find(data, stop, 0));
        sms_text_follows(std::string_view(read).substr(0, read.find('\n')), true);
        sms_continue_report(read.c_str(), 0);
        if (read.find("+CMT") != std::string::npos)
            sms_check_read(&g_mobile, read.c_str() + read.find("+CMT"));
        data = stop == end ? end : stop + 1;
    }
    sms_log_received(&gsm_event);
    libgsm_check_sms(&g_mobile, "+CMT: ,1\r\n");
    kelo_sms message;
    while (kelo_take_sms(&message) == 1)
        if (strnlen(message.text, sizeof message.text) == sizeof message.text ||
            strnlen(message.sender, sizeof message.sender) == sizeof message.sender ||
            strnlen(message.pdu, sizeof message.pdu) == sizeof message.pdu)
            std::abort();
    return 0;
}
