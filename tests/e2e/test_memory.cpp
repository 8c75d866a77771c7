// Memory that is refused to the library, at one of its calls after another.
#include "tests/e2e/story.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define REAL(name) __interceptor_##name // of the sanitizer, which watches its own
#else
#define REAL(name) __libc_##name
#endif
extern "C" {
void* REAL(malloc)(std::size_t size);
void* REAL(calloc)(std::size_t count, std::size_t size);
void* REAL(realloc)(void* old, std::size_t size);
}

using namespace kelo_story;

namespace
{

// Which calls of which place are refused. A place is the return address of its calls.
enum class which { first, third, every };
constexpr const char* which_names[] = {"the first call", "each third call", "every call"};

struct place {
    std::atomic<std::uintptr_t> address;
    std::atomic<int> calls;
};

struct refusals {
    std::atomic<bool> armed;
    std::uintptr_t address; // 0: by number, of all places together
    int number;
    which calls;
    std::atomic<int> all;
    std::atomic<int> refused;
    std::array<place, 128> places;
};
refusals* plan; // shared with the process that made this one

bool count_call(const void* caller)
{
    if (!plan->armed || !in_library(caller))
        return false;
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    const int number = ++plan->all;
    bool hit = plan->address == 0 && number == plan->number;
    for (place& one : plan->places) {
        std::uintptr_t before = 0;
        if (!one.address.compare_exchange_strong(before, address) && before != address)
            continue;
        const int count = ++one.calls;
        if (address == plan->address)
            hit = plan->calls == which::every || (plan->calls == which::first && count == 1) ||
                  (plan->calls == which::third && count % 3 == 0);
        break;
    }
    if (!hit)
        return false;
    plan->refused++;
    errno = ENOMEM;
    return true;
}

// A sanitizer asks for memory itself, before it can watch anything.
#define UNWATCHED __attribute__((no_sanitize("address"), no_sanitize("thread")))

UNWATCHED bool refuse(const void* caller)
{
    return plan != nullptr && count_call(caller);
}

} // namespace

extern "C" {

UNWATCHED void* malloc(std::size_t size)
{
    return refuse(__builtin_return_address(0)) ? nullptr : REAL(malloc)(size);
}

UNWATCHED void* calloc(std::size_t count, std::size_t size)
{
    return refuse(__builtin_return_address(0)) ? nullptr : REAL(calloc)(count, size);
}

UNWATCHED void* realloc(void* old, std::size_t size)
{
    return refuse(__builtin_return_address(0)) ? nullptr : REAL(realloc)(old, size);
}

UNWATCHED char* strdup(const char* text)
{
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = refuse(__builtin_return_address(0)) ? nullptr : REAL(malloc)(size);
    return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}
}

namespace
{

// The place as addr2line takes it.
std::string name_of(std::uintptr_t address)
{
    Dl_info info = {};
    dladdr(reinterpret_cast<void*>(address), &info);
    std::ostringstream name;
    name << "libkelo.so 0x" << std::hex
         << address - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
    return name.str();
}

// What a child found wrong, one bit each.
enum fault : int {
    no_stop = 1,
    no_start = 2,
    silent_port = 4,
    no_copy = 8,
    no_reload = 16,
    no_outbox = 32,
};

// Runs `story` in a process of its own. Its faults; 256 when it has crashed; 512 when it hangs.
int in_a_process(int (*story)(), std::string* said = nullptr)
{
    char output[] = "/tmp/kelo-memory-XXXXXX";
    const int file = mkstemp(output);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(file, 1);
        dup2(file, 2);
        in_library(nullptr);
        _exit(story());
    }
    int status = 0;
    if (!eventually([&] { return waitpid(child, &status, WNOHANG) == child; }, within(40s))) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        status = -1;
    }
    std::ostringstream text;
    text << std::ifstream(output).rdbuf();
    if (said != nullptr)
        *said = text.str();
    close(file);
    unlink(output);
    if (status == -1)
        return 512;
    return WIFEXITED(status) && WEXITSTATUS(status) < 64 ? WEXITSTATUS(status) : 256;
}

