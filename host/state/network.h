// SPDX-License-Identifier: MIT
// What the modem record says of network and cell, and what is asked for it.
#pragma once

#include "host/state/status.h"

#include <kelo/gsm.h>

#include <string>
#include <string_view>

namespace kelo_host
{

// Has the library ask the modem again and again for what its flows do not, or once: by its model,
// every so many seconds; `name`: for the operator's name, too.
void ask_for_figures(std::string_view model, int seconds, bool name);

// In the home network, or roaming.
bool is_registered(const gsm_mobile& mobile);

// Adds the fields from "operator" to "signal_dbm"; null for what is not known.
void add_network(json_value& status, const gsm_mobile& mobile);

// A name as people read it: while the modem's character set is UCS2 names come as hexadecimal
// UTF-16. Whatever may be a name as it stands stays so.
std::string operator_name(const std::string& oper);

} // namespace kelo_host
