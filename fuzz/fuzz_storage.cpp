// SPDX-License-Identifier: MIT
// What a modem says while its storage of messages is read. The first byte chooses what is done with
// the messages; the rest is what it says, in pieces that end at a byte 0, with a command of the
// errand ahead of each. A byte 1 stands for that command, which a modem repeats.

#include "sms/report_lines.h"
#include "support/sleeps.h"

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
    if (size == 0)
        return 0;
    kelo_set_sms_storage(0);
    kelo_set_sms_storage(1 + data[0] % 2);
    word_set(flow_walked, 1);
    std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    for (std::int64_t now = monotonic_ms(); !rest.empty(); now += 600000) {
        const char* const next = sms_errand_next(now);
        const std::string command = next != nullptr ? next : "";
        if (next != nullptr && (!command.starts_with("AT+C") || command.size() > 20))
            std::abort();
        std::string piece(rest.substr(0, rest.find('\0')));
        rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
        const std::size_t echo = piece.find('\1');
        if (echo != std::string::npos)
            piece.replace(echo, 1, command);
        sms_own_piece(piece);
        sms_storage_hear(piece);
        kelo_message message;
        char text[4096];
        kelo_take_message(&message, sizeof message, text, sizeof text);
    }
    int used = 0, total = 0;
    if (kelo_get_sms_storage(&used, &total) == 1 && (used < 0 || total < 0))
        std::abort();
    return 0;
}
