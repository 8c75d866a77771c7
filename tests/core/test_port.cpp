// SPDX-License-Identifier: MIT
#include "tests/testing.h"

#include <termios.h>

// The wrong port is a modem that never answers; the search and the check for any device differ in
// the ports that they look at.
TEST(Port, SearchAndExistence)
{
    const std::tuple<std::vector<std::string>, int, int, const char*, int> rows[] = {
        {{"USB0", "USB1", "USB2", "USB3"}, 0, 2, "/dev/ttyUSB2", 1},
        {{"USB0", "USB1"}, 0, 128, "/dev/ttyACM128", 1},
        {{"USB0", "USB1"}, 13, 1, "/dev/ttyUSB1", 1},
        {{"ACM2"}, 0, 128, "/dev/ttyACM128", 1},
        {{"ACM2"}, 13, 1, "/dev/ttyACM2", 1},
        {{"USB3", "ACM3"}, 0, 2, "/dev/ttyACM3", 1},
        {{"USB127"}, 0, 127, "/dev/ttyUSB127", 1},
        {{"ACM128"}, 0, 127, "/dev/ttyACM128", 0},
        {{"USB128"}, 0, 128, "/dev/ttyACM128", 0}};
    for (const auto& [nodes, family, at_port, at_dev, exists] : rows) {
        SCOPED_TRACE(nodes[0]);
        captured out;
        for (const std::string& name : nodes)
            std::ofstream("/dev/tty" + name).flush();
        is_quectel = family;
        libgsm_search_usb_port(&g_mobile);
        EXPECT_STREQ(g_mobile.at_dev, at_dev);
        EXPECT_EQ(std::pair(g_mobile.at_port, mobile_device_exist()), std::pair(at_port, exists));
        EXPECT_EQ(out.has("No ttyUSB device found!!!!\n"), at_port == 128);
        for (const std::string& name : nodes)
            unlink(("/dev/tty" + name).c_str());
    }
}

// A line that translates CR LF or echoes garbles every answer.
TEST(Port, OpenMakesTheLineRaw)
{
    modem_port port;
    const int other = open("/dev/ttyUSB2", O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios line = {};
    tcgetattr(other, &line);
    line.c_lflag |= ICANON | ECHO | ECHOE | ECHOK | ECHONL | ISIG;
    line.c_oflag |= OPOST | ONLCR | OCRNL;
    line.c_iflag |= INLCR | IGNCR | ICRNL | IXON;
    line.c_cflag |= CRTSCTS | CSTOPB;
    line.c_cc[VMIN] = 0;
    line.c_cc[VTIME] = 9;
    tcsetattr(other, TCSANOW, &line);
    ASSERT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);
    tcgetattr(other, &line);
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO | ECHOE | ECHOK | ECHONL | ISIG), tcflag_t{ISIG});
    EXPECT_EQ(line.c_oflag & (OPOST | ONLCR | OCRNL), 0u);
    EXPECT_EQ(line.c_iflag & (INLCR | IGNCR | ICRNL | IXON), tcflag_t{IXON});
    EXPECT_EQ(line.c_cflag & (CRTSCTS | CSTOPB | CLOCAL), tcflag_t{CLOCAL});
    EXPECT_EQ(std::pair(line.c_cc[VMIN], line.c_cc[VTIME]), (std::pair<cc_t, cc_t>(1, 0)));
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
        const captured out(on_stderr ? STDERR_FILENO : STDOUT_FILENO);
        text_set(g_mobile.at_dev, path);
        EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), -1) << path;
        EXPECT_TRUE(out.has(text)) << path;
        EXPECT_EQ(g_mobile.fd, -1);
    }
}

// Catches: what is printed, a PIN included, goes to the modem in place of a stream that is closed.
TEST(Port, TakesNoNumberOfAStandardStream)
{
    modem_port port;
    libgsm_mobile_close_usb(&g_mobile);
    const int saved = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);
    EXPECT_GT(g_mobile.fd, STDERR_FILENO);
    EXPECT_EQ(fcntl(g_mobile.fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    dup2(saved, STDIN_FILENO);
    close(saved);
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
    ASSERT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), first); // of the host
    libgsm_mobile_close_usb(&g_mobile);
    EXPECT_NE(fcntl(first, F_GETFD), -1);
    close(first);
}
