// SPDX-License-Identifier: MIT
// kelo-host: the host of one modem, ready to run on a device, and an example of the calls.
#include "host/host.h"
#include "host/input/custom_file.h"
#include "host/input/settings_file.h"
#include "host/look/check_device.h"
#include "host/look/check_profiles.h"
#include "host/look/draft_profile.h"
#include "host/text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

namespace
{

using namespace kelo_host;

int run_check(const std::vector<std::string>& named)
{
    folder_list folders(named.begin(), named.end());
    if (folders.empty())
        folders = profile_folders();
    const auto findings = check_profiles(folders);
    for (const auto& folder : folders) {
        int count = 0;
        for (const finding& one : findings) {
            if (one.folder != folder)
                continue;
            count++;
            std::string place = folder;
            if (!one.file.empty())
                place += "/" + one.file;
            if (one.line > 0)
                place += ":" + std::to_string(one.line);
            std::printf("%s: %s\n", printable(place).c_str(), printable(one.text).c_str());
        }
        std::printf("%s: %s\n", folder.c_str(),
                    count == 0 ? "clean" : (std::to_string(count) + " findings").c_str());
    }
    return findings.empty() ? 0 : 1;
}

// Never in the place of a file that is there: somebody may have put work into it.
int run_draft(const std::string& file, const std::string& port)
{
    const int fd = file.empty() ? STDOUT_FILENO
                                : open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    const auto fault = [&](const std::string& text, int status) {
        std::fprintf(stderr, "kelo-host: %s\n", printable(text).c_str());
        return status;
    };
    if (fd < 0)
        return fault(file + ": " + std::strerror(errno), exit_usage);
    const profile_draft draft = draft_profile_at(port);
    const bool written = draft.text.empty() || write_all(fd, draft.text);
    const int error = errno;
    if (!file.empty() && (close(fd) != 0 || !written || draft.text.empty()))
        unlink(file.c_str());
    if (!draft.fault.empty())
        return fault(draft.fault, draft.status);
    if (!written)
        return fault(file + ": " + std::strerror(error), exit_usage);
    if (!file.empty())
        std::printf("%s: go through it, see docs/profiles.md\n", file.c_str());
    return 0;
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
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1); // an arena for each thread takes more memory than it saves time here
#endif
    host_options options;
    if (const auto status = parse_options(argc, argv, options))
        return *status;
    if (options.check_profiles)
        return run_check(options.check_folders);
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
    if (options.draft_profile)
        return run_draft(options.draft_file, chosen_port(device_of(options, settings)));
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return host(options, settings).run();
}
