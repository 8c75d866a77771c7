#include "tests/handlers/feed.h"

#include <set>

// clang-format off
constexpr const char* prefixes[] = {
    "+CLIP:", "+CSQ:", "+QIND: \"csq\"", "+QIURC: \"pdpdeact\"", "+QENG: \"LTE\"",
    "+QENG: \"NR5G-NSA\"", "+QENG: \"NR5G-SA\"", "+QENG: \"WCDMA\"", "+CEREG:", "+CREG:",
    "+CGREG:", "^HCSQ:", "+PSRAT:", "+COPS:", "^SIMST:", "^NDISSTAT:", "^DHCPV6:",
    "LTE service cell:", "LTE-NR EN-DC service cell:", "+QNWINFO:", "+ZPAS:", "EC25",
    "BASE  Version:", "+QGPSLOC:", "+QCCID:", "ICCID", "+CNUM:", "+CSCA:", "+CPIN:", "+QUSIM",
    "+QCFG: \"nwscanmode\"", "+MODODR", "+QNWPREFCFG: \"mode_pref\"", "^SYSCFGEX:", "+GTRAT:",
    "+QCFG: \"band\"", "+BNDPRF:", "hVoLTE-Verizon\"List\",", "0,0,0,", "EG95", "+QMTCONN:",
    "+QMTSTAT", "1,4", "1,9", "",
};

static std::vector<std::string> tails()
{
    const std::string digits(40, '9');
    const std::string quoted = "\"" + digits + "\"";
    std::string columns;
    for (int i = 0; i < 9'000; i++)
        columns += ",-2147483648";
    return {
        "", " ", ",", "\"", "\",", ",460,00,1,1,1,1,1,1,-99999999999", " ,,,,,,,,,,,,,,,,,,,,", " -,-,-,-,-,-", " \xff\xfe\x80",
        " " + digits + "," + digits + "," + quoted + "," + quoted + "," + digits,
        " " + quoted + "," + quoted + "," + quoted + "," + digits, columns, "; reboot, 1, $(reboot)",
        " %s%n%x,%s%n,%d", std::string(100'000, '"'), std::string(100'000, ','), " \"" + std::string(100'000, 'A'),
    };
}
// clang-format on

template <std::size_t... sizes> static bool terminated(const char (&... fields)[sizes])
{
    return ((std::memchr(fields, '\0', sizes) != nullptr) && ...);
}

TEST(Hostile, EveryPrefixWithEveryTailThroughEveryHandler)
{
    setenv("PATH", "/nowhere", 1); // an address may reach the shell, a program may not
    gsm_mobile& r = g_mobile;
    std::strcpy(r.at_dev, "dev");
    std::strcpy(r.apn, "apn");
    word_set(flow_walked, 1);
    std::set<at_handler> handlers{general_handler};
    for (std::size_t i = 0; i < at_general_rows; i++)
        handlers.insert(at_general_table[i].handler);
    for (std::size_t i = 0; i < at_private_rows; i++)
        handlers.insert(at_private_table[i].handler);
    for (const std::string& tail : tails())
        for (const char* prefix : prefixes) {
            const std::string line = prefix + tail;
            SCOPED_TRACE(line.substr(0, 80));
            for (at_handler handler : handlers)
                feed(handler, line);
            for (int family : {14, 15}) { // other readings, and an open cell line
                is_quectel = family;
                cell_ccinfo_recv = 1;
                feed(general_handler, line);
                feed(creg_handler, line);
            }
            ASSERT_TRUE(terminated(r.model, r.mfrs, r.revision, r.sn, r.imsi, r.iccid, r.gps_loc,
                                   r.version_code, r.qmbn_code, r.number, r.smscenter, r.act,
                                   r.plmn, r.band, r.lac, r.oper, r.band_gsm, r.band_lte,
                                   r.band_tds, gsm_event.callingnum));
            ASSERT_EQ(std::string(r.at_dev) + r.apn + std::to_string(r.fd), "devapn-1");
        }
}
