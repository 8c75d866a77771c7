// SPDX-License-Identifier: MIT
#include "tests/e2e/story.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // gcc has no header for it
#endif

namespace kelo_story
{

bool eventually(const std::function<bool()>& test, milliseconds limit)
{
    const monotonic_clock::time_point end = monotonic_clock::now() + limit;
    while (!test()) { // asked once a look: a test may take what it finds
        if (monotonic_clock::now() >= end)
            return false;
        usleep(5000);
    }
    return true;
}

milliseconds since(monotonic_clock::time_point start)
{
    return std::chrono::duration_cast<milliseconds>(monotonic_clock::now() - start);
}

std::string text_of(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

line_list words(const std::string& text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::size_t count_of(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++)
        count++;
    return count;
}

std::size_t heap_bytes()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

std::int64_t thread_cpu_us(const char* name)
{
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        // Linux: the CPU clock of a thread is made of its number.
        const int number = std::stoi(task.path().filename());
        timespec time = {};
        if (text_of(task.path() / "comm") == name + std::string("\n") &&
            clock_gettime(static_cast<clockid_t>(~number * 8 | 6), &time) == 0)
            return time.tv_sec * 1000000LL + time.tv_nsec / 1000;
    }
    return -1;
}

void Story::SetUp()
{
    pace = quick;
    std::fflush(nullptr);
    stdout_ = dup(1);
    stderr_ = dup(2);
    output_ = memfd_create("said", MFD_CLOEXEC);
    dup2(output_, 1);
    dup2(output_, 2);
}

void Story::TearDown()
{
    // A restart that a report asked for may still be on its way.
    EXPECT_TRUE(eventually([] { return word(cell_repower_lock) == 0 && cellular_stop() == 0; },
                           within(10s)));
    modem.stop();
    std::fflush(nullptr);
    dup2(stdout_, 1);
    dup2(stderr_, 2);
    if (HasFailure()) {
        std::fwrite(said().data(), 1, said().size(), stdout);
        for (const std::string& command : modem.commands())
            std::printf("on the wire: %s\n", command.c_str());
    }
    close(output_);
}

void Story::plug(const std::string& model, const std::map<std::string, std::string>& variables)
{
    kelo_emulator::modem_options options;
    options.model = model;
    options.port = port;
    options.variables = variables;
    const auto after = [](milliseconds told) { return std::to_string(real(told).count()); };
    options.variables.insert({{"report_gap_ms", after(100ms)}, // a modem as quick as the library
                              {"pin_ms", after(100ms)},
                              {"cfun_ms", after(100ms)},
                              {"cmgs_ms", after(300ms)},
                              {"mqtt_ms", after(200ms)},
                              {"reset_ms", after(1000ms)}});
    ASSERT_EQ(modem.start(options), "");
}

void Story::change(int id, int timeout, int ignore, const char* cmd, int seq)
{
    changes_.push_back(std::make_unique<at_config_item>(
        at_config_item{1, FLOW_START, id, ignore, timeout, seq, const_cast<char*>(cmd), {}}));
    list_add_tail(&changes_.back()->node, &cell_at_config_h);
}

void Story::start()
{
    ASSERT_EQ(cellular_gsm_init(static_cast<unsigned char>(libgsm_is_low_power())), 0);
    ASSERT_EQ(cellular_start(libgsm_is_low_power()), 0);
}

milliseconds Story::stop()
{
    const monotonic_clock::time_point begin = monotonic_clock::now();
    EXPECT_EQ(cellular_stop(), 0);
    return since(begin);
}

void Story::start_and_come_to_rest()
{
    constexpr int mqtt_query = 106; // the last command of an unknown module; ends by its time alone
    change(mqtt_query, 1);
    if (!modem.running())
        plug_unknown();
    start();
    ASSERT_TRUE(says("[id=106] -1 times remaining!", within(8s)));
    quiet(500ms); // the task finds no further command
}

// And a little more, which the machine needs at any pace.
void Story::quiet(milliseconds told)
{
    std::this_thread::sleep_for(real(told) + (sanitized ? 200ms : 50ms));
}

bool Story::wire(const std::string& pattern, milliseconds limit, std::size_t times)
{
    return modem.wait_for(pattern, within(limit), times);
}

gsm_mobile Story::record() const
{
    gsm_mobile copy = {};
    EXPECT_EQ(kelo_copy_mobile(&copy), 1);
    return copy;
}

std::string Story::said() const
{
    return text_of("/proc/self/fd/" + std::to_string(output_));
}

bool Story::says(const std::string& text, milliseconds limit) const
{
    return eventually([&] { return said().find(text) != std::string::npos; }, limit);
}

std::vector<std::pair<milliseconds, std::string>> Story::command_times() const
{
    std::vector<std::pair<milliseconds, std::string>> times;
    for (const kelo_emulator::log_entry& entry : modem.log())
        if (entry.from == kelo_emulator::speaker::host && entry.bytes.size() > 1)
            times.emplace_back(
                std::chrono::duration_cast<milliseconds>(entry.time.time_since_epoch()),
                entry.bytes.substr(0, entry.bytes.size() - 1));
    return times;
}

milliseconds Story::gap_behind(const std::string& command) const
{
    const auto times = command_times();
    for (std::size_t i = 0; i + 1 < times.size(); i++)
        if (times[i].second == command)
            return times[i + 1].first - times[i].first;
    ADD_FAILURE() << "nothing behind " << command;
    return {};
}

} // namespace kelo_story
