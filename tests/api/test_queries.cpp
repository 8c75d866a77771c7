// Status queries: the report by what the library knows, and the codes that are handed over once.
#include "tests/api/host_side.h"

#include "handlers/handlers.h"
#include "link/link.h"
#include <kelo/status.h>

using namespace kelo;
using namespace kelo::test;

TEST(Report, BySimLinkAndCell)
{
    struct {
        int sim;
        const char* iccid;
        int online, stem, scanmode, no_service;
        int sim_state, signal, net_type;
    } const cases[] = {
        // sim iccid online stem mode none   state signal type
        {0, "8986", 1, 9, 0, 0, 1, -97, 0}, {-1, "8986", 1, 9, 0, 0, 0, -97, 0},
        {1, "", 1, 9, 0, 0, 1, -97, 0},     {1, "8986", 0, 9, 0, 0, 2, -97, 0},
        {1, "8986", 1, 9, 1, 0, 2, -97, 1}, {1, "8986", 1, 3, 3, 0, 2, -97, 2},
        {1, "8986", 1, 2, 2, 0, 2, 23, 3},  {1, "8986", 1, 0, 0, 0, 2, -97, 2},
        {1, "8986", 1, 9, 2, 1, 2, 0, 0},
    };
    g_mobile.rssi = 23;
    g_mobile.rsrp = -97;
    text_set(g_mobile.oper, std::string(60, 'o').c_str());
    cellular_status seen = {};
    seen.reserved = 77;
    for (const auto& c : cases) {
        const auto row = &c - cases;
        set_sim_status(c.sim);
        text_set(g_mobile.iccid, c.iccid);
        cell_network_up = is_pin_ready = c.online;
        g_mobile.qeng_net_stem = c.stem;
        g_mobile.currscanmode = c.scanmode;
        g_mode_no_service = c.no_service;
        EXPECT_EQ(kelo_get_cellular(&seen), 1);
        EXPECT_EQ(seen.sim_state, c.sim_state) << row;
        EXPECT_EQ(seen.signal, c.signal) << row;
        EXPECT_EQ(seen.net_type, c.net_type) << row;
        EXPECT_STREQ(seen.iccid, c.iccid);
        EXPECT_EQ(kelo_is_sim_insert(), c.sim != -1) << row;
    }
    EXPECT_EQ(seen.oper, std::string(31, 'o'));
    EXPECT_EQ(seen.reserved, 77);
    EXPECT_EQ(shell_lines,
              (std::vector<std::string>{"echo \"\" > /tmp/network5Gmess.txt", "ifconfig wwan0 down",
                                        "ifconfig wwan0.1 down"}));
    word_set(mobile, {}); // no field is left as it was
    EXPECT_EQ(kelo_get_cellular(&seen), 1);
    EXPECT_EQ(std::string(seen.oper) + seen.sn + seen.imsi + seen.iccid, "");
    EXPECT_EQ(libgsm_get_model(), nullptr);
    EXPECT_STREQ(libgsm_get_pincode(), "");
    EXPECT_EQ(libgsm_get_rsrp(), -1);
    EXPECT_EQ(kelo_update_apn(), -1);
}

TEST(Queries, CodesAreHandedOverOnceAndTheApnIsThatOfTheRecord)
{
    modem_port port;
    char buffer[KELO_VERSION_CODE_SIZE + 1] = "";
    libgsm_update_version_code(std::string(200, 'v').c_str());
    EXPECT_EQ(kelo_check_version_code(buffer), 1);
    EXPECT_EQ(buffer, std::string(63, 'v'));
    EXPECT_EQ(kelo_check_version_code(buffer), 0);

    libgsm_update_qmbncfg_code(std::string(63, 'p').c_str());
    libgsm_check_qmbncfg_code();
    libgsm_update_qmbncfg_code("x\x1ay");
    libgsm_check_qmbncfg_code();
    EXPECT_EQ(port.heard(),
              "AT+QMBNCFG=\"SELECT\",\"" + std::string(42, 'p') + "\r\nat+qcfg=\"ims\",1\r\n");
    for (const std::string apn :
         {"net", "", "of more characters than 63 leave room for in one line"}) {
        libgsm_set_apn(apn.c_str(), "u", "p", 2);
        EXPECT_EQ(kelo_update_apn(), 0);
    }
    EXPECT_EQ(port.heard(), "AT+QICSGP=1,3,\"net\",\"u\",\"p\",2\r\n"
                            "AT+QICSGP=1,1,\"\",\"\",\"\",0\r\n"
                            "AT+QICSGP=1,3,\"of more characters than 63 leave room for in one\r\n");
}
