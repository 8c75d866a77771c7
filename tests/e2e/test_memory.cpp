// SPDX-License-Identifier: MIT
// Memory that is refused to the library, at one of its calls after another.
#include "tests/e2e/story.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
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

// The calls that come from one return address.
struct place {
    const void* address;
    int calls;
};

// Of a place, or of all together, the first call that is refused and which ones behind it.
struct refusals {
    bool armed;
    const void* address; // null: all
    int first;
    int step; // 0: no further one
    int refused;
    place places[128]; // the first one counts all
};
refusals* plan; // shared with the process that made this one

// Memory is asked for, too, by what a sanitizer can't watch: itself, and threads that are not yet
// or no more whole. So none of this calls a function that is watched, not even those of
// std::atomic.
#define UNWATCHED __attribute__((no_sanitize("address"), no_sanitize("thread")))

UNWATCHED int counted(int& count)
{
    return __atomic_add_fetch(&count, 1, __ATOMIC_RELAXED);
}

UNWATCHED bool refuse(const void* caller)
{
    if (plan == nullptr || !__atomic_load_n(&plan->armed, __ATOMIC_RELAXED) || !in_library(caller))
        return false;
    int call = counted(plan->places[0].calls);
    for (int i = 1; i < 128; i++) {
        const void* before = nullptr;
        if (!__atomic_compare_exchange_n(&plan->places[i].address, &before, caller, false,
                                         __ATOMIC_RELAXED, __ATOMIC_RELAXED) &&
            before != caller)
            continue;
        const int own = counted(plan->places[i].calls);
        call = plan->address == nullptr ? call : plan->address == caller ? own : 0;
        break;
    }
    const int behind = call - plan->first;
    if (behind < 0 || (behind > 0 && (plan->step == 0 || behind % plan->step != 0)))
        return false;
    counted(plan->refused);
    errno = ENOMEM;
    return true;
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

class Memory : public Story
{
  public:
    Memory()
    {
        void* const shared = mmap(nullptr, sizeof(refusals), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        plan = new (shared) refusals{};
    }
    // Walks in a process of its own, where these calls are refused. A crash, a hang and a failed
    // expectation of the walk are told with all that the library said, which `said` looks at.
    void walk(void (Memory::*story)(), const void* address, int first, int step,
              const testing::Matcher<const std::string&>& said = testing::_)
    {
        plan->address = address;
        plan->first = first;
        plan->step = step;
        plan->refused = 0;
        for (place& one : plan->places)
            one.calls = 0;
        Dl_info info = {};
        dladdr(address, &info); // addr2line takes the distance to the begin of the library
        EXPECT_EXIT(in_child(story), testing::ExitedWithCode(0), said)
            << "call " << first << ", step " << step << ", of libkelo.so + "
            << static_cast<const char*>(address) - static_cast<const char*>(info.dli_fbase);
    }
    // A message in two parts: queued whole, or not at all.
    void send_alone()
    {
        const std::string text(161, 'a');
        arm(true);
        const int result =
            libgsm_send_sms_from_buffer("tag", "+4915112345678", 0, text.data(), 161);
        arm(false);
        int queued = 0;
        for (; sms_outbox_item* const item = sms_outbox_deq(); queued++)
            sms_outbox_free(item);
        EXPECT_EQ(queued, result == 0 ? 2 : 0);
        if (result == -1)
            std::fputs("nothing is queued", stderr);
        expect_no_lock_is_held();
    }
    // A start, a message out and a message in; then, with memory again, what a host does next.
    void start_out_and_in()
    {
        pace = 2 * quick;
        plug("EC25", {{"cmgs_ms", "10"}});
        arm(true);
        cellular_gsm_init(0);
        cellular_start(0);
        modem.wait_for("AT+COPS?", within(1500ms));
        libgsm_send_sms_from_buffer("tag", "+4915112345678", 0, "Door 3 open", 11);
        eventually([&] { return modem.sent_messages().size() == 1; }, within(700ms));
        modem.report("+CMT: ,30\n0791947101670000040D91945111325476F80000425071900321800BC4F75B0E9A"
                     "81DEF0B21B");
        eventually([] { return cellular_is_sms_received() == 1; }, within(300ms));
        arm(false);

        stop();
        EXPECT_EQ(cellular_start(0), 0);
        EXPECT_SOON(libgsm_send_at("AT+HELLO") == 0);
        EXPECT_TRUE(wire("AT+HELLO", 2s));
        expect_no_lock_is_held();
        stop();
    }

  private:
    static void arm(bool on) { __atomic_store_n(&plan->armed, on, __ATOMIC_SEQ_CST); }
    // Calls that take each of the locks come back.
    void expect_no_lock_is_held()
    {
        record();
        EXPECT_EQ(cellular_reload(), 0);
        EXPECT_EQ(sms_outbox_enq(1, "tag", "+4915112345678", 4, "text"), 0);
    }
    [[noreturn]] void in_child(void (Memory::*story)())
    {
        alarm(sanitized ? 120 : 40);
        dup2(2, 1);
        (this->*story)();
        const testing::TestResult& result =
            *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result.total_part_count(); i++)
            std::fputs(result.GetTestPartResult(i).message(), stderr);
        std::fflush(nullptr);
        _exit(HasFailure());
    }
};

class MemoryOfARun : public Memory, public testing::WithParamInterface<std::size_t>
{
};

} // namespace

// Catches: half a message in the outbox, and one that is refused without a word.
TEST_F(Memory, RefusedToAMessageAtItsNthCall)
{
    using testing::HasSubstr;
    const testing::Matcher<const std::string&> none = HasSubstr("nothing is queued");
    const testing::Matcher<const std::string&> line = HasSubstr("no memory for");
    int n = 0;
    do
        walk(&Memory::send_alone, nullptr, ++n, 0,
             AnyOf(AllOf(none, line), Not(AnyOf(none, line))));
    while (plan->refused > 0 && !HasFailure());
    EXPECT_GT(n, 2 * 4) << "calls for the parts";
}

// Catches: a crash, or a lock that stays taken, in a whole run, at each place that asks for memory:
// its first call, each third and every one. The places are shared out among the cases.
TEST_P(MemoryOfARun, RefusedAtEachPlace)
{
    walk(&Memory::start_out_and_in, nullptr, INT_MAX, 0); // nothing is refused
    std::vector<std::pair<const void*, int>> places;
    for (const place& one : plan->places)
        if (one.address != nullptr)
            places.emplace_back(one.address, one.calls);
    std::sort(places.begin(), places.end());
    EXPECT_GT(places.size(), 10u);
    for (std::size_t i = GetParam(); i < places.size(); i += 8) {
        const auto [address, calls] = places[i];
        for (const auto& [first, step] : {std::pair(1, 0), {3, 3}, {1, 1}})
            if (calls >= 3 || step == 1) {
                walk(&Memory::start_out_and_in, address, first, step);
                EXPECT_GT(plan->refused, 0);
            }
    }
}

INSTANTIATE_TEST_SUITE_P(Share, MemoryOfARun, testing::Range<std::size_t>(0, 8));
