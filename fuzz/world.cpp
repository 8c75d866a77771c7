// SPDX-License-Identifier: MIT
#include "world.h"

#include "support/diag.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <list>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/types.h>
#include <ucontext.h>
#include <unistd.h>
#include <unordered_set>
#include <vector>

#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#else
static void __sanitizer_start_switch_fiber(void**, const void*, std::size_t) {}
static void __sanitizer_finish_switch_fiber(void*, const void**, std::size_t*) {}
static void __asan_unpoison_memory_region(const void*, std::size_t) {}
#endif

extern "C" {
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_setname_np(pthread_t, const char*);
int __real_select(int, fd_set*, fd_set*, fd_set*, timeval*);
int __real_poll(pollfd*, nfds_t, int);
int __real_usleep(useconds_t);
time_t __real_time(time_t*);
int __real_open(const char*, int, ...);
int __real_access(const char*, int);
int __real_inotify_init1(int);
int __real_posix_spawn(pid_t*, const char*, const void*, const void*, char* const*, char* const*);
ssize_t __real_getrandom(void*, std::size_t, unsigned);
void* __real_malloc(std::size_t);
void* __real_calloc(std::size_t, std::size_t);
void* __real_realloc(void*, std::size_t);
char* __real_strdup(const char*);
void __real_free(void*);
std::int64_t __real__ZN4kelo12monotonic_msEv();
std::int64_t __real__ZN4kelo14time_of_day_usEv();
bool __real__ZN4kelo14on_mobile_taskEv();
extern const char __ehdr_start;
}

namespace kelo
{
void* corvel_mobile_dchannel(void* record);
}

namespace fuzz_world
{

namespace
{

constexpr std::int64_t start_us = 1'700'000'000'000'000; // of the clock of day
constexpr std::size_t stack_size = 1 << 20;
constexpr int most_steps_a_second = 4000; // a pass that never waits is a fault

struct fiber {
    ucontext_t context{};
    void* stack = nullptr;
    void* (*body)(void*) = nullptr;
    void* argument = nullptr;
    std::int64_t wake_us = 0;
    pollfd* waits_for = nullptr; // with its number
    nfds_t waits_count = 0;
    bool over = false;
    void* fake_stack = nullptr;
};

thread_local bool inside = false; // of this world, and not of the fuzzer's own

std::int64_t clock_us = 0;
std::list<fiber> all;
fiber* current = nullptr; // null: the host's thread
ucontext_t scheduler;
const void* scheduler_stack = nullptr;
std::size_t scheduler_stack_size = 0;
std::vector<void*> stacks; // that are free
far_end other_end;
int port_end = -1;
unsigned chance = 1;
std::unordered_set<void*> heap; // that the library has allocated in this input

// ---- The library's variables, as they were

struct memory_range {
    unsigned char* begin;
    std::size_t size;
    std::vector<unsigned char> copy;
};
std::vector<memory_range> variables;

// Not memcpy: there are poisoned gaps between variables.
[[gnu::noinline]] __attribute__((no_sanitize("address", "undefined"))) void
copy_bytes(volatile unsigned char* to, const volatile unsigned char* from, std::size_t size)
{
    for (; size >= 8; size -= 8, to += 8, from += 8)
        *reinterpret_cast<volatile std::uint64_t*>(to) =
            *reinterpret_cast<const volatile std::uint64_t*>(from);
    for (; size > 0; size--)
        *to++ = *from++;
}

// The sections that sections.h has given to them.
void find_variables()
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen("/proc/self/exe", "rb"),
                                                               std::fclose);
    REQUIRE(file != nullptr);
    std::vector<char> bytes;
    char piece[65536];
    for (std::size_t count; (count = std::fread(piece, 1, sizeof piece, file.get())) > 0;)
        bytes.insert(bytes.end(), piece, piece + count);
    Elf64_Ehdr header;
    std::memcpy(&header, bytes.data(), sizeof header);
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    std::memcpy(sections.data(), bytes.data() + header.e_shoff,
                sections.size() * sizeof sections[0]);
    const char* const names = bytes.data() + sections[header.e_shstrndx].sh_offset;
    auto* const base = const_cast<char*>(&__ehdr_start);
    for (const Elf64_Shdr& one : sections)
        if (std::string_view(names + one.sh_name).starts_with(".kelo."))
            variables.push_back({reinterpret_cast<unsigned char*>(base + one.sh_addr), one.sh_size,
                                 std::vector<unsigned char>(one.sh_size)});
    REQUIRE(variables.size() >= 2);
}

// ---- Fibers

