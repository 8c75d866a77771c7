// The command line.
#pragma once

#include <optional>
#include <string>

namespace kelo_host
{

struct Options {
    std::optional<int> seconds; // run time; until a signal without it
    int family = 0;             // is_quectel
    int low_power = 0;
    int sim = 1;
    std::optional<std::string> apn; // none: the modem keeps its own
    std::string user, password, pin;
    int auth = 0;
    bool dialogue = false; // the AT dialogue on standard output
    bool json = false;
    std::string custom_file;
    std::string check_profiles; // folder to check instead of running
};

constexpr int exit_usage = 2;

// Fills `options`. Returns nothing to go on, or the status to exit with at once.
std::optional<int> parse_options(int argc, const char* const* argv, Options& options);

} // namespace kelo_host
