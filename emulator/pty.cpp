// SPDX-License-Identifier: MIT
#include "emulator/pty.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace kelo_emulator
{

namespace
{

std::string link_target(const std::string& path)
{
    char text[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), text, sizeof text);
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

// A link left over from a killed emulator may be replaced; a real device, a file or a link to
// anything but a pseudo-terminal belongs to somebody else.
std::string make_room(const std::string& path)
{
    struct stat info;
    if (lstat(path.c_str(), &info) != 0)
        return errno == ENOENT ? "" : path + ": " + strerror(errno);
    if (!S_ISLNK(info.st_mode) || link_target(path).rfind("/dev/pts/", 0) != 0)
        return path + ": exists and is not a link of an emulator; left alone";
    if (unlink(path.c_str()) != 0)
        return path + ": " + strerror(errno);
    return "";
}

} // namespace

pseudo_terminal::~pseudo_terminal()
{
    close();
}

std::string pseudo_terminal::open(const std::string& path)
{
    close();
    std::string error = make_room(path);
    if (!error.empty())
        return error;

    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char name[128];
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
        ptsname_r(master_, name, sizeof name) != 0) {
        error = std::string("no pseudo-terminal: ") + strerror(errno);
        close();
        return error;
    }
    slave_name_ = name;

    // One slave descriptor stays open here. Without it the master reads EIO and polls POLLHUP from
    // the moment a host closes the port, and the line settings fall back with each last close.
    slave_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    struct termios settings;
    if (slave_ < 0 || tcgetattr(slave_, &settings) != 0) {
        error = slave_name_ + ": " + strerror(errno);
        close();
        return error;
    }
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    tcsetattr(slave_, TCSANOW, &settings);

    if (symlink(name, path.c_str()) != 0) {
        error = path + ": " + strerror(errno);
        close();
        return error;
    }
    path_ = path;
    return "";
}

void pseudo_terminal::allow_next_open() const
{
    ioctl(slave_, TIOCNXCL);
}

void pseudo_terminal::close()
{
    // The link goes first, as a device node does: a host that sees the hang-up finds no node. By
    // now another emulator may have put its own link there.
    if (!path_.empty() && link_target(path_) == slave_name_)
        unlink(path_.c_str());
    path_.clear();
    if (slave_ >= 0)
        ::close(slave_);
    if (master_ >= 0)
        ::close(master_);
    slave_ = master_ = -1;
}

} // namespace kelo_emulator
