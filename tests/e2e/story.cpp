#include "tests/e2e/story.h"

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <poll.h>
#include <sstream>
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
    DIR* const folder = opendir("/proc/self/task");
    std::int64_t result = -1;
    while (const dirent* const entry = readdir(folder)) {
        std::string found;
        std::getline(std::ifstream(std::string("/proc/self/task/") + entry->d_name + "/comm"),
                     found);
        // Linux: the CPU clock of a thread is made of its number.
        timespec time = {};
        if (found == name &&
            clock_gettime(static_cast<clockid_t>(~std::atoi(entry->d_name) * 8 | 6), &time) == 0)
            result = time.tv_sec * 1000000LL + time.tv_nsec / 1000;
    }
    closedir(folder);
    return result;
}

bare_port::bare_port(const std::string& path)
    : path_(path), master_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    char name[64] = "";
    EXPECT_EQ(grantpt(master_) | unlockpt(master_) | ptsname_r(master_, name, sizeof name), 0);
    EXPECT_EQ(symlink(name, path.c_str()), 0);
    // So that what is heard does not show in the heap; until the library opens the port, that is
    // all that was said.
    heard_.reserve(1 << 24);
    thread_ = std::thread([this] { run(); });
}

bare_port::~bare_port()
{
    stop_ = true;
    thread_.join();
    close(master_);
    unlink(path_.c_str());
}

void bare_port::talk(const std::string& block, milliseconds pause)
{
    const std::lock_guard lock(mutex_);
    block_ = block;
    pause_ = pause;
}

void bare_port::run()
{
    std::string block;
    milliseconds pause = 0ms;
    block.reserve(1 << 17);
    for (std::size_t done = 0; !stop_;) {
        char bytes[4096];
        const ssize_t got = read(master_, bytes, sizeof bytes);
        {
            const std::lock_guard lock(mutex_);
            heard_.append(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
            if (done == block.size()) {
                done = 0;
                block = block_;
                pause = pause_;
            }
        }
        const ssize_t put = write(master_, block.data() + done, block.size() - done);
        done += put > 0 ? static_cast<std::size_t>(put) : 0;
        if (put <= 0)
            usleep(2000); // full, silent, or nobody at the other end yet
        if (done == block.size())
            std::this_thread::sleep_for(pause);
    }
}

bool bare_port::hears(const std::string& text, milliseconds limit)
{
    return eventually(
        [&] {
            const std::lock_guard lock(mutex_);
            return heard_.find(text) != std::string::npos;
        },
        limit);
}

void Story::SetUp()
{
    set_pace(quick);
    char path[] = "/tmp/kelo-story-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    output_path_ = path;
    std::fflush(nullptr);
    stdout_ = dup(1);
    stderr_ = dup(2);
    dup2(file, 1);
    dup2(file, 2);
    close(file);
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
    unlink(output_path_.c_str());
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
    if (std::getenv("KELO_STORY_DEBUG") != nullptr)
        set_5g_debug(1);
    ASSERT_EQ(cellular_gsm_init(static_cast<unsigned char>(libgsm_is_low_power())), 0);
    ASSERT_EQ(cellular_start(libgsm_is_low_power()), 0);
}

milliseconds Story::stop()
{
    return time_of([] { EXPECT_EQ(cellular_stop(), 0); });
}

void Story::start_and_come_to_rest()
{
    constexpr int mqtt_query = 106; // the last command of an unknown module; ends by its time alone
    change(mqtt_query, 1);
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
    std::ostringstream text;
    text << std::ifstream(output_path_).rdbuf();
    return text.str();
}

bool Story::says(const std::string& text, milliseconds limit) const
{
    return eventually([&] { return said().find(text) != std::string::npos; }, limit);
}

std::size_t Story::count_said(const std::string& text) const
{
    const std::string all = said();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = all.find(text, at)) != std::string::npos; at++)
        count++;
    return count;
}

std::vector<std::pair<monotonic_clock::time_point, std::string>> Story::command_times() const
{
    std::vector<std::pair<monotonic_clock::time_point, std::string>> times;
    for (const kelo_emulator::log_entry& entry : modem.log())
        if (entry.from == kelo_emulator::speaker::host && entry.bytes.size() > 1)
            times.emplace_back(entry.time, entry.bytes.substr(0, entry.bytes.size() - 1));
    return times;
}

milliseconds Story::gap_behind(const std::string& command) const
{
    const auto times = command_times();
    for (std::size_t i = 0; i + 1 < times.size(); i++)
        if (times[i].second == command)
            return std::chrono::duration_cast<milliseconds>(times[i + 1].first - times[i].first);
    ADD_FAILURE() << "nothing behind " << command;
    return {};
}

} // namespace kelo_story
