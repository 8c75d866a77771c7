// SPDX-License-Identifier: MIT
#include "host/ctl/client.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelo_ctl
{

namespace
{

constexpr size_t longest_line = 16 << 20;

std::string group_of(const std::string& path)
{
    struct stat there = {};
    if (stat(path.c_str(), &there) != 0)
        return "";
    const group* const found = getgrgid(there.st_gid);
    return found != nullptr ? found->gr_name : std::to_string(there.st_gid);
}

std::string advice(const std::string& path, int error)
{
    if (error == ENOENT || error == ECONNREFUSED)
        return "no kelo-host at " + path +
               ": is it running, and without --no-control? Its --control may name another place, "
               "which --socket takes";
    if (error == EACCES || error == EPERM) {
        const std::string group = group_of(path);
        return "this user may not ask the host at " + path + ": " +
               (group.empty() ? "its folder is closed to you"
                              : "it is for root and the group " + group +
                                    " (kelo-host --control-group names another)");
    }
    return path + ": " + std::strerror(error);
}

} // namespace

client::~client()
{
    if (fd_ >= 0)
        close(fd_);
}

std::string client::open(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return "the path of the socket is empty or too long";
    path.copy(address.sun_path, path.size());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0 || connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return advice(path, errno);
    return "";
}

bool client::ask(const std::string& request)
{
    const std::string line = request + "\n";
    for (size_t at = 0; at < line.size();) {
        const ssize_t sent = send(fd_, line.data() + at, line.size() - at, MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        at += sent > 0 ? static_cast<size_t>(sent) : 0;
    }
    return true;
}

std::optional<std::string> client::next_line(int seconds)
{
    for (;;) {
        const size_t end = text_.find('\n');
        if (end != text_.npos) {
            std::string line = text_.substr(0, end);
            text_.erase(0, end + 1);
            return line;
        }
        pollfd one = {fd_, POLLIN, 0};
        const int ready = poll(&one, 1, seconds < 0 ? -1 : seconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        char bytes[16384];
        const ssize_t count = ready > 0 ? recv(fd_, bytes, sizeof bytes, 0) : 0;
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0 || text_.size() > longest_line)
            return std::nullopt;
        text_.append(bytes, static_cast<size_t>(count));
    }
}

} // namespace kelo_ctl
