// Single lines that few modules send: read-backs of other makers, losses, and what they raise.
#include "feed.h"

#include <kelo/mqtt.h>

using namespace kelo;

namespace
{

std::string lost;

TEST(Lines, ReadBackIntoTheRecord)
{
    // clang-format off
    const story stories[] = { // scan mode, service centre
        {scanmode_handler, "+GTRAT: 2,0,0|OK", 0, 1, "2 old"},
        {scanmode_handler, "+GTRAT: 3", 0, 0, "3 old"},
        {scanmode_handler, "+GTRAT: 14", 0, 0, "10 old"},
        {scanmode_handler, "+GTRAT: 16", 0, 0, "9 old"},
        {scanmode_handler, "+GTRAT: 17", 0, 0, "9 old"},
        {scanmode_handler, "+GTRAT: 4", 0, 0, "0 old"},
        {csca_handler, "+CSCA: \"+491710760000\",145|OK", 0, 1, "77 +491710760000"},
        {csca_handler, "+CSCA: ", 0, 0, "77 "},
        {csca_handler, "CSCA: \"+49\"", 0, 0, "77 old"},
    };
    // clang-format on
    run(
        stories,
        [] {
            g_mobile.currscanmode = 77;
            std::strcpy(g_mobile.smscenter, "old");
        },
        [] { return told(g_mobile.currscanmode, " ", g_mobile.smscenter); });
}

TEST(Lines, LossOfTheSimAndOfMqtt)
{
    kelo_set_urc_callback([](const char* text) { lost += text; });
    // clang-format off
    const story stories[] = { // reload and start wanted, what the host is told of MQTT
        {general_handler, "+SIM DROP", 0, 0, "10 "},
        {general_handler, "^SIMST: 255,0", 0, 0, "01 ", 13},
        {general_handler, "^SIMST: 255,1", 0, 0, "01 ", 15},
        {general_handler, "^SIMST: 255,0", 0, 0, "00 ", 14},
        {general_handler, "^SIMST: 1,0", 0, 0, "00 ", 13},
        {general_handler, "^SIMST: 255", 0, 0, "00 ", 13},
        {qmtconn_handler, "AT+QMTCONN?|OK", 0, 0, "00 Mqtt is lost"},
        {qmtconn_handler, "AT+QMTCONN?|+QMTCONN: 0,3|OK", 0, 1, "00 "},
        {qmtconn_handler, "AT+QMTCONN?|+QMTCONN: 0,0|OK", 0, 1, "00 Mqtt is lost"},
    };
    // clang-format on
    run(
        stories,
        [] {
            cell_reload_flag_unset();
            cell_start_flag_unset();
            lost.clear();
        },
        [] { return told(cell_reload_flag, cell_start_flag_get(), " ", lost); });
}

// A leg is gone when none of its figures is measured; one alone may be missing.
TEST(Lines, AnNrLegWithOneFigureUnmeasured)
{
    // clang-format off
    const story stories[] = { // technology, physical cell, RSRP, SINR, RSRQ
        {servingcell_handler, "+QENG: \"NR5G-NSA\",262,01,412,-32768,18,-10", 0, 0, "5G NR 5g1 412 -32768 18 -10"},
        {servingcell_handler, "+QENG: \"NR5G-NSA\",262,01,412,-96,-32768,-10", 0, 0, "5G NR 5g1 412 -96 -32768 -10"},
        {servingcell_handler, "+QENG: \"NR5G-NSA\",262,01,412,-96,18,-32768", 0, 0, "5G NR 5g1 412 -96 18 -32768"},
        {servingcell_handler, "+QENG: \"NR5G-NSA\",262,01,412,-96,18", 0, 0, "x 5g7 7 7 7 7"},
    };
    // clang-format on
    run(
        stories,
        [] {
            gsm_mobile& r = g_mobile;
            std::strcpy(r.act, "x");
            r.is5g = r.pcid = r.rsrp = r.sinr = r.rsrq = 7;
        },
        [] {
            const gsm_mobile& r = g_mobile;
            return told(r.act, " 5g", r.is5g, " ", r.pcid, " ", r.rsrp, " ", r.sinr, " ", r.rsrq);
        });
}

} // namespace
