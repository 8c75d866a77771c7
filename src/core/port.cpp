// SPDX-License-Identifier: MIT
// The AT port: finding it among the modem's USB serial devices, opening it, and setting its line.

#include "core/core.h"
#include "core/family.h"
#include "support/diag.h"
#include "support/scan.h"
#include "support/sleeps.h"
#include "support/text.h"
#include <kelo/keeper.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace kelo
{

namespace
{

bool path_exists(const char* path)
{
    return access(path, F_OK) == 0;
}

bool device_exists(char (&path)[32], const char* format_usb_or_acm, int index)
{
    std::snprintf(path, sizeof path, "/dev/tty%s%d", format_usb_or_acm, index);
    return path_exists(path);
}

// The port that the host has named; guarded by settings_lock.
char named_port[32] = "";

bool find_named_port(char (&path)[32])
{
    const lock_scope<settings_lock> hold;
    text_set(path, named_port);
    return path[0] != '\0';
}

// The path of the port with this index; an ACM device counts one higher than a USB one.
bool find_port(char (&path)[32], int first, int& index)
{
    for (index = first; index < port_limit; index++)
        if (device_exists(path, "USB", index) || device_exists(path, "ACM", index + 1))
            return true;
    return false;
}

} // namespace

namespace
{

// The number at the end of a path, as far as it has one.
int index_of(const char* path)
{
    const std::size_t head = std::strcspn(path, "0123456789");
    int index = 0;
    scan(path + head, dec(index));
    return index;
}

bool choose_port(char (&path)[32], int& index)
{
    if (!find_named_port(path))
        return find_port(path, ports_from_1() ? 1 : 2, index);
    index = index_of(path);
    return path_exists(path);
}

} // namespace

bool port_there()
{
    char path[32] = "";
    int index = 0;
    return choose_port(path, index);
}

void libgsm_search_usb_port(gsm_mobile* rec)
{
    char path[32] = "";
    int index = 0;
    const bool found = choose_port(path, index);
    if (found)
        diag_debug("[%s:%d] %s found!!!!\n", __func__, __LINE__, path);
    else
        diag_plain("[%s:%d] No ttyUSB device found!!!!\n", __func__, __LINE__);
    lock_scope<record_lock> guard;
    rec->baud = 115200;
    rec->flow_ctrl = 0;
    rec->data_bits = 8;
    rec->stop_bits = 1;
    rec->parity = 'N';
    rec->at_port = index;
    text_set(rec->at_dev, path);
}

namespace
{

// Never one of the numbers of the standard streams, which a host may have closed: what is printed
// there would go to the modem.
int open_port(const char* path)
{
    const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const int above = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return above;
}

// Two programs on one port read half of every answer each. TIOCEXCL keeps others out, but for root;
// among those the lock does, for all that ask for it.
bool take_alone(int fd)
{
    if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        return false;
    ioctl(fd, TIOCEXCL);
    return true;
}

// Opens it, and notes how that went.
int open_noted(const char* path)
{
    int fd = open_port(path);
    int error = fd < 0 ? errno : 0;
    if (fd >= 0 && word_get(keeper_on) != 0 && !left_alone() && !take_alone(fd)) {
        close(fd);
        fd = -1;
        error = EBUSY;
    }
    word_set(port_error, error);
    return fd;
}

char open_path[32] = ""; // what the descriptor was opened by; guarded by port_lock

} // namespace

int libgsm_mobile_open_usb(gsm_mobile* rec)
{
    char path[32];
    {
        lock_scope<record_lock> guard;
        text_set(path, rec->at_dev);
    }
    if (path[0] == '\0' || !path_exists(path)) {
        diag_at(plain, __func__, "'%s': no such file or directory!\n", path);
        word_set(port_error, ENOENT);
        return -1;
    }
    // A task that ended by itself leaves its port open; it must not be left behind.
    libgsm_mobile_close_usb(rec);
    const int fd = open_noted(path);
    {
        lock_scope<port_lock> guard;
        rec->fd = fd;
        text_set(open_path, path);
        if (fd >= 0)
            port_trace(KELO_PORT_OPENED, open_path);
    }
    port_trace_deliver();
    if (fd < 0) {
        diag_at(error, __func__, "failed to open dev '%s'!\n", path);
        return -1;
    }
    libgsm_mobile_setup_serial(rec); // a line that can't be set is used as it is
    return 0;
}

namespace
{

struct line_settings {
    int baud;
    int flow_ctrl;
    int data_bits;
    int stop_bits;
    char parity;
};

line_settings settings_of(gsm_mobile* rec)
{
    lock_scope<record_lock> guard;
    return {rec->baud, rec->flow_ctrl, rec->data_bits, rec->stop_bits, rec->parity};
}

struct speed_row {
    int baud;
    speed_t speed;
};
constexpr speed_row speeds[] = {
    {38400, B38400}, {115200, B115200}, {19200, B19200}, {9600, B9600},
    {4800, B4800},   {2400, B2400},     {1200, B1200},   {300, B300},
};

void set_speed(termios& line, int baud)
{
    for (const speed_row& row : speeds) {
        if (row.baud != baud)
            continue;
        cfsetispeed(&line, row.speed);
        cfsetospeed(&line, row.speed);
    }
}

bool set_size(termios& line, int data_bits)
{
    static constexpr tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    line.c_cflag &= ~static_cast<tcflag_t>(CSIZE);
    if (data_bits < 5 || data_bits > 8)
        return false;
    line.c_cflag |= sizes[data_bits - 5];
    return true;
}

bool set_parity(termios& line, char parity)
{
    switch (std::toupper(static_cast<unsigned char>(parity))) {
    case 'E':
        line.c_cflag |= PARENB;
        line.c_cflag &= ~static_cast<tcflag_t>(PARODD);
        line.c_iflag |= INPCK;
        return true;
    case 'N':
        line.c_cflag &= ~static_cast<tcflag_t>(PARENB);
        line.c_iflag &= ~static_cast<tcflag_t>(INPCK);
        return true;
    case 'O':
        line.c_cflag |= PARENB | PARODD;
        line.c_iflag |= INPCK;
        return true;
    case 'S': // space parity, sent as no parity
        line.c_cflag &= ~static_cast<tcflag_t>(PARENB | CSTOPB);
        return true;
    default:
        return false;
    }
}

bool set_stop_bits(termios& line, int stop_bits)
{
    if (stop_bits == 1)
        line.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
    else if (stop_bits == 2)
        line.c_cflag |= CSTOPB;
    else
        return false;
    return true;
}

void set_raw(termios& line)
{
    line.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ECHOK | ECHONL);
    line.c_oflag &= ~static_cast<tcflag_t>(OPOST | ONLCR | OCRNL);
    line.c_iflag &= ~static_cast<tcflag_t>(INLCR | IGNCR | ICRNL);
    // Bytes of the modem mean nothing to the line: a stray XOFF would hold our commands back for
    // good, and a Ctrl-C, or the Ctrl-Z of an echoed message, flush what waits in both directions.
    for (const int key : {VSTART, VSTOP, VINTR, VQUIT, VSUSP})
        line.c_cc[key] = _POSIX_VDISABLE;
    line.c_cc[VTIME] = 0;
    line.c_cc[VMIN] = 1;
}

} // namespace

