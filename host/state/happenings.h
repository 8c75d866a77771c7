// SPDX-License-Identifier: MIT
// What happens beside messages, as objects for whoever follows (host/state/feed.h). docs/json.md
// has each of their fields, docs/kelo-host.schema.json their types.
#pragma once

#include "host/state/feed.h"

#include <kelo/keeper.h>
#include <kelo/settings.h>

#include <string>
#include <string_view>

namespace kelo_host
{

// An empty number: withheld, or not told.
json_value call_of(const std::string& number);

// "message", "subscribed" or "lost", the last with what the modem said of it.
json_value mqtt_of(const char* event, const std::string& topic, const std::string& report = "");

// Of the columns that kelo_get_gps_location gives; null for what they do not say.
json_value position_of(std::string_view columns);

// The names of what differs, and never what they are set to.
json_value settings_of(const cellular_setting& before, const cellular_setting& now, bool restart);

// Tells "link" and "reason" where the status has another one, "restart" where the modem task was
// started or the modem walked anew.
class watcher
{
  public:
    explicit watcher(const feed& to) : feed_(to) {}
    void look(const json_value& status);

  private:
    void tell_change(const char* type, const json_value& status, json_value fields);
    void tell_count(const char* what, unsigned int now, unsigned int& before);

    const feed& feed_;
    json_value last_;
    unsigned int starts_ = 0, reloads_ = 0;
};

} // namespace kelo_host
