// SPDX-License-Identifier: MIT
// What the emulator's modem stands on, inside a fuzz target: a socket in the place of the
// pseudo-terminal, no broker, no network interface, and the world's clock.
#include "emulator/core.h"
#include "world.h"

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace kelo_emulator
{

pseudo_terminal::~pseudo_terminal()
{
    close();
}

std::string pseudo_terminal::open(const std::string&)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        return "no socket";
    master_ = ends[0];
    slave_ = ends[1];
    fuzz_world::set_port(slave_);
    return "";
}

void pseudo_terminal::close()
{
    fuzz_world::set_port(-1);
    if (master_ >= 0) {
        ::close(master_);
        ::close(slave_);
    }
    master_ = slave_ = -1;
}

void pseudo_terminal::allow_next_open() const {}

struct broker_client::shared_state {
};
bool broker_client::listens(const std::string&, int)
{
    return false;
}
broker_client::broker_client(const broker_target&) {}
broker_client::~broker_client() = default;
void broker_client::subscribe(int, const std::string&, int) {}
std::vector<broker_event> broker_client::take()
{
    return {};
}

std::string modem_core::follow_service(const std::string&)
{
    return "no interfaces here";
}
void modem_core::update_data_interface() {}
void modem_core::leave_data_interface() {}

} // namespace kelo_emulator

// std::chrono::steady_clock::now, of the emulator's objects.
extern "C" std::int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv()
{
    return 1'000'000'000'000 + fuzz_world::now_us() * 1000;
}
