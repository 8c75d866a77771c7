// SPDX-License-Identifier: MIT
// What each module and firmware says of network and cell, and the values that are read out of it.
// scripts/make-lines makes the tables of docs/lines.md from the rows.
#include "handlers/parse.h"
#include "tests/handlers/feed.h"

struct line_row {
    const char* who; // a module and its firmware, a family of them, or who defines the line
    const char* line;
    const char* fields; // as they are kept; what is not named stays as it was
    const char* remark;
    int family = 0;
};

// clang-format off
static const line_row registration_rows[] = {
    {"3GPP TS 27.007", "+CREG: 0,1", "n 0, stat 1", "answer without area"},
    {"3GPP TS 27.007", "+CREG: 5", "stat 5", "report, roaming: without n"},
    {"3GPP TS 27.007", "+CREG: 2", "stat 2", "report, searching: the 2 is no n"},
    {"3GPP TS 27.007", "+CREG: 2,2", "n 2, stat 2", "answer, searching"},
    {"3GPP TS 27.007", "+CREG: 2,5,\"0E3F\",\"01A2B3C4\",2", "n 2, stat 5, area 0E3F, cell 1A2B3C4, AcT 2", "answer, UTRAN; the area keeps its zeros"},
    {"EC25 EC25EFAR06A08M4G", "+CREG: 1,\"5A1C\",\"7C4B10D\",7", "stat 1, area 5A1C, cell 7C4B10D, AcT 7", "report, LTE"},
    {"RM500Q-GL RM500QGLABR11A06M4G", "+CREG: 2,1,\"5A1C\",\"7C4B10D\",13", "n 2, stat 1, area 5A1C, cell 7C4B10D, AcT 13", "answer, the LTE anchor of 5G NSA"},
    {"Quectel 5G (RM, RG)", "+CREG: 2,1,\"3AA800\",\"3A5B4C104\",11", "n 2, stat 1, area 3AA800, cell 3A5B4C104, AcT 11", "5G SA: six digits of area, nine of cell"},
    {"3GPP TS 27.007", "+CGREG: 2,1,\"00A7\",\"7C4B10D\",7", "n 2, stat 1, area 00A7, cell 7C4B10D, AcT 7", "answer, packet domain"},
    {"UC20 UC20GQBR03A14E1G", "+CGREG: 2,1,\"01F4\",\"0057E3A2\",6,\"2B\"", "n 2, stat 1, area 01F4, cell 57E3A2, AcT 6, RAC 2B", "answer with the routing area"},
    {"3GPP TS 27.007", "+CGREG: 1,\"01F4\",\"0057E3A2\",6,\"2B\"", "n 1", "report of the same: as many commas as an answer without RAC, and taken for one"},
    {"Quectel 5G (RM, RG)", "+CGREG: 2,0", "n 2, stat 0", "also while online: not the proof of anything there"},
    {"3GPP TS 27.007", "+CEREG: 2,1,\"5A1C\",\"7C4B10D\",7", "n 2, stat 1, area 5A1C, cell 7C4B10D, AcT 7", "answer; with a data-only card the one proof"},
    {"3GPP TS 27.007", "+CEREG: 2,4", "n 2, stat 4", "out of coverage"},
    {"3GPP TS 27.007", "+CEREG: 3,3,,,,0,15", "nothing", "n of 3 and more adds cause columns: set 2 or less"},
    {"RG500Q-EA RG500QEAAAR11A06M4G", "+CEREG: 2,1,\"3AA800\",\"3A5B4C104\",11", "n 2, stat 1, area 3AA800, cell 3A5B4C104, AcT 17", "the AcT of CEREG and CGREG is read as hexadecimal: 17 is 11"},
    {"MH5000-31 10.1.2.5(H1212SP2C00)", "+CEREG: 2,1,\"5A1C\",\"7C4B10D\"", "n 2, stat 1, area 5A1C, cell 7C4B10D", "answer without AcT: as many commas as a report, told by the family code 15", 15},
    {"3GPP TS 27.007", "+C5GREG: 2,1,\"3AA800\",\"3A5B4C104\",11,1,\"01\"", "nothing", "5GS: not read; CREG, CEREG or QENG have it as well"},
};
static const line_row operator_rows[] = {
    {"3GPP TS 27.007", "+COPS: 0,0,\"Telekom.de\",7", "name Telekom.de", "registered, LTE"},
    {"3GPP TS 27.007", "+COPS: 1,2,\"26201\",2", "code 26201", "chosen by hand, numeric, UTRAN"},
    {"3GPP TS 27.007", "+COPS: 0,2,\"310260\",13", "name 310260", "a code of six digits: the flow's answer is kept as a name, that of a question as the code"},
    {"3GPP TS 27.007", "+COPS: 0", "not registered", "also for minutes after a start"},
    {"3GPP TS 27.007", "+COPS: 2", "not registered", "deregistered by hand"},
    {"EG25-G EG25GGBR07A08M2G", "+COPS: 0,0,\"Telefonica, O2\",7", "nothing", "a comma within the name"},
    {"old GSM and UMTS firmware", "+COPS: 0,0,\"vodafone D2\"", "nothing", "without AcT"},
    {"any, in AT+CSCS=\"UCS2\"", "+COPS: 0,0,\"004F00320020002D0020006400650020002B\",7", "name 004F00320020002D0020006400650020002B", "hexadecimal UCS-2 (\"O2 - de +\"): set AT+CSCS=\"GSM\""},
};
static const line_row cell_rows[] = {
    {"EC25 EC25EFAR06A08M4G", "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",262,01,1A2F403,214,1300,3,5,5,5A1C,-97,-11,-66,14,31", "MCC 262, MNC 1, cell 1A2F403, PCI 214, area 5A1C, channel 1300, bandwidth 5/5, RSRP -97, RSRQ -11, SINR 14, CQI 31", "the last column is srxlev on EC2x; it is kept as CQI"},
    {"Quectel 5G (RM, RG)", "+QENG: \"servingcell\",\"CONNECT\",\"LTE\",\"TDD\",460,00,2C17811,407,40936,41,5,5,2495,-99,-12,-69,11,9,23,-", "MCC 460, MNC 0, cell 2C17811, PCI 407, area 2495, channel 40936, bandwidth 5/5, RSRP -99, RSRQ -12, SINR 11, CQI 9", "CQI, transmit power and srxlev at the end"},
    {"EC2x", "+QENG: \"servingcell\",\"LIMSRV\",\"LTE\",\"FDD\",262,03,19D0A02,77,6400,20,3,3,2AF1,-112,-15,-80,2,-", "MCC 262, MNC 3, cell 19D0A02, PCI 77, area 2AF1, channel 6400, bandwidth 3/3, RSRP -112, RSRQ -15, SINR 2", "emergency service alone; a dash was not measured"},
    {"EC25 EC25EFAR06A08M4G", "+QENG: \"servingcell\",\"NOCONN\",\"WCDMA\",262,02,1F4A,57E3A2,3012,118,0,-87,-6,-,-,-,-,-", "WCDMA, cell 57E3A2, area 1F4A, channel 3012, bandwidth 0/0, RSRP -87, RSRQ 0, SINR -6, CQI 0", "RSCP is kept as RSRP, Ec/Io as SINR"},
    {"Quectel", "+QENG: \"servingcell\",\"NOCONN\",\"GSM\",262,03,0457,9C1F,52,84,0,-71,255,255,0,42,42,1,-,-,-,-,-,-,-,-,-,\"-\"", "nothing", "GSM: AT+CREG? and AT+CSQ have what is of use"},
    {"RG500Q-EA RG500QEAAAR11A06M4G", "+QENG: \"servingcell\",\"NOCONN\",\"NR5G-SA\",\"TDD\",460,00,3A5B4C104,412,3AA800,504990,41,12,-84,-10,24,1,44", "5G NR, SA, MCC 460, MNC 0, cell 3A5B4C104, PCI 412, area 3AA800, channel 504990, bandwidth 0/12, RSRP -84, RSRQ -10, SINR 24, CQI 0", "area and channel stand the other way round than with LTE"},
    {"Quectel 5G (RM, RG)", "+QENG: \"servingcell\",\"LIMSRV\",\"NR5G-SA\",\"FDD\",001,01,19B,1,1,368500,3,3,-91,-11,17,0,-", "5G NR, SA, MCC 1, MNC 1, cell 19B, PCI 1, area 1, channel 368500, bandwidth 0/3, RSRP -91, RSRQ -11, SINR 17, CQI 0", "a test network: MCC and MNC lose their zeros"},
    {"Quectel 5G (RM, RG)", "+QENG: \"servingcell\",\"CONNECT\"", "nothing", "NSA, first line of three"},
    {"Quectel 5G (RM, RG)", "+QENG: \"LTE\",\"FDD\",222,01,4940206,427,1350,3,5,5,BFF,-94,-15,-58,9,5,100,-", "MCC 222, MNC 1, cell 4940206, PCI 427, area BFF, channel 1350, bandwidth 5/5, RSRP -94, RSRQ -15, SINR 9, CQI 5", "NSA, the anchor: the columns of LTE, without state"},
    {"Quectel 5G (RM, RG)", "+QENG: \"NR5G-NSA\",222,01,920,-96,18,-10,648768,78,10,1", "5G NR, NSA, MCC 222, MNC 1, PCI 920, RSRP -96, RSRQ -10, SINR 18", "NSA, the NR leg: SINR ahead of RSRQ; older firmware ends behind it"},
    {"RM500Q-GL RM500QGLABR11A06M4G", "+QENG: \"NR5G-NSA\",262,01,65535,-32768,-32768,-32768", "MCC 262, MNC 1", "the NR leg is released: the anchor's figures stay"},
    {"RM510Q-GL RM510QGLAAR11A03M4G", "+QENG: \"NR5G-NSA\",", "nothing", "the NR leg is missing"},
    {"Quectel 5G (RM, RG)", "+QENG: \"NR5G-NSA\",262,01,310,-,-,-", "nothing", "the NR leg is not measured"},
    {"Quectel", "+QENG: \"servingcell\",\"SEARCH\"", "nothing", "no cell"},
    {"BG95-M3 BG95M3LAR02A03", "+QENG: \"servingcell\",\"NOCONN\",\"eMTC\",\"FDD\",334,020,3787103,260,2050,4,5,5,5B10,-108,-11,-83,19,13", "nothing", "the columns of LTE behind a word that is not read"},
};
// clang-format on

static void add_value(std::string& text, const char* name, const auto& value)
{
    if (value)
        text += in_words(text.empty() ? "" : ", ", name, std::uppercase, std::hex, *value);
}

static std::string read_fields(const char* line)
{
    std::string text;
    const auto number = [&](const char* name, const std::optional<int>& value) {
        if (value)
            text += in_words(text.empty() ? "" : ", ", name, *value);
    };
    const auto word = [&](const char* name, const char* value) {
        if (value != nullptr && value[0] != '\0')
            text += in_words(text.empty() ? "" : ", ", name, value);
    };
    if (const auto reg = read_registration(line)) {
        number("n ", reg->n);
        number("stat ", reg->stat);
        word("area ", reg->lac);
        add_value(text, "cell ", reg->cell_id);
        number("AcT ", reg->tech);
        add_value(text, "RAC ", reg->rac);
    } else if (const auto oper = read_operator(line)) {
        if (oper->kind == network_operator::none)
            return "not registered";
        if (oper->kind == network_operator::named)
            word(std::strspn(oper->name, "0123456789") == 5 ? "code " : "name ", oper->name);
    } else if (const auto cell = read_qeng(line); cell && text_begins(line, "+QENG")) {
        word("", cell->act);
        word("", cell->is5g ? (*cell->is5g == 2 ? "SA" : "NSA") : nullptr);
        number("MCC ", cell->mcc);
        number("MNC ", cell->mnc);
        add_value(text, "cell ", cell->cell_id);
        number("PCI ", cell->pcid);
        word("area ", cell->lac);
        number("channel ", cell->earfcn);
        if (cell->dl_bandwidth)
            word("bandwidth ",
                 in_words(cell->ul_bandwidth.value_or(-1), "/", *cell->dl_bandwidth).c_str());
        number("RSRP ", cell->rsrp);
        number("RSRQ ", cell->rsrq);
        number("SINR ", cell->sinr);
        number("CQI ", cell->cqi);
    }
    return text.empty() ? "nothing" : text;
}

// Catches: a column of another layout in a field's place, or a layout that is no longer read.
TEST(Lines, AreReadAsTheDocumentSays)
{
    for (const std::span<const line_row> rows :
         {std::span<const line_row>(registration_rows), {operator_rows}, {cell_rows}})
        for (const line_row& row : rows) {
            is_quectel = row.family;
            EXPECT_EQ(read_fields(row.line), row.fields) << row.who << ": " << row.line;
        }
}
