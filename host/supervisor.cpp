#include "host/supervisor.h"

#include <kelo/kelo.h>

#include <unistd.h>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

// A modem that keeps asking must not keep the flow from ever getting to its end.
constexpr auto between_reloads = 5s;
constexpr auto between_retries = 10s;
constexpr auto restart_begins = 2s; // a restart has taken its lock by then
constexpr auto first_start = 4s;    // it runs on a thread of the library

bool is_up(const int& exported)
{
    return __atomic_load_n(&exported, __ATOMIC_RELAXED) != 0;
}

} // namespace

void supervisor::pass(clock::time_point now)
{
    if (grace_ == clock::time_point{})
        grace_ = now + first_start;
    note_received();
    count_restarts();
    reload_if_wanted(now);
    restart_if_wanted();
    retry_if_lost(now);
}

void supervisor::note_received()
{
    // Cleared at once: a report that comes in the meantime raises the flag again.
    if (kelo_is_sms_received())
        kelo_clean_sms_received();
    if (kelo_is_call_received()) {
        kelo_clean_call_received();
        received_.calls++;
        say_("a call came in");
    }
    if (kelo_is_mqtt_received()) {
        kelo_clean_mqtt_received();
        received_.mqtt++;
        say_("an MQTT message came in");
    }
    if (get_cell_pdpdeact()) {
        set_cell_pdpdeact(0);
        say_("the packet data context was lost");
    }
}

void supervisor::count_restarts()
{
    const bool restarting = is_up(cell_repower_lock);
    restarts_ += restarting_ && !restarting;
    restarting_ = restarting;
}

void supervisor::reload_if_wanted(clock::time_point now)
{
    if (!is_up(cell_reload_flag) || now < next_reload_)
        return;
    // Refused while a start or restart is under way: the flag stays, and so does our next try.
    if (cellular_reload() == 0) {
        say_("a reload is wanted: the reload flow runs");
        next_reload_ = now + between_reloads;
    }
}

void supervisor::restart_if_wanted()
{
    if (!cell_start_flag_get())
        return;
    cell_start_flag_unset(); // first: a request that comes during the restart is a new one
    say_("a fresh start is wanted: the modem task restarts");
    cellular_module_restart_extern();
}

// A start that finds no port leaves no task behind, and a task ends when the modem's devices are
// gone. Neither comes back by itself.
void supervisor::retry_if_lost(clock::time_point now)
{
    gsm_mobile mobile{};
    if (is_up(cell_repower_lock) || !kelo_copy_mobile(&mobile))
        return;
    const bool is_open = mobile.fd >= 0 && access(mobile.at_dev, F_OK) == 0;
    if (!lost_) {
        if (is_open || now < grace_)
            return;
        lost_ = true;
        retried_ = false;
        next_retry_ = now + between_retries;
        say_("no modem port is open: looking for one every 10 seconds");
        return;
    }
    // A device that comes back is a new one: the port of before stays lost until it is opened anew.
    if (is_open && retried_ && now > next_retry_ - between_retries + restart_begins) {
        lost_ = false;
        say_("the modem port is open: " + std::string(printable(mobile.at_dev)));
        return;
    }
    if (now < next_retry_)
        return;
    retried_ = true;
    next_retry_ = now + between_retries;
    cellular_module_restart_extern();
}

} // namespace kelo_host