// libc's own: AddressSanitizer's takes all marks off the stack that it changes to, which costs more
// than all else here. It is told of the changes.
int swap(ucontext_t* from, ucontext_t* to)
{
    static auto* const libc_swap = reinterpret_cast<int (*)(ucontext_t*, const ucontext_t*)>(
        dlsym(dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD), "swapcontext"));
    return libc_swap(from, to);
}

void fiber_body()
{
    __sanitizer_finish_switch_fiber(nullptr, &scheduler_stack, &scheduler_stack_size);
    fiber& self = *current;
    self.body(self.argument);
    self.over = true;
    __sanitizer_start_switch_fiber(nullptr, scheduler_stack, scheduler_stack_size);
    setcontext(&scheduler);
}

void resume(fiber& one)
{
    void* fake = nullptr;
    current = &one;
    __sanitizer_start_switch_fiber(&fake, one.stack, stack_size);
    swap(&scheduler, &one.context);
    __sanitizer_finish_switch_fiber(fake, nullptr, nullptr);
    current = nullptr;
}

void leave()
{
    fiber& self = *current;
    __sanitizer_start_switch_fiber(&self.fake_stack, scheduler_stack, scheduler_stack_size);
    swap(&self.context, &scheduler);
    __sanitizer_finish_switch_fiber(self.fake_stack, &scheduler_stack, &scheduler_stack_size);
}

bool is_ready(const fiber& one)
{
    return one.wake_us <= clock_us ||
           (one.waits_for != nullptr && __real_poll(one.waits_for, one.waits_count, 0) > 0);
}

void bury()
{
    for (auto one = all.begin(); one != all.end();) {
        if (!one->over) {
            ++one;
            continue;
        }
        stacks.push_back(one->stack);
        one = all.erase(one);
    }
}

// Whoever is ready, and what the far end does of it; then the clock goes on to the next.
void run_until(std::int64_t until)
{
    int steps = 0;
    std::int64_t second = clock_us / 1000000;
    for (;;) {
        if (other_end.step)
            other_end.step();
        bool went = false;
        for (fiber& one : all)
            if (!one.over && is_ready(one)) {
                went = true;
                resume(one);
            }
        bury();
        if (clock_us / 1000000 != second) {
            second = clock_us / 1000000;
            steps = 0;
        }
        require(++steps < most_steps_a_second, "a thread goes on without a wait");
        if (went)
            continue;
        std::int64_t next = other_end.next_us ? other_end.next_us() : INT64_MAX;
        for (const fiber& one : all)
            next = std::min(next, one.wake_us);
        if (next > until)
            break;
        clock_us = std::max(clock_us, next);
    }
    clock_us = std::max(clock_us, until);
}

void wait_us(std::int64_t us)
{
    require(!kelo::diag_holds_back(), "a lock is held over a wait");
    if (current == nullptr)
        return run_until(clock_us + us);
    current->wake_us = clock_us + us;
    leave();
}

int wait_for(pollfd* fds, nfds_t count, int ms)
{
    const int now = __real_poll(fds, count, 0);
    if (now != 0 || ms == 0)
        return now;
    const std::int64_t us = ms < 0 ? INT64_MAX / 2 : std::int64_t{1000} * ms;
    if (current == nullptr)
        return wait_us(us), __real_poll(fds, count, 0);
    current->waits_for = fds;
    current->waits_count = count;
    wait_us(us);
    current->waits_for = nullptr;
    return __real_poll(fds, count, 0);
}

void start(void* (*body)(void*), void* argument)
{
    fiber& one = all.emplace_back();
    if (stacks.empty()) {
        void* const made = mmap(nullptr, stack_size, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        REQUIRE(made != MAP_FAILED);
        stacks.push_back(made);
    }
    one.stack = stacks.back();
    stacks.pop_back();
    __asan_unpoison_memory_region(one.stack, stack_size);
    one.body = body;
    one.argument = argument;
    one.wake_us = clock_us;
    getcontext(&one.context);
    one.context.uc_stack.ss_sp = one.stack;
    one.context.uc_stack.ss_size = stack_size;
    one.context.uc_link = nullptr;
    makecontext(&one.context, fiber_body, 0);
}

void* noted(void* made)
{
    if (inside && made != nullptr)
        heap.insert(made);
    return made;
}

} // namespace

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

void remember()
{
    find_variables();
    for (memory_range& one : variables)
        copy_bytes(one.copy.data(), one.begin, one.size);
}

void run(const std::function<void()>& body)
{
    for (const memory_range& one : variables)
        copy_bytes(one.begin, one.copy.data(), one.size);
    clock_us = 0;
    chance = 1;
    inside = true;
    body();
    inside = false;
    require(all.empty(), "every thread has ended");
    set_far_end({});
    // The library's own end of a port that is left open, too.
    for (const memory_range& one : variables)
        copy_bytes(one.begin, one.copy.data(), one.size);
    for (void* const left : heap)
        __real_free(left);
    heap.clear();
}

