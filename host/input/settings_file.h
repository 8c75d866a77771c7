// SPDX-License-Identifier: MIT
// The settings of the library by name: from the command line, a file, or a command.
//
//     enable=1 ping_enable=1 ping_target=10.0.0.1    # one or more fields a line
//     apn=internet user="a user" password='p#"' auth=1
#pragma once

#include <kelo/settings.h>

#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelo_host
{

// The link wanted, automatic mode, and a ping target that answers nearly everywhere.
cellular_setting default_settings();

// Sets one of them. Returns what is wrong, empty for nothing; then `settings` is as it was.
std::string set_setting(cellular_setting& settings, std::string_view name, std::string_view value);

using setting_fields = std::vector<std::pair<std::string, std::string>>; // names and values

// The fields of one line; what is wrong in `error`.
setting_fields read_fields(std::string_view line, std::string& error);

// Sets them, all or, with a fault, none. Returns what is wrong.
std::string set_settings(cellular_setting& settings, const setting_fields& fields);
std::string set_settings(cellular_setting& settings, std::string_view line);

// The same for a file, every line of it. Returns "name:line: what is wrong" for each fault.
std::vector<std::string> parse_settings(std::istream& in, const std::string& name,
                                        cellular_setting& settings);
std::vector<std::string> read_settings_file(const std::string& path, cellular_setting& settings);

// Whether the modem has to be walked anew for a change: its record takes these at a start alone.
bool needs_restart(const cellular_setting& before, const cellular_setting& now);

// Hands changed settings to the running library; `mode` is the net_mode that it applied last. What
// the record takes at a start alone costs a restart, then true; the rest is changed at once.
bool apply_change(const cellular_setting& before, const cellular_setting& now, int& mode);

// The names of those that differ.
std::vector<std::string> changed_settings(const cellular_setting& before,
                                          const cellular_setting& now);

} // namespace kelo_host