class Memory : public testing::Test
{
  protected:
    Memory()
    {
        void* const shared = mmap(nullptr, sizeof(refusals), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        plan = new (shared) refusals{};
    }
    // The next process is refused these.
    static void refuse_next(std::uintptr_t address, which calls, int number = 0)
    {
        plan->address = address;
        plan->calls = calls;
        plan->number = number;
        plan->all = plan->refused = 0;
        for (place& one : plan->places)
            one.calls = 0;
    }
};

class MemoryOfARun : public Memory, public testing::WithParamInterface<int>
{
};

// No lock is held: calls that take each of them come back.
int locks_are_free()
{
    gsm_mobile copy = {};
    return (kelo_copy_mobile(&copy) == 1 ? 0 : no_copy) | (cellular_reload() == 0 ? 0 : no_reload) |
           (sms_outbox_enq(1, "tag", "+4915112345678", 4, "text") == 0 ? 0 : no_outbox);
}

int init_alone()
{
    plan->armed = true;
    cellular_gsm_init(0);
    plan->armed = false;
    return locks_are_free();
}

// A message in two parts: queued whole, or not at all.
int send_alone()
{
    const std::string text(161, 'a');
    plan->armed = true;
    const int result = libgsm_send_sms_from_buffer("tag", "+4915112345678", 0, text.data(), 161);
    plan->armed = false;
    int queued = 0;
    for (; sms_outbox_item* const item = sms_outbox_deq(); queued++)
        sms_outbox_free(item);
    if (result == -1)
        std::puts("nothing is queued");
    return (queued == (result == 0 ? 2 : 0) ? 0 : no_outbox) | locks_are_free();
}

// A start, a message out and a message in; then, with memory again, what a host does next.
int start_out_and_in()
{
    set_pace(2 * quick);
    kelo_emulator::emulated_modem modem;
    kelo_emulator::modem_options options;
    options.model = "EC25";
    options.port = "/dev/ttyUSB2";
    options.variables = {{"cmgs_ms", "10"}};
    if (modem.start(options) != "")
        return no_start;
    plan->armed = true;
    cellular_gsm_init(0);
    cellular_start(0);
    modem.wait_for("AT+COPS?", within(1500ms));
    libgsm_send_sms_from_buffer("tag", "+4915112345678", 0, "Door 3 open", 11);
    eventually([&] { return modem.sent_messages().size() == 1; }, within(700ms));
    modem.report("+CMT: ,30\n"
                 "0791947101670000040D91945111325476F80000425071900321800BC4F75B0E9A81DEF0B21B");
    eventually([] { return cellular_is_sms_received() == 1; }, within(300ms));
    plan->armed = false;

    int faults = cellular_stop() == 0 ? 0 : no_stop;
    faults |= cellular_start(0) == 0 ? 0 : no_start;
    if (!eventually([] { return libgsm_send_at("AT+HELLO") == 0; }, within(2s)) ||
        !modem.wait_for("AT+HELLO", within(2s)))
        faults |= silent_port;
    faults |= locks_are_free();
    return faults | (cellular_stop() == 0 ? 0 : no_stop);
}

} // namespace

// Catches: a crash, or a lock that stays taken, when the n-th call for memory of an init fails.
TEST_F(Memory, RefusedToAnInitAtItsNthCall)
{
    int n = 1;
    for (;; n += n < 300 ? 1 : 7) {
        refuse_next(0, which::first, n);
        ASSERT_EQ(in_a_process(init_alone), 0) << "at call " << n;
        if (plan->refused == 0)
            break;
    }
    EXPECT_GT(n, 100);
}

// Catches: half a message in the outbox, and one that is refused without a word.
TEST_F(Memory, RefusedToAMessageAtItsNthCall)
{
    std::string said;
    int refused = 0;
    do {
        refuse_next(0, which::first, ++refused);
        ASSERT_EQ(in_a_process(send_alone, &said), 0) << "at call " << refused << "\n" << said;
        EXPECT_EQ(said.find("nothing is queued") == said.npos,
                  said.find("no memory for") == said.npos)
            << said;
    } while (plan->refused != 0);
    EXPECT_GT(refused, 2 * 4) << "calls for the parts";
}

// Catches: the same in a whole run, at each place that asks for memory: its first call, each third
// and every one. The places are shared out among the cases.
TEST_P(MemoryOfARun, RefusedAtEachPlace)
{
    refuse_next(0, which::first);
    std::string said;
    ASSERT_EQ(in_a_process(start_out_and_in, &said), 0) << said;
    std::vector<std::pair<std::uintptr_t, int>> places;
    for (const place& one : plan->places)
        if (one.address != 0)
            places.emplace_back(one.address, one.calls);
    std::sort(places.begin(), places.end());
    EXPECT_GT(places.size(), 10u);
    for (std::size_t i = 0; i < places.size(); i++) {
        if (static_cast<int>(i % 8) != GetParam())
            continue;
        for (const which calls : {which::first, which::third, which::every}) {
            if (calls != which::every && places[i].second < 3)
                continue;
            refuse_next(places[i].first, calls);
            EXPECT_EQ(in_a_process(start_out_and_in, &said), 0)
                << which_names[static_cast<int>(calls)] << " of " << name_of(places[i].first)
                << "\n"
                << said;
            EXPECT_GT(plan->refused, 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Share, MemoryOfARun, testing::Range(0, 8));
