// SPDX-License-Identifier: MIT
#include "host/serve/service_manager.h"

#include "host/text.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

constexpr std::int64_t most_usec = std::int64_t(24) * 3600 * 1000000;

std::string take_variable(const char* name)
{
    const char* const value = std::getenv(name);
    std::string text = value != nullptr ? value : "";
    unsetenv(name);
    return text;
}

std::optional<std::int64_t> number_in(const std::string& text)
{
    std::int64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

// A path, or "@" and a name of the abstract kind.
int connected_to(const std::string& place)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (place.size() < 2 || place.size() >= sizeof address.sun_path ||
        (place[0] != '/' && place[0] != '@'))
        return -1;
    std::memcpy(address.sun_path, place.data(), place.size());
    if (place[0] == '@')
        address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + place.size());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

} // namespace

service_manager::service_manager() : socket_(connected_to(take_variable("NOTIFY_SOCKET")))
{
    const auto usec = number_in(take_variable("WATCHDOG_USEC"));
    const std::string pid = take_variable("WATCHDOG_PID");
    if (usec && *usec > 0 && *usec < most_usec && (pid.empty() || number_in(pid) == getpid()))
        between_ = std::chrono::microseconds(*usec / 2);
}

service_manager::~service_manager()
{
    if (socket_ >= 0)
        close(socket_);
}

bool service_manager::tell(const std::string& text) const
{
    return send(socket_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
}

void service_manager::pass(clock::time_point now, const std::string& status)
{
    if (socket_ < 0)
        return;
    const bool alive = between_.count() > 0 && now >= next_;
    const bool changed = status != status_;
    std::string text;
    if (!ready_)
        text += "READY=1\n";
    if (changed)
        text += "STATUS=" + printable(status) + "\n";
    if (alive)
        text += "WATCHDOG=1\n";
    if (text.empty() || !tell(text))
        return;
    ready_ = true;
    if (changed)
        status_ = status;
    if (alive)
        next_ = now + between_;
}

void service_manager::stopping()
{
    if (socket_ >= 0)
        tell("STOPPING=1\n");
}

} // namespace kelo_host
