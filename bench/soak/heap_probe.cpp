// SPDX-License-Identifier: MIT
// Preloaded into kelo-host by scripts/soak: writes what the allocator says of itself to the file
// KELO_HEAP_FILE, once a second, "IN-USE HELD" in bytes. From inside the process, since nobody
// outside can ask the allocator; by a thread of its own, since its figures can't be had in a signal
// handler.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

// The sanitizer's own, where there is one: then malloc is its, and mallinfo2() knows nothing.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_heap_size();

namespace
{

void* tell(void* descriptor)
{
    const int file = static_cast<int>(reinterpret_cast<long>(descriptor));
    for (;;) {
        std::size_t in_use = 0, held = 0;
        if (__sanitizer_get_current_allocated_bytes != nullptr) {
            in_use = __sanitizer_get_current_allocated_bytes();
            held = __sanitizer_get_heap_size();
        } else {
            const struct mallinfo2 figures = mallinfo2();
            in_use = figures.uordblks + figures.hblkhd;
            held = figures.arena + figures.hblkhd;
        }
        char line[64]; // of one length, so that a reader never finds the end of a longer one
        const int length = std::snprintf(line, sizeof line, "%15zu %15zu\n", in_use, held);
        if (pwrite(file, line, static_cast<std::size_t>(length), 0) != length)
            return nullptr;
        const timespec second{1, 0};
        nanosleep(&second, nullptr);
    }
}

__attribute__((constructor)) void begin()
{
    const char* const path = std::getenv("KELO_HEAP_FILE");
    const int file =
        path == nullptr ? -1 : open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    unsetenv("LD_PRELOAD"); // what the host runs is not measured
    if (file < 0)
        return;
    sigset_t all, before;
    sigfillset(&all); // the host's signals go to the host's threads
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    pthread_create(&thread, nullptr, tell, reinterpret_cast<void*>(static_cast<long>(file)));
    pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace
