// GPS: no fix for a while, then one, fetched once.
#include "tests/e2e/story.h"

#include <unistd.h>

using namespace kelo_story;

namespace
{

std::string fetched()
{
    char buffer[KELO_GPS_LOCATION_SIZE] = "";
    return kelo_get_gps_location(buffer) == 1 ? buffer : "";
}

} // namespace

TEST_F(Story, GpsFromNoFixToAFixFetchedOnce)
{
    const std::string fix = "061951.0,31.22415,121.35479,0.7,62.2,2,0.00,0.0,0.0,110524,09";
    start_and_come_to_rest();
    modem.clear_log();
    order("gps nofix");
    EXPECT_EQ(kelo_start_gps_location(), 0);
    // The engine is off: the queries go on, with an error each, until the host switches it on.
    ASSERT_TRUE(modem.wait_sent("+CME ERROR: 505", within(12s)));
    EXPECT_EQ(kelo_set_gps_on(), 0);
    ASSERT_TRUE(modem.wait_sent("+CME ERROR: 516", within(6s), 2));
    EXPECT_EQ(fetched(), "");
    order("gps fix");
    std::string got;
    EXPECT_TRUE(eventually([&] { return !(got = fetched()).empty(); }, within(6s)));
    EXPECT_EQ(got, fix);
    EXPECT_EQ(fetched(), "");

    modem.clear_log();
    quiet(2500ms);
    EXPECT_EQ(modem.commands(), line_list{}); // one answer ends the queries
    // The other forms of a position, and a report that nobody asked for.
    libgsm_send_at("AT+QGPSLOC=0");
    EXPECT_TRUE(modem.wait_sent("+QGPSLOC: *,3113.4493N,12121.2878E,*", within(2s)));
    libgsm_send_at("AT+QGPSLOC=1");
    EXPECT_TRUE(modem.wait_sent("+QGPSLOC: *,3113.449300,N,*", within(2s)));
    quiet(1200ms); // the task reads no more than twice a second
    EXPECT_EQ(fetched(), "");

    // A stream of positions: asked for again after each fetch.
    EXPECT_EQ(kelo_start_gps_location(), 0);
    EXPECT_TRUE(eventually([&] { return fetched() == fix; }, within(6s)));
    EXPECT_EQ(kelo_stop_gps_location(), 0);
    EXPECT_TRUE(wire("AT+QGPSEND", 2s));

    gps_set_flag_file();
    EXPECT_EQ(access("/etc/gpsflag.txt", F_OK), 0);
    gps_clear_flag_file();
    EXPECT_NE(access("/etc/gpsflag.txt", F_OK), 0);
    gps_clear_flag_file();
    EXPECT_EQ(count_said("delete file gpsflag error\n"), 1u);
}
