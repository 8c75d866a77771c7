// SPDX-License-Identifier: MIT
#include "tests/handlers/feed.h"

TEST(General, Reports)
{
    const std::string digits(70, '1');
    // clang-format off
    const story stories[] = { // caller, rssi/ber, context lost, reload and start wanted, cell lines to come
        {"EC25 EC25EFAR06A08M4G", general_handler, "+CLIP: \"+4915112345678\",145,,,,0", GSM_EVENT_RING, 0, "+4915112345678 9/9 0000"},
        {"", general_handler, "+CLIP: \"" + digits, GSM_EVENT_RING, 0, digits.substr(0, 64) + " 9/9 0000"},
        {"", general_handler, "+CMS ERROR: 304", GSM_EVENT_SMS_SEND_FAILED, 1, "x 9/9 0000"},
        {"", general_handler, "+QIND: \"csq\",32,3|+CSQ:", GSM_EVENT_NO_SIGNAL, 0, "x 32/3 0000"},
        {"", general_handler, "+CSQ: 31,99", 0, 0, "x 31/99 0000"},
        {"", general_handler, "+CSQ: 0,7", 0, 0, "x 0/7 0000"},
        {"", general_handler, "+CPIN: READY", GSM_EVENT_SIM_INSERTED, 0, "x 9/9 0000"},
        {"", general_handler, "+CEREG: 2,1", GSM_EVENT_SIM_UP, 0, "x 9/9 0000", 8},
        // dropped ahead of a cell line that is to come, and taken for it
        {"", general_handler, "LTE service cell:|+CEREG: 2,1", 0, 0, "x 9/9 0001", 11},
        {"", general_handler, "+SIM: Inserted|+SIM: Removed", 0, 0, "x 9/9 0100"},
        {"Fibocom", general_handler, "+SIM DROP", 0, 0, "x 9/9 0100"},
        {"MH5000-31 10.1.2.5(H1212SP2C00)", general_handler, "^SIMST: 255,0", 0, 0, "x 9/9 0010", 13},
        {"MH5000-31 10.1.2.5(H1212SP2C00)", general_handler, "^SIMST: 255,0", 0, 0, "x 9/9 0010", 15},
        {"", general_handler, "^SIMST: 1,0|^SIMST: 255", 0, 0, "x 9/9 0000", 15},
        {"MH5000-31 10.1.2.5(H1212SP2C00)", general_handler, "^NDISSTAT: 0,33,,\"IPV4\"", 0, 0, "x 9/9 1000", 13},
        {"", general_handler, "^NDISSTAT: 0,33,,\"IPV6\"|^NDISSTAT: 0,,,\"IPV4\"|^NDISSTAT: 1,0,,\"IPV4\"|x ^NDISSTAT: 0,33,,\"IPV4\"|^SIMST: 255,0", 0, 0, "x 9/9 0000"},
    };
    // clang-format on
    run(
        stories,
        [] {
            std::strcpy(gsm_event.callingnum, "x");
            g_mobile.rssi = g_mobile.ber = 9;
            is_pin_ready = 1;
            cell_pdpdeact = cell_ccinfo_recv = 0;
            cell_reload_flag_unset();
            cell_start_flag_unset();
        },
        [] {
            return in_words(gsm_event.callingnum, " ", g_mobile.rssi, "/", g_mobile.ber, " ",
                            cell_pdpdeact, cell_reload_flag, cell_start_flag_get(),
                            cell_ccinfo_recv);
        });
    is_pin_ready = cell_pdpdeact = 0;
    feed(general_handler, "^NDISSTAT: 0,33,,\"IPV4\"");
    EXPECT_EQ(cell_pdpdeact, 0) << "nothing to redial without a SIM";
    word_set(flow_walked, 1);
    EXPECT_EQ(feed(general_handler, "+CPIN: NOT READY"), GSM_EVENT_SIM_FAILED);
}

TEST(General, ACallerIsTakenOnceAndCutToItsPlace)
{
    char text[8] = "x";
    EXPECT_EQ(kelo_take_caller(text, sizeof text), 0);
    feed(general_handler, "+CLIP: \"123456789\",129");
    EXPECT_EQ(kelo_take_caller(nullptr, sizeof text), 0);
    EXPECT_EQ(kelo_take_caller(text, 0), 0);
    EXPECT_STREQ(text, "x");
    EXPECT_EQ(kelo_take_caller(text, sizeof text), 1);
    EXPECT_STREQ(text, "1234567");
    feed(general_handler, "+CLIP: \"123\",129");
    EXPECT_EQ(kelo_take_caller(text, 1), 1);
    EXPECT_EQ(kelo_take_caller(text, sizeof text), 0);
}

TEST(General, Ipv6AddressGoesToTheShellOnlyAsAnAddress)
{
    const scratch calls("/tmp/calls");
    stand_in("ip", "echo \"$@\" >>/tmp/calls");
    feed(general_handler,
         "^DHCPV6: 2409:8900:1234:5678:1:2:3:4,64,fe80::1,::,2409:8088::a,2409:8088::b,1500,1500"
         "|^DHCPV6: ::ffff:10.0.0.1,,64,,fe80::1"
         "|^DHCPV6: 2409::2;reboot,64,fe80::1"
         "|^DHCPV6: $(reboot),64,fe80::1"
         "|^DHCPV6: 1111:2222:3333:4444:5555:6666:7777:8888:999999,64,fe80::1"
         "|^DHCPV6:");
    EXPECT_EQ(content_of(calls.path), "-6 address add 2409:8900:1234:5678:1:2:3:4/64 dev wwan0\n"
                                      "-6 address add ::ffff:10.0.0.1/64 dev wwan0\n");
}

static std::string last_report;

// The echo arms it; an end of the query says it once, unless a connected client was reported.
TEST(General, MqttIsLostWhenItsQueryEndsWithoutAConnection)
{
    kelo_set_urc_callback([](const char* text) { last_report += text; });
    // clang-format off
    const story stories[] = {
        {"EC25 EC25EFAR06A08M4G", qmtconn_handler, "AT+QMTCONN?\r|+QMTCONN: 0,3|OK", 0, 1, ""},
        {"EC25 EC25EFAR06A08M4G", qmtconn_handler, "AT+QMTCONN?\r|OK", 0, 0, "Mqtt is lost"},
        {"", qmtconn_handler, "AT+QMTCONN?\r|+QMTCONN: 0,0|OK", 0, 1, "Mqtt is lost"},
        {"", qmtconn_handler, "OK", 0, 0, ""}, // of another command
    };
    // clang-format on
    run(
        stories,
        [] {
            last_report.clear();
            mqtt_conn_lost = 0;
        },
        [] { return last_report; });
}
