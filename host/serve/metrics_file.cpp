// SPDX-License-Identifier: MIT
#include "host/serve/metrics_file.h"

#include "host/text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

constexpr auto between_writes = std::chrono::seconds(5);

} // namespace

// Not synced: it is of this boot alone. The collector reads names that end in .prom, which the
// one under way has not.
std::string metrics_file::write(const std::string& text) const
{
    const std::string part = path_ + ".new";
    const int fd = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0)
        return std::strerror(errno);
    const bool written = fchmod(fd, 0644) == 0 && write_all(fd, text); // whatever the umask is
    const int error = errno;
    close(fd);
    if (written && std::rename(part.c_str(), path_.c_str()) == 0)
        return "";
    std::string fault = std::strerror(written ? errno : error);
    unlink(part.c_str());
    return fault;
}

void metrics_file::pass(clock::time_point now, const std::function<std::string()>& text)
{
    if (path_.empty() || now < next_)
        return;
    next_ = now + between_writes;
    const std::string fault = write(text());
    if (fault != fault_)
        say_(path_ + (fault.empty() ? ": written again" : ": not written: " + fault));
    fault_ = fault;
}

void metrics_file::remove()
{
    if (!path_.empty())
        unlink(path_.c_str());
}

} // namespace kelo_host
