// SPDX-License-Identifier: MIT
// Reads of the port that hold reports of messages. A byte 0xFF parts two reads, 0xFE is a silent
// second.

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

static void hear(std::string& bytes)
{
    const std::size_t length = bytes.size();
    const read_view view = sms_each_read(bytes.data(), length);
    const std::size_t left = std::string_view(bytes.c_str()).size();
    if (left > length || view.keep_back > left)
        std::abort();
    bytes.resize(left);
    const std::string kept = bytes.substr(left - view.keep_back);
    if (view.report != nullptr)
        sms_report_event(&g_mobile, view.report);
    bytes = kept;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    std::string bytes;
    kelo_message whole;
    char text[64];
    kelo_take_message(&whole, sizeof whole, text, sizeof text);
    for (std::size_t i = 0; i < size; i++) {
        if (data[i] < 0xFE)
            bytes += static_cast<char>(data[i]);
        else if (data[i] == 0xFE)
            sms_quiet_second();
        else
            hear(bytes);
    }
    hear(bytes);
    sms_reads_end();
    sms_log_received(&gsm_event);
    libgsm_check_sms(&g_mobile, "+CMT: ,1\r\n");
    kelo_sms message;
    while (kelo_take_sms(&message) == 1)
        if (strnlen(message.text, sizeof message.text) == sizeof message.text ||
            strnlen(message.sender, sizeof message.sender) == sizeof message.sender ||
            strnlen(message.pdu, sizeof message.pdu) == sizeof message.pdu)
            std::abort();
    std::string room(200000, '\0');
    while (kelo_take_message(&whole, sizeof whole, room.data(), room.size()) == 1)
        if (std::string_view(room.c_str()).size() > static_cast<std::size_t>(whole.length))
            std::abort();
    return 0;
}
