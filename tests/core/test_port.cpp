#include "testing.h"

#include <termios.h>

namespace
{

using namespace kelo;
using kelo::test::captured;
using kelo::test::modem_port;

void make_node(const std::string& name)
{
    std::ofstream("/dev/" + name).flush();
}

// The wrong port is a modem that never answers; the search and the check for any device differ in
// the ports that they look at.
TEST(Port, SearchAndExistence)
{
    struct row {
        std::vector<std::string> nodes;
        int family;
        int at_port;
        const char* at_dev;
        int exists;
    };
    const row rows[] = {{{"ttyUSB2"}, 0, 2, "/dev/ttyUSB2", 1},
                        {{"ttyUSB0", "ttyUSB1", "ttyUSB2", "ttyUSB3"}, 0, 2, "/dev/ttyUSB2", 1},
                        {{"ttyUSB0", "ttyUSB1"}, 0, 128, "/dev/ttyACM128", 1},
                        {{"ttyUSB0", "ttyUSB1"}, 13, 1, "/dev/ttyUSB1", 1},
                        {{"ttyACM3"}, 0, 2, "/dev/ttyACM3", 1},
                        {{"ttyACM2"}, 0, 128, "/dev/ttyACM128", 1},
                        {{"ttyACM2"}, 13, 1, "/dev/ttyACM2", 1},
                        {{"ttyUSB3", "ttyACM3"}, 0, 2, "/dev/ttyACM3", 1},
                        {{"ttyUSB127"}, 0, 127, "/dev/ttyUSB127", 1},
                        {{"ttyACM128"}, 0, 127, "/dev/ttyACM128", 0},
                        {{"ttyUSB128"}, 0, 128, "/dev/ttyACM128", 0},
                        {{}, 0, 128, "/dev/ttyACM128", 0}};
    for (const row& r : rows) {
        SCOPED_TRACE(r.nodes.empty() ? "no device" : r.nodes[0]);
        captured out;
        for (const std::string& name : r.nodes)
            make_node(name);
        is_quectel = r.family;
        libgsm_search_usb_port(&g_mobile);
        EXPECT_EQ(g_mobile.at_port, r.at_port);
        EXPECT_STREQ(g_mobile.at_dev, r.at_dev);
        EXPECT_EQ(mobile_device_exist(), r.exists);
        EXPECT_EQ(out.has("No ttyUSB device found!!!!\n"), r.at_port == 128);
        for (const std::string& name : r.nodes)
            unlink(("/dev/" + name).c_str());
    }
    EXPECT_EQ(g_mobile.baud, 115200);
    EXPECT_EQ(g_mobile.parity, 'N');
}

termios line_of(int fd)
{
    termios line = {};
    tcgetattr(fd, &line);
    return line;
}

// A line that translates CR LF or echoes garbles every answer.
TEST(Port, OpenMakesTheLineRaw)
{
    modem_port port(false);
    const int other = open("/dev/ttyUSB2", O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios before = line_of(other);
    before.c_lflag |= ICANON | ECHO | ECHOE | ECHOK | ECHONL | ISIG;
    before.c_oflag |= OPOST | ONLCR | OCRNL;
    before.c_iflag |= INLCR | IGNCR | ICRNL | IXON;
    before.c_cflag |= CRTSCTS | CSTOPB;
    before.c_cc[VMIN] = 0;
    before.c_cc[VTIME] = 9;
    tcsetattr(other, TCSANOW, &before);
    libgsm_search_usb_port(&g_mobile);
    ASSERT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);

    const termios line = line_of(other);
    EXPECT_EQ(line.c_lflag & (ICANON | ECHO | ECHOE | ECHOK | ECHONL | ISIG), tcflag_t{ISIG});
    EXPECT_EQ(line.c_oflag & (OPOST | ONLCR | OCRNL), 0u);
    EXPECT_EQ(line.c_iflag & (INLCR | IGNCR | ICRNL | IXON), tcflag_t{IXON});
    EXPECT_EQ(line.c_cflag & (CRTSCTS | CSTOPB | CLOCAL), tcflag_t{CLOCAL});
    EXPECT_EQ(line.c_cc[VMIN], 1);
    EXPECT_EQ(line.c_cc[VTIME], 0);
    EXPECT_EQ(cfgetospeed(&line), speed_t{B115200});

    EXPECT_NE(fcntl(g_mobile.fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(g_mobile.fd, F_GETFL) & O_NONBLOCK, 0);
    close(other);
}

// A setting that the line can't have is refused, and the line keeps what it had.
TEST(Port, LineSettings)
{
    struct row {
        int data_bits;
        char parity;
        int stop_bits;
        const char* refused; // null: taken
    };
    modem_port port;
    g_mobile.baud = 300;
    for (const row& r :
         {row{7, 'e', 2, nullptr}, row{4, 'N', 1, "Unsupported data size 4\n"},
          row{9, 'N', 1, "Unsupported data size 9\n"}, row{8, 'X', 1, "Unsupported parity\n"},
          row{8, 'N', 3, "Unsupported stop bits\n"}}) {
        captured out;
        g_mobile.data_bits = r.data_bits;
        g_mobile.parity = r.parity;
        g_mobile.stop_bits = r.stop_bits;
        EXPECT_EQ(libgsm_mobile_setup_serial(&g_mobile), r.refused == nullptr ? 0 : -1);
        EXPECT_TRUE(out.has(r.refused == nullptr ? "" : r.refused));
        g_mobile.baud = 9600; // not taken with any of the others
        const termios line = line_of(g_mobile.fd);
        EXPECT_EQ(line.c_iflag & INPCK, tcflag_t{INPCK});
        EXPECT_EQ(line.c_cflag & CSTOPB, tcflag_t{CSTOPB});
        EXPECT_EQ(cfgetispeed(&line), speed_t{B300});
    }
}

TEST(Port, OpenRefused)
{
    struct row {
        const char* path;
        bool on_stderr;
        const char* text;
    };
    constexpr row rows[] = {{"", false, "'': no such file or directory!\n"},
                            {"/dev/ttyUSB9", false, "'/dev/ttyUSB9': no such file or directory!\n"},
                            {"/tmp", true, "failed to open dev '/tmp'!\n"}};
    for (const row& r : rows) {
        captured out;
        captured error(STDERR_FILENO);
        text_set(g_mobile.at_dev, r.path);
        EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), -1) << r.path;
        EXPECT_TRUE((r.on_stderr ? error : out).has(r.text)) << r.path;
        EXPECT_EQ(g_mobile.fd, -1);
    }
    // What is no terminal is used as it is.
    make_node("ttyUSB2");
    text_set(g_mobile.at_dev, "/dev/ttyUSB2");
    captured out;
    EXPECT_EQ(libgsm_mobile_open_usb(&g_mobile), 0);
    EXPECT_TRUE(out.has("SetupSerial Failed\n"));
    unlink("/dev/ttyUSB2");
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
