// SPDX-License-Identifier: MIT
// What gets into a record, and what becomes of its file.
#include "emulator/record_line.h"
#include "host/log/record.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kelo_host;

namespace
{

std::string content(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// `#` is any digit.
void expect_form(const std::string& text, const std::string& form, const std::string& original)
{
    ASSERT_EQ(text.size(), form.size()) << text;
    std::string digits = text;
    for (size_t at = 0; at < form.size(); at++)
        if (form[at] == '#' && text[at] >= '0' && text[at] <= '9')
            digits[at] = '#';
    EXPECT_EQ(digits, form);
    EXPECT_NE(text, original);
}

kelo_port_event event(kelo_port_happening what, std::string_view bytes, long long ms)
{
    return {sizeof(kelo_port_event), what, ms * 1000000, 0, bytes.data(), bytes.size(), 0};
}

} // namespace

// Catches: a record that tells who the subscriber is, what he was sent or how to unlock the SIM,
// and one that plays back a modem which is understood otherwise. `>` the host wrote it, `<` the
// modem said it, `|` it was cut there.
TEST(Record, HidesWhatIsPrivateAndKeepsItsShape)
{
    const std::tuple<std::string, std::string> rows[] = {
        {">AT+CPIN=\"1234\"\r\n", "AT+CPIN=*\r\n"},
        {"<AT+CPIN=\"1234\"\r\r\nOK\r\n", "AT+CPIN=\"*\"\r\r\nOK\r\n"},
        {">AT+QICSGP=1,1,\"a\",\"u\",\"p\",1\r\n", "AT+QICSGP=1,1,*\r\n"},
        {"<+QICSGP: 1,1,\"a\",\"u\",\"p\",1\r\n", "+QICSGP: 1,1,\"*\",\"*\",\"*\",*\r\n"},
        {"<262011234567890\r\n\r\nOK\r\n", "262011#########\r\n\r\nOK\r\n"},
        {"<+QCCID: 8949020000123456789F\r\n", "+QCCID: 894902#############F\r\n"},
        {"<+CNUM: \"Me\",\"+4915112345678\",145\r\n", "+CNUM: \"xx\",\"+#############\",145\r\n"},
        {"<+CREG: 2,1,\"1A2B\",\"0123ABCD\",7\r\n", "+CREG: 2,1,\"1A2B\",\"0123ABCD\",7\r\n"},
        {"<^SYSCFGEX:\"02\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF\r\n",
         "^SYSCFGEX:\"02\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF\r\n"},
        {"<+QGPSLOC: 180203.0,48.1\r\n", "+QGPSLOC: ######.#,##.#\r\n"},
        // a message comes: how it is read stays, its numbers and its text do not
        {"<\r\n+CMT: "
         ",27\r\n0791947122722102040B919471214365F700006211221281954005E8329BFD06\r\n+CREG: 2\r\n",
         "\r\n+CMT: "
         ",27\r\n0791############040B91##########F#000062112212819540052020202020\r\n+CREG: 2\r\n"},
        {"<+CMT: \"+491511\",,\"26/11/25\"\r\nat 7, code 1234\r\n",
         "+CMT: \"+######\",,\"##/##/##\"\r\nxx #, xxxx ####\r\n"},
        // one goes out, and its echo
        {">AT+CMGS=24\r\n", "AT+CMGS=24\r\n"},
        {"<> |", "> "},
        {">0011000B91\x1a\r\n", "*\x1a\r\n"},
        {"<0011000B91\x1a\r\n+CMGS: 5\r\n\r\nOK\r\n", "#######x##\x1a\r\n+CMGS: 5\r\n\r\nOK\r\n"},
        // a file
        {">AT+QFUPL=\"key.pem\",8,100\r\n", "AT+QFUPL=\"key.pem\",8,100\r\n"},
        {">AT\nkey", "******"},
        {">\n\n\r\n", "****"},
        {">AT+CSQ\r\n", "AT+CSQ\r\n"},
        {">-----BEGIN", "**********"},
        // a line that could not be waited for
        {"<26201123|", "########"},
        {"<4567890\r\nRDY\r\n", "#######\r\nRDY\r\n"},
        {"<\x1b|", "\x1b"},
        {"<\r\nRDY\r\n", "\r\nRDY\r\n"},
    };
    port_mask mask(false, 7), open(true, 7);
    for (const auto& [row, form] : rows) {
        SCOPED_TRACE(row);
        const bool cut = row.ends_with('|');
        const std::string bytes = row.substr(1, row.size() - 1 - cut);
        const bool of_host = row[0] == '>';
        expect_form(of_host ? mask.written(bytes) : mask.read(bytes, cut), form,
                    form.find_first_of("#*") == std::string::npos ? "" : bytes);
        const std::string shown = of_host ? open.written(bytes) : open.read(bytes, cut);
        const bool secret = row.find("CPIN=") != row.npos || row.find("QICSGP") != row.npos ||
                            form.starts_with("**");
        EXPECT_TRUE(shown == (secret ? form : bytes) || row.starts_with("<4567890")) << shown;
    }
    EXPECT_EQ(mask.read("+4915112345678\r\n", false), mask.read("+4915112345678\r\n", false));
}

// Catches: a file that others may read, grows for good, loses the end of a line that never ends, or
// a full disk that is not told, or told for ever.
TEST(Record, ItsFile)
{
    const std::string folder = std::filesystem::temp_directory_path() / "kelo-record";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    const record_options options = {
        .path = folder + "/log", .most_bytes = 600, .show_private = true};
    EXPECT_NE(recorder({.path = folder}).open(), "");
    std::ofstream(options.path) << "    1.000 << AT+C"; // a loss of power
    chmod(options.path.c_str(), 0600);
    long long begun = 0;
    {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        begun = now.tv_sec * 1000 + now.tv_nsec / 1000000;
        recorder one(options);
        ASSERT_EQ(one.open(), "");
        one.take(event(KELO_PORT_OPENED, "/dev/x", begun + 5));
        one.take(event(KELO_PORT_WRITTEN, "AT\r\n", begun + 10));
        one.take(event(KELO_PORT_READ, "AT\r\r\nO", begun + 20));
        one.take(event(KELO_PORT_READ, "K\r\n> ", begun + 1000));
        EXPECT_EQ(one.pass((begun + 1200) * 1000000), "");
        EXPECT_EQ(content(options.path).find("<< > "), std::string::npos);
        one.pass((begun + 1600) * 1000000);
        const std::string text = content(options.path);
        EXPECT_EQ(text.find("    1.000 << AT+C\n# kelo-record 1 "), 0u) << text;
        std::string lines;
        std::istringstream in(text.substr(text.find(" model ")));
        for (std::string line; std::getline(in, line);)
            if (const auto parsed = kelo_record::parse_line(line))
                lines += line.substr(10) + "|";
        EXPECT_EQ(lines, "-- open /dev/x|>> AT\\r\\n|<< AT\\r\\r\\n|<< OK\\r\\n|<< > |");
        for (int i = 0; i < 100; i++)
            one.take(event(KELO_PORT_WRITTEN, "AT+CSQ\r\n", begun + 2000));
    }
    for (const char* name : {"/log", "/log.1"}) {
        struct stat info = {};
        ASSERT_EQ(stat((folder + name).c_str(), &info), 0) << name;
        EXPECT_LE(info.st_size, 700) << name;
        EXPECT_EQ(info.st_mode & 0777, 0600u) << name;
        EXPECT_EQ(content(folder + name).find("# kelo-record 1 "), 0u) << name;
    }

    recorder full(options);
    ASSERT_EQ(full.open(), "");
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {static_cast<rlim_t>(std::filesystem::file_size(options.path)) + 10,
                          RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &small);
    for (int i = 0; i < 2; i++)
        full.take(event(KELO_PORT_WRITTEN, "AT+CSQ\r\n", begun));
    const rlimit again = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &again);
    EXPECT_EQ(full.pass(0), options.path + ": the record ends here: File too large");
    EXPECT_EQ(full.pass(0), "");
    std::filesystem::remove_all(folder);
}
