// SPDX-License-Identifier: MIT
// GPS: when queries go out, and what of a report reaches the host.
#include "tests/testing.h"

TEST(Gps, QueriesFromTheFourthTickAndReportsCutAsWanted)
{
    modem_port port;
    libgsm_send_gps_location(); // not wanted: does not count
    EXPECT_EQ(kelo_start_gps_location(), 0);
    std::string ticks;
    for (int tick = 0; tick < 5; tick++) {
        libgsm_send_gps_location();
        ticks += port.heard() == "AT+QGPSLOC=2\r\n" ? 'Q' : '.';
    }
    EXPECT_EQ(ticks, "...QQ");
    const std::pair<std::string, std::string> cases[] = {
        {"+QGPSLOC: " + std::string(500, '5'), std::string(127, '5')},
        {"x +QGPSLOC: 1,2\n3", "1,2"},
        {"+QGPSLOC:", ""}};
    for (const auto& [line, expected] : cases) {
        char buffer[KELO_GPS_LOCATION_SIZE] = "none";
        kelo_start_gps_location();
        EXPECT_EQ(libgsm_check_gps_location(line.c_str()), 0);
        EXPECT_EQ(kelo_get_gps_location(buffer), 1);
        EXPECT_EQ(buffer, expected);
    }
}
