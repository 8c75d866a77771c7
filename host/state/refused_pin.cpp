// SPDX-License-Identifier: MIT
#include "host/state/refused_pin.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelo_host
{

namespace
{

namespace fs = std::filesystem;

std::optional<fs::file_time_type> written(const std::string& path)
{
    std::error_code fault;
    const auto when = fs::last_write_time(path, fault);
    return fault ? std::nullopt : std::optional(when);
}

} // namespace

refused_pin::refused_pin()
{
    const char* const folders = std::getenv("RUNTIME_DIRECTORY"); // systemd.exec(5)
    if (folders != nullptr && *folders == '/') {
        path_ = folders;
        path_ = path_.substr(0, path_.find(':')) + "/pin-refused";
    }
}

void refused_pin::note()
{
    if (path_.empty() || noted_)
        return;
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    noted_ = fd >= 0;
    if (noted_) {
        futimens(fd, nullptr); // one that is there and empty keeps its time otherwise
        close(fd);
    }
}

bool refused_pin::stands(const std::vector<std::string>& files) const
{
    const auto refused = path_.empty() ? std::nullopt : written(path_);
    return refused && std::ranges::none_of(files, [&](const std::string& file) {
               const auto changed = written(file);
               return changed && *changed > *refused;
           });
}

} // namespace kelo_host
