// SPDX-License-Identifier: MIT
#include "support/wakeup.h"

#include "support/lock.h"
#include "support/words.h"
#include <kelo/event.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kelo
{

namespace
{

// A leaf: nothing is taken under it.
lock wakeup_lock;

// Two descriptors of the one counter: a host that closes its own by mistake loses its wakes, but
// nothing is written to whatever file takes that number next.
int own_fd = -1;
int host_fd = -1;

// Never one of the numbers of the standard streams, where texts would be written to it.
int above_streams(int fd)
{
    return fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

void close_kept(int fd)
{
    const int error = errno;
    if (fd >= 0)
        close(fd);
    errno = error;
}

// Readable from the first: what came before the host asked is news as well.
void make_descriptors()
{
    const int made = eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
    if (made < 0)
        return;
    const int own = above_streams(made);
    const int given = own < 0 ? -1 : above_streams(made);
    close_kept(made);
    if (given < 0)
        return close_kept(own);
    host_fd = given;
    word_set(own_fd, own);
}

} // namespace

void wake_host()
{
    const int fd = word_get(own_fd);
    if (fd < 0 || locks_abandoned())
        return;
    const int error = errno;
    const std::uint64_t once = 1;
    // One that is full is readable, which is all that is wanted.
    [[maybe_unused]] const ssize_t written = write(fd, &once, sizeof once);
    errno = error;
}

bool host_is_woken()
{
    return word_get(own_fd) >= 0;
}

} // namespace kelo

int kelo_event_fd(void)
{
    using namespace kelo;
    if (refused_in_fork(__func__)) {
        errno = ECHILD;
        return -1;
    }
    const lock_scope<wakeup_lock> hold;
    if (host_fd < 0)
        make_descriptors();
    return host_fd;
}