std::int64_t now_us()
{
    return clock_us;
}

void pass_time(std::int64_t us)
{
    wait_us(us);
}

int fibers()
{
    return static_cast<int>(all.size());
}

void set_far_end(const far_end& other)
{
    other_end = other;
}

void set_port(int end)
{
    port_end = end;
}

} // namespace fuzz_world

using namespace fuzz_world;

extern "C" {

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument)
{
    if (!inside)
        return __real_pthread_create(thread, attributes, body, argument);
    start(body, argument);
    return 0;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    if (!inside)
        return __real_pthread_mutex_lock(mutex);
    for (int tries = 0; pthread_mutex_trylock(mutex) != 0; tries++) {
        require(tries < 600000, "a lock is let go of");
        wait_us(1000);
    }
    return 0;
}

int __wrap_pthread_setname_np(pthread_t thread, const char* name)
{
    return inside ? 0 : __real_pthread_setname_np(thread, name);
}

int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* time)
{
    if (!inside || count != 0 || time == nullptr)
        return __real_select(count, in, out, other, time);
    wait_us(std::int64_t{1000000} * time->tv_sec + time->tv_usec);
    return 0;
}

int __wrap_poll(pollfd* fds, nfds_t count, int ms)
{
    return inside ? wait_for(fds, count, ms) : __real_poll(fds, count, ms);
}

int __wrap_usleep(useconds_t us)
{
    if (!inside)
        return __real_usleep(us);
    wait_us(us);
    return 0;
}

time_t __wrap_time(time_t* place)
{
    if (!inside)
        return __real_time(place);
    return static_cast<time_t>((start_us + clock_us) / 1000000);
}

int __wrap_open(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list more;
        va_start(more, flags);
        mode = va_arg(more, mode_t);
        va_end(more);
    }
    if (!inside)
        return __real_open(path, flags, mode);
    if (std::strcmp(path, port_path) == 0 && (flags & O_RDWR) != 0) {
        errno = ENOENT;
        return port_end < 0 ? -1 : fcntl(port_end, F_DUPFD_CLOEXEC, 3);
    }
    // Nothing is written but to the port.
    return __real_open((flags & (O_WRONLY | O_RDWR)) != 0 ? "/dev/null" : path,
                       flags & ~(O_CREAT | O_EXCL | O_TRUNC));
}

int __wrap_access(const char* path, int mode)
{
    if (!inside || std::strcmp(path, port_path) != 0)
        return __real_access(path, mode);
    errno = ENOENT;
    return port_end < 0 ? -1 : 0;
}

int __wrap_inotify_init1(int flags)
{
    return inside ? -1 : __real_inotify_init1(flags);
}

int __wrap_posix_spawn(pid_t* process, const char* path, const void* actions,
                       const void* attributes, char* const* arguments, char* const* environment)
{
    return inside ? ENOENT
                  : __real_posix_spawn(process, path, actions, attributes, arguments, environment);
}

ssize_t __wrap_getrandom(void* bytes, std::size_t size, unsigned flags)
{
    if (!inside)
        return __real_getrandom(bytes, size, flags);
    for (std::size_t i = 0; i < size; i++) {
        chance = chance * 1103515245 + 12345;
        static_cast<unsigned char*>(bytes)[i] = static_cast<unsigned char>(chance >> 16);
    }
    return static_cast<ssize_t>(size);
}

void* __wrap_malloc(std::size_t size)
{
    return noted(__real_malloc(size));
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return noted(__real_calloc(count, size));
}

void* __wrap_realloc(void* old, std::size_t size)
{
    if (inside)
        heap.erase(old);
    return noted(__real_realloc(old, size));
}

char* __wrap_strdup(const char* text)
{
    return static_cast<char*>(noted(__real_strdup(text)));
}

void __wrap_free(void* old)
{
    if (inside)
        heap.erase(old);
    __real_free(old);
}

std::int64_t __wrap__ZN4kelo12monotonic_msEv()
{
    return inside ? 1000000 + clock_us / 1000 : __real__ZN4kelo12monotonic_msEv();
}

std::int64_t __wrap__ZN4kelo14time_of_day_usEv()
{
    return inside ? start_us + clock_us : __real__ZN4kelo14time_of_day_usEv();
}

bool __wrap__ZN4kelo14on_mobile_taskEv()
{
    if (!inside)
        return __real__ZN4kelo14on_mobile_taskEv();
    return current != nullptr && current->body == kelo::corvel_mobile_dchannel;
}

} // extern "C"
