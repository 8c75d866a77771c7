// GPS: when queries go out, and what of a report reaches the host.
#include "api/api.h"

#include <gtest/gtest.h>
#include <kelo/gps.h>

#include <string>
#include <sys/socket.h>
#include <unistd.h>

using namespace kelo;

namespace
{

class Gps : public testing::Test
{
  protected:
    Gps()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        g_mobile.fd = ends[0];
        g_mobile.gps_on = g_mobile.gps_ready = 0;
    }
    ~Gps() override
    {
        g_mobile.fd = -1;
        close(ends[0]);
        close(ends[1]);
    }

    // What went out since the last look.
    std::string sent() const
    {
        char bytes[256];
        const ssize_t count = read(ends[1], bytes, sizeof bytes);
        return std::string(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

    static std::string fetch()
    {
        char buffer[KELO_GPS_LOCATION_SIZE];
        return kelo_get_gps_location(buffer) == 1 ? buffer : "(none)";
    }

    int ends[2] = {-1, -1};
};

} // namespace

TEST_F(Gps, QueriesFromTheFourthTickOfTheProcessUntilAFixComes)
{
    EXPECT_EQ(libgsm_send_gps_location(), 0); // not wanted: does not count
    EXPECT_EQ(kelo_start_gps_location(), 0);
    for (int tick = 1; tick <= 3; tick++) {
        libgsm_send_gps_location();
        EXPECT_EQ(sent(), "") << tick;
    }
    for (int tick = 4; tick <= 5; tick++) {
        libgsm_send_gps_location();
        EXPECT_EQ(sent(), "AT+QGPSLOC=2\r\n") << tick;
    }
    libgsm_check_gps_location("+CME ERROR: 516");
    libgsm_check_gps_location("AT+QGPSLOC=2");
    EXPECT_EQ(fetch(), "(none)");
    libgsm_check_gps_location("+QGPSLOC: 061951.000,31.82220,117.11541,0.7,62.2,2,0.0,0.0,0.0,"
                              "110513,09");
    libgsm_send_gps_location();
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(fetch(), "061951.000,31.82220,117.11541,0.7,62.2,2,0.0,0.0,0.0,110513,09");
    EXPECT_EQ(fetch(), "(none)");
    kelo_start_gps_location();
    libgsm_send_gps_location();
    EXPECT_EQ(sent(), "AT+QGPSLOC=2\r\n") << "a later start waits no more";
}

TEST_F(Gps, ReportsAreCutAndDroppedAsWanted)
{
    libgsm_check_gps_location("+QGPSLOC: 1");
    EXPECT_EQ(fetch(), "(none)") << "nobody asked";
    struct {
        std::string line;
        std::string expected;
    } const cases[] = {
        {"+QGPSLOC: " + std::string(500, '5'), std::string(127, '5')},
        {"x +QGPSLOC: 1,2\n3", "1,2"},
        {"+QGPSLOC:", ""},
        {"+QGPSLOC: ", ""},
    };
    for (const auto& c : cases) {
        kelo_start_gps_location();
        EXPECT_EQ(libgsm_check_gps_location(c.line.c_str()), 0);
        EXPECT_EQ(fetch(), c.expected);
    }
}
