// SPDX-License-Identifier: MIT
#include "host/state/reasons.h"

#include "host/state/network.h"
#include "host/state/status.h"

#include <kelo/kelo.h>

#include <iterator>

namespace kelo_host
{

namespace
{

using enum reason_group;

// clang-format off
constexpr reason_row rows[] = {
    {KELO_REASON_STOPPED,        start,   "nothing is under way",
     "start it, or wait a second: it has just begun or is ending"},
    {KELO_REASON_NO_PORT,        port,    "no device node for the AT port",
     "plug the modem in, load its driver (option), or name the port with --port"},
    {KELO_REASON_NO_PERMISSION,  port,    "this process may not open the AT port",
     "run as root, or as a member of the group that owns the port"},
    {KELO_REASON_PORT_IN_USE,    port,    "another program has the AT port",
     "end it (kelo-host --check-device names it), and disable ModemManager"},
    {KELO_REASON_NO_ANSWER,      module,  "the modem says nothing",
     "wait for its boot; else another port with --port, or cut its power (--on-stuck)"},
    {KELO_REASON_UNKNOWN_MODULE, module,  "no flow knows this model and revision",
     "write a profile file of it: kelo-host --draft-profile FILE, then docs/profiles.md"},
    {KELO_REASON_PIN_REQUIRED,   sim,     "the SIM wants its PIN",
     "set --pin; with fewer than three tries left --pin-tries, too"},
    {KELO_REASON_PIN_REFUSED,    sim,     "the SIM has refused the PIN",
     "set the right one, before the tries are used up"},
    {KELO_REASON_PUK_REQUIRED,   sim,     "the SIM is locked",
     "unlock it by its PUK in a phone"},
    {KELO_REASON_NO_SIM,         sim,     "the modem sees no card",
     "put one in, seat it anew, or choose the other slot with --sim"},
    {KELO_REASON_SIM_FAILED,     sim,     "the SIM does not work",
     "seat it anew, or try it in a phone"},
    {KELO_REASON_SEARCHING,      network, "not registered yet",
     "check the antenna, the signal and --net-mode"},
    {KELO_REASON_DENIED,         network, "the network refuses the registration",
     "have the subscription, roaming and the modem's IMEI checked by the operator"},
    {KELO_REASON_NO_DIALER,      link,    "there is no program quectel-CM in PATH",
     "install it, or run with --no-link"},
    {KELO_REASON_DIALING,        link,    "the data interface is not up yet",
     "wait a minute; else check --apn, --user, --password and --auth"},
    {KELO_REASON_NO_ADDRESS,     link,    "the data interface has no address",
     "check --apn, and that a DHCP client is there"},
    {KELO_REASON_NO_PING,        link,    "neither ping target answers",
     "check --ping-target and the default route, or run with --no-ping"},
    {KELO_REASON_ONLINE,         network, "all that is asked for is there", ""},
};
// clang-format on
static_assert(std::size(rows) == KELO_REASON_ONLINE + 1);

constexpr goal goals[] = {
    {"online", [] { return kelo_get_reason() == KELO_REASON_ONLINE; }},
    {"ready", [] { return mobile_is_ready() != 0; }},
    {"registered",
     [] {
         gsm_mobile mobile{};
         return kelo_copy_mobile(&mobile) != 0 && is_registered(mobile);
     }},
};

std::string unknown_line(const char* model, const char* revision)
{
    return "unknown module " + printable(model) + ", revision " +
           (*revision != '\0' ? printable(revision) : "not told") +
           ": no flow knows it (docs/profiles.md)";
}

} // namespace

const reason_row& row_of(kelo_reason reason)
{
    return rows[reason >= 0 && reason <= KELO_REASON_ONLINE ? reason : KELO_REASON_STOPPED];
}

const reason_row* row_of(std::string_view word)
{
    for (const reason_row& row : rows)
        if (word == kelo_reason_name(row.reason))
            return &row;
    return nullptr;
}

std::string line_of(kelo_reason reason)
{
    gsm_mobile mobile{};
    char unlisted[32] = "";
    kelo_copy_mobile(&mobile);
    if (kelo_get_unknown_model(unlisted, sizeof unlisted) && reason >= KELO_REASON_UNKNOWN_MODULE)
        return unknown_line(unlisted, mobile.revision);
    if (reason == KELO_REASON_UNKNOWN_MODULE && mobile.model[0] != '\0')
        return unknown_line(mobile.model, mobile.revision);
    const reason_row& row = row_of(reason);
    return std::string(kelo_reason_name(reason)) + ", " + row.meaning +
           (*row.hint != '\0' ? std::string(": ") + row.hint : "");
}

std::string unknown_module()
{
    gsm_mobile mobile{};
    char unlisted[32] = "";
    if (!kelo_copy_mobile(&mobile) || mobile.revision[0] == '\0')
        return "";
    if (kelo_get_unknown_model(unlisted, sizeof unlisted))
        return unknown_line(unlisted, mobile.revision);
    return kelo_get_reason() == KELO_REASON_UNKNOWN_MODULE
               ? unknown_line(mobile.model, mobile.revision)
               : "";
}

const goal* goal_named(std::string_view name)
{
    for (const goal& one : goals)
        if (name == one.name)
            return &one;
    return nullptr;
}

} // namespace kelo_host
