// SPDX-License-Identifier: MIT
// The network interface of the data link, which the emulator does not make: it takes it down with
// the service, as a module that goes takes its interface along, and tells the dialer program by a
// marker file when there is nothing to dial into.
#include "emulator/core.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace kelo_emulator
{

namespace
{

std::string marker_of(const std::string& interface)
{
    return "/tmp/" + interface + ".no-service";
}

// Empty text, or what went wrong.
std::string with_flags(const std::string& interface, bool take_down)
{
    struct ifreq request = {};
    if (interface.empty() || interface.size() >= sizeof request.ifr_name ||
        interface.find('/') != std::string::npos)
        return "'" + interface + "' is no name of an interface";
    memcpy(request.ifr_name, interface.c_str(), interface.size() + 1);
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool done = any >= 0 && ioctl(any, SIOCGIFFLAGS, &request) == 0;
    if (done && take_down) {
        request.ifr_flags = static_cast<short>(request.ifr_flags & ~IFF_UP);
        done = ioctl(any, SIOCSIFFLAGS, &request) == 0;
    }
    const std::string error = done ? "" : interface + ": " + strerror(errno);
    if (any >= 0)
        close(any);
    return error;
}

} // namespace

std::string modem_core::follow_service(const std::string& interface)
{
    const std::string error = with_flags(interface, false);
    if (!error.empty())
        return error;
    leave_data_interface();
    data_interface = interface;
    carried = dialable = true; // what is not so is found at once
    return "";
}

// A module that only hangs keeps its interface up; that nothing passes it is not ours to do.
void modem_core::update_data_interface()
{
    if (data_interface.empty())
        return;
    const bool carries = pty.is_open() && service();
    const bool dials = carries && faults.hang == hang_kind::none;
    if (std::exchange(carried, carries) && !carries)
        with_flags(data_interface, true);
    if (std::exchange(dialable, dials) == dials)
        return;
    if (dials)
        unlink(marker_of(data_interface).c_str());
    else
        std::ofstream(marker_of(data_interface)).flush();
}

void modem_core::leave_data_interface()
{
    update_data_interface();
    if (!data_interface.empty())
        unlink(marker_of(data_interface).c_str());
    data_interface.clear();
}

} // namespace kelo_emulator
