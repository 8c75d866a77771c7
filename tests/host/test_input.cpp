// SPDX-License-Identifier: MIT
// What users, senders and networks put in: commands with settings, names.
#include "host/input/commands.h"
#include "host/input/settings_file.h"
#include "host/state/status.h"
#include <cstring>
#include <gtest/gtest.h>

using namespace kelo_host;

TEST(Commands, AndTheirSettingsAreTakenOrRefusedWithAReason)
{
    // clang-format off
    const char* rows[][2] = { // the line; a part of the reason, empty when it is taken
        {" # a comment", ""}, {"sim 2\r", ""}, {"sms +4915  two  blanks ", ""}, {"set pin= enable=0", ""},
        {"set apn='an apn' password=\"p#=\" auth=2 # behind", ""}, {"sms +49a hi", "goes to a number"},
        {"sms 4915", "is empty"}, {"sim 3", "1 or 2"}, {"boot", "no command 'boot'"},
        {"set pin=12x4", "four to eight"}, {"set auth=5", "from 0 to 4"}, {"set net_mode=", "takes a number"},
        {"set apn=abcdefghijabcdefghijabcdefghijkl", "longer than 31"}, {"set ping_target=-f", "begins with '-'"},
        {"set apn=b user='a\"b'", "a quote"}, {"set apn=a apn=b", "twice"}, {"set apm=x", "unknown setting 'apm'"}};
    // clang-format on
    for (const auto& [line, reason] : rows) {
        cellular_setting settings = default_settings();
        std::string error;
        const auto command = parse_command(line, error);
        if (command && command->verb == command_verb::set)
            error = set_settings(settings, command->settings);
        EXPECT_EQ(error.empty(), *reason == '\0') << line << ": " << error;
        EXPECT_NE(error.find(reason), std::string::npos) << line << ": " << error;
        EXPECT_STREQ(settings.apn, std::strstr(line, "an apn") ? "an apn" : "") << line;
    }
}

// Operator names come from the air, and must not drive the terminal.
TEST(Status, PrintsNothingThatActsOnATerminal)
{
    constexpr const char* rows[][2] = {{"Télékom \xe4\xb8\xad", "Télékom \xe4\xb8\xad"},
                                       {"a\x1b[2Jb\r\n\x7f", "a?[2Jb???"},
                                       {"\xc2\x9bJ", "?J"},                // one C1 control
                                       {"\xe4\xb8", "??"},                 // cut off
                                       {"\xc0\xaf\xed\xa0\x80", "?????"}}; // overlong, surrogate
    for (const auto& [text, shown] : rows)
        EXPECT_EQ(printable(text), shown);
}
