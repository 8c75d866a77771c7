// What a host brings: its shell wrapper and its logger, which note what they were given.
#pragma once

#include "api/api.h"
#include "tests/testing.h"

namespace kelo::test
{

inline std::vector<std::string> shell_lines; // of kelo_system
inline std::string logged;                   // the last of log_log

cellular_setting full_settings(); // something in every field

} // namespace kelo::test
