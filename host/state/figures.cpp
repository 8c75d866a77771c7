// SPDX-License-Identifier: MIT
#include "host/state/figures.h"

#include "host/state/feed.h"

#include <kelo/keeper.h>

#include <iterator>

namespace kelo_host
{

namespace
{

constexpr const char* action_names[] = { // by enum kelo_action
    "none", "start", "ask", "radio reset", "modem restart", "power", "dial"};

json_value action_of(const kelo_figures& figures)
{
    const char* const name = action_name(figures.action);
    return name == nullptr ? json_value(nullptr)
                           : json_value{{"name", name}, {"in_s", figures.action_in_s}};
}

json_value json_of(const message_counts& counts)
{
    return {{"received", counts.received},
            {"sent", counts.sent},
            {"failed", counts.failed},
            {"unknown", counts.unknown},
            {"not_written", counts.not_written},
            {"refused", counts.refused},
            {"delivered", counts.delivered},
            {"undelivered", counts.undelivered},
            {"messages_lost", counts.messages_lost},
            {"results_lost", counts.results_lost},
            {"reports_lost", counts.reports_lost}};
}

} // namespace

void count(message_counts& counts, const kelo_sms_result& result)
{
    switch (result.state) {
    case KELO_SMS_SENT:
        counts.sent++;
        break;
    case KELO_SMS_FAILED:
        counts.failed++;
        break;
    case KELO_SMS_UNKNOWN:
        counts.unknown++;
        break;
    case KELO_SMS_NOT_WRITTEN:
        counts.not_written++;
        break;
    case KELO_SMS_REFUSED:
        counts.refused++;
        break;
    default:
        break; // a later library's
    }
}

void count(message_counts& counts, const kelo_sms_report& report)
{
    counts.delivered += report.state == KELO_SMS_DELIVERED;
    counts.undelivered += report.state == KELO_SMS_UNDELIVERED;
}

const char* action_name(int action)
{
    return action <= KELO_ACTION_NONE || static_cast<size_t>(action) >= std::size(action_names)
               ? nullptr
               : action_names[action];
}

json_value read_figures(const message_counts& counts, long seconds)
{
    kelo_figures figures{};
    kelo_get_figures(&figures, sizeof figures);
    return {
        {"running_s", seconds},
        {"starts", figures.starts},
        {"reloads", figures.reloads},
        {"radio_resets", figures.radio_resets},
        {"modem_restarts", figures.modem_restarts},
        {"dials", figures.dials},
        {"link_losses", figures.link_losses},
        {"port_losses", figures.port_losses},
        {"online_s", figures.online_s},
        {"offline_s", figures.offline_s},
        {"last_outage_s", figures.last_outage_s},
        {"longest_outage_s", figures.longest_outage_s},
        {"registered_at",
         figures.registered_at == 0
             ? json_value(nullptr)
             : json_value(time_text({static_cast<time_t>(figures.registered_at), 0}))},
        {"pin_tries", figures.pin_tries < 0 ? json_value(nullptr) : json_value(figures.pin_tries)},
        {"next_action", action_of(figures)},
        {"messages", json_of(counts)}};
}

} // namespace kelo_host