int libgsm_mobile_setup_serial(gsm_mobile* rec)
{
    const line_settings wanted = settings_of(rec);
    const int fd = port_descriptor(rec);
    termios line = {};
    if (tcgetattr(fd, &line) != 0) {
        diag_plain("[%s:%d] SetupSerial Failed\n", __func__, __LINE__);
        return -1;
    }
    set_speed(line, wanted.baud);
    line.c_cflag |= CLOCAL | CREAD;
    if (wanted.flow_ctrl == 0)
        line.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    if (!set_size(line, wanted.data_bits)) {
        diag_plain("[%s:%d] Unsupported data size %d\n", __func__, __LINE__, wanted.data_bits);
        return -1;
    }
    if (!set_parity(line, wanted.parity)) {
        diag_plain("[%s:%d] Unsupported parity\n", __func__, __LINE__);
        return -1;
    }
    if (!set_stop_bits(line, wanted.stop_bits)) {
        diag_plain("[%s:%d] Unsupported stop bits\n", __func__, __LINE__);
        return -1;
    }
    set_raw(line);
    tcflush(fd, TCIOFLUSH);
    if (tcsetattr(fd, TCSANOW, &line) != 0) {
        diag_plain("[%s:%d] Configure USB2UART Failed!\n", __func__, __LINE__);
        return -1;
    }
    return 0;
}

namespace
{

// A modem that hangs takes nothing more, and a close would wait half a minute for it to do so. What
// a live one has not taken yet gets a moment.
void drop_unsent(int fd)
{
    constexpr int moments = 20;
    int unsent = 0;
    for (int i = 0; i < moments && ioctl(fd, TIOCOUTQ, &unsent) == 0 && unsent > 0; i++)
        microseconds_sleep(50000);
    if (unsent > 0)
        tcflush(fd, TCOFLUSH);
}

} // namespace

void libgsm_mobile_close_usb(gsm_mobile* rec)
{
    int fd = -1;
    {
        lock_scope<port_lock> guard;
        fd = std::exchange(rec->fd, -1);
        if (fd >= 0)
            port_trace(KELO_PORT_CLOSED, open_path);
    }
    if (fd < 0)
        return;
    port_trace_deliver();
    drop_unsent(fd);
    ioctl(fd, TIOCNXCL); // a descriptor of somebody else would keep the next open out
    close(fd);
}

void port_hung_up()
{
    const lock_scope<port_lock> guard;
    port_trace(KELO_PORT_HUNG_UP, open_path);
}

int port_descriptor(gsm_mobile* rec)
{
    lock_scope<port_lock> guard;
    return rec->fd;
}

// A modem that starts anew may come back under the same name: the descriptor is then that of a
// device that is gone.
bool port_lost(gsm_mobile* rec)
{
    char path[32];
    {
        const lock_scope<record_lock> guard;
        text_set(path, rec->at_dev);
    }
    struct stat named = {};
    struct stat opened = {};
    const lock_scope<port_lock> guard;
    return rec->fd < 0 || stat(path, &named) != 0 || fstat(rec->fd, &opened) != 0 ||
           named.st_rdev != opened.st_rdev;
}

int mobile_device_exist()
{
    char path[32];
    if (find_named_port(path))
        return path_exists(path) ? 1 : 0;
    for (int index = 0; index < port_limit; index++)
        if (device_exists(path, "USB", index) || device_exists(path, "ACM", index))
            return 1;
    return 0;
}

} // namespace kelo

using namespace kelo;

int kelo_set_port(const char* path)
{
    const char* const wanted = path != nullptr ? path : "";
    if ((wanted[0] != '/' && wanted[0] != '\0') || std::strlen(wanted) >= sizeof named_port) {
        diag_at(plain, __func__, "refused '%s': no path of up to %zu characters\n", wanted,
                sizeof named_port - 1);
        return -1;
    }
    const lock_scope<settings_lock> hold;
    text_set(named_port, wanted);
    return 0;
}
