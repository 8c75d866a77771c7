#include "options.h"

#include <CLI/CLI.hpp>

namespace kelo_host
{

namespace
{

// What goes into an AT command between double quotes, into a record field of 128 bytes.
std::string check_text(const std::string& text)
{
    if (text.size() > 127)
        return "is longer than 127 characters";
    for (const char c : text)
        if (c == '"' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return "holds a quote or a control character";
    return "";
}

// 3GPP TS 31.101 9.5.1
std::string check_pin(const std::string& text)
{
    if (text.empty())
        return "";
    if (text.size() < 4 || text.size() > 8 || text.find_first_not_of("0123456789") != text.npos)
        return "is not four to eight digits";
    return "";
}

} // namespace

std::optional<int> parse_options(int argc, const char* const* argv, Options& options)
{
    CLI::App app("Owns a USB cellular modem: starts the library, shows what it sees, acts on its "
                 "requests.",
                 "kelo-host");
    app.footer("Exit status: 0 done, 1 the modem never told its model (or --check-profiles found "
               "something), 2 bad arguments or a bad file.");
    app.get_formatter()->column_width(30);

    app.add_option("--seconds", options.seconds,
                   "Stop after so many seconds (default: on a signal)")
        ->check(CLI::Range(1, 1000000000));
    app.add_option("--family", options.family, "Module family code, is_quectel (default 0)")
        ->check(CLI::Range(0, 255));
    app.add_option("--low-power", options.low_power,
                   "Low power mode: hold commands back until the modem is up (default 0)")
        ->check(CLI::Range(0, 255));
    app.add_option("--sim", options.sim, "Active SIM (default 1)")->check(CLI::Range(1, 2));
    auto* apn = app.add_option("--apn", options.apn, "Access point name to give the modem")
                    ->check(check_text);
    app.add_option("--user", options.user, "User for the access point")
        ->check(check_text)
        ->needs(apn);
    app.add_option("--password", options.password, "Password for the access point")
        ->check(check_text)
        ->needs(apn)
        ->envname("KELO_PASSWORD");
    app.add_option("--auth", options.auth, "Authentication: 0 none, 1 PAP, 2 CHAP, 3 both")
        ->check(CLI::Range(0, 3))
        ->needs(apn);
    app.add_option("--pin", options.pin, "PIN of the SIM")->check(check_pin)->envname("KELO_PIN");
    app.add_option("--custom", options.custom_file,
                   "File of changes to the AT commands, see examples/custom-verbose-errors.txt");
    app.add_flag("--dialogue", options.dialogue, "Show the AT dialogue");
    app.add_flag("--json", options.json,
                 "One JSON object per change on standard output; the library's own lines go to "
                 "standard error");
    app.add_option("--check-profiles", options.check_profiles,
                   "Check a folder of modem profile files, and do nothing else");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    return std::nullopt;
}

} // namespace kelo_host
