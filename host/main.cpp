// SPDX-License-Identifier: MIT
// kelo-host: the host of one modem, ready to run on a device, and an example of the calls.
#include "host/host.h"
#include "host/input/custom_file.h"
#include "host/input/settings_file.h"
#include "host/look/check_device.h"
#include "host/look/check_profiles.h"

#include <cstdio>

namespace
{

using namespace kelo_host;

int run_check(const std::string& folder)
{
    const auto findings = check_profiles(folder);
    for (const finding& one : findings) {
        std::string place = folder;
        if (!one.file.empty())
            place += "/" + one.file;
        if (one.line > 0)
            place += ":" + std::to_string(one.line);
        std::printf("%s: %s\n", place.c_str(), printable(one.text).c_str());
    }
    std::printf("%s: %s\n", folder.c_str(),
                findings.empty() ? "clean"
                                 : (std::to_string(findings.size()) + " findings").c_str());
    return findings.empty() ? 0 : 1;
}

bool print_errors(const std::vector<std::string>& errors)
{
    for (const std::string& error : errors)
        std::fprintf(stderr, "kelo-host: %s\n", printable(error).c_str());
    return !errors.empty();
}

int run_device_check(const device_paths& paths)
{
    bool well = true;
    for (const look& one : check_device(paths)) {
        std::printf("%s\n", line_of(one).c_str());
        well = well && one.well;
    }
    return well ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    host_options options;
    if (const auto status = parse_options(argc, argv, options))
        return *status;
    if (!options.check_profiles.empty())
        return run_check(options.check_profiles);
    if (!options.custom_file.empty()) {
        const custom_file custom = read_custom_file(options.custom_file);
        if (print_errors(custom.errors))
            return exit_usage;
        install_custom(custom.items);
    }
    cellular_setting settings = options.settings;
    if (!options.settings_file.empty() &&
        print_errors(read_settings_file(options.settings_file, settings)))
        return exit_usage;
    if (options.check_device)
        return run_device_check(device_of(options, settings));
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return host(options, settings).run();
}
