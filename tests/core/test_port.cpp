#include "tests/testing.h"

#include <termios.h>

namespace
{

using namespace kelo;
using kelo::test::captured;
using kelo::test::modem_port;

// The wrong port is a modem that never answers; the search and the check for any device differ in
// the ports that they look at.
TEST(Port, SearchAndExistence)
{
    struct row {
        std::vector<std::string> nodes;
        int family, at_port;
        const char* at_dev;
        int exists;
    };
    // clang-format off
    const row rows[] = {
        {{"ttyUSB0", "ttyUSB1", "ttyUSB2", "ttyUSB3"}, 0, 2, "/dev/ttyUSB2", 1},
        {{"ttyUSB0", "ttyUSB1"}, 0, 128, "/dev/ttyACM128", 1},
        {{"ttyUSB0", "ttyUSB1"}, 13, 1, "/dev/ttyUSB1", 1},
        {{"ttyACM2"}, 0, 128, "/dev/ttyACM128", 1},
        {{"ttyACM2"}, 13, 1, "/dev/ttyACM2", 1},
        {{"ttyUSB3", "ttyACM3"}, 0, 2, "/dev/ttyACM3", 1},
        {{"ttyUSB127"}, 0, 127, "/dev/ttyUSB127", 1},
        {{"ttyACM128"}, 0, 127, "/dev/ttyACM128", 0},
        {{"ttyUSB128"}, 0, 128, "/dev/ttyACM128", 0},
    };
    // clang-format on
    for (const row& r : rows) {
        SCOPED_TRACE(r.nodes[0]);
        captured out;
        for (const std::string& name : r.nodes)
            std::ofstream("/dev/" + name).flush();
        is_quectel = r.family;
        libgsm_search_usb_port(&g_mobile);
        EXPECT_EQ(g_mobile.at_port, r.at_port);
        EXPECT_STREQ(g_mobile.at_dev, r.at_dev);
        EXPECT_EQ(mobile_device_exist(), r.exists);
        EXPECT_EQ(out.has("No ttyUSB device found!!!!\n"), r.at_port == 128);
        for (const std::string& name : r.nodes)
            unlink(("/dev/" + name).c_str());
    }
}

// A line that translates CR LF or echoes garbles every answer.
TEST(Port, OpenMakesTheLineRaw)
{
    modem_port port(false);
    const int other = open("/dev/ttyUSB2", O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios before = {};
    tcgetattr(other, &before);
    before.c_lflag |= ICANON | ECHO | ECHOE | ECHOK | ECHONL | ISIG;
    before.c_oflag |= OPOST | ONLCR | OCRNL;
    before.c_iflag |= INLCR | IGNCR | ICRNL | IXON;
    before.c_cflag |= CRTSCTS | CSTOPB;
    before.c_cc[VMIN] = 0;
    before.c_cc[VTIME] = 9;
    tcsetattr(other, TCSANOW, &before);
    libgsm_search_usb_port(&g_mobile);
    ASSERT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);

    termios line = {};
    tcgetattr(other, &line);
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO | ECHOE | ECHOK | ECHONL | ISIG), tcflag_t{ISIG});
    EXPECT_EQ(line.c_oflag & (OPOST | ONLCR | OCRNL), 0u);
    EXPECT_EQ(line.c_iflag & (INLCR | IGNCR | ICRNL | IXON), tcflag_t{IXON});
    EXPECT_EQ(line.c_cflag & (CRTSCTS | CSTOPB | CLOCAL), tcflag_t{CLOCAL});
    EXPECT_EQ(line.c_cc[VMIN], 1);
    EXPECT_EQ(line.c_cc[VTIME], 0);
    EXPECT_EQ(cfgetospeed(&line), speed_t{B115200});

    close(other);
}

TEST(Port, OpenRefused)
{
    constexpr std::tuple<const char*, bool, const char*> rows[] = {
        {"", false, "'': no such file or directory!\n"},
        {"/dev/ttyUSB9", false, "'/dev/ttyUSB9': no such file or directory!\n"},
        {"/tmp", true, "failed to open dev '/tmp'!\n"}};
    for (const auto& [path, on_stderr, text] : rows) {
        captured out;
        captured error(STDERR_FILENO);
        text_set(g_mobile.at_dev, path);
        EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), -1) << path;
        EXPECT_TRUE((on_stderr ? error : out).has(text)) << path;
        EXPECT_EQ(g_mobile.fd, -1);
    }
}

// A second close would take a descriptor of the host; a second open would leave the first behind.
TEST(Port, ClosesOnceAndReopensWithoutALeak)
{
    modem_port port;
    const int first = g_mobile.fd;
    ASSERT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);
    EXPECT_EQ(g_mobile.fd, first);
    libgsm_mobile_close_usb(&g_mobile);
    EXPECT_EQ(g_mobile.fd, -1);
    const int of_the_host = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(of_the_host, first);
    libgsm_mobile_close_usb(&g_mobile);
    EXPECT_NE(fcntl(of_the_host, F_GETFD), -1);
    close(of_the_host);
}

} // namespace
