// SPDX-License-Identifier: MIT
// What clients send to kelo-host: to its control socket and to its HTTP pages, several at once, in
// whatever pieces. An input is a text, a line for each thing that happens; the first byte is who
// does it, 0 to 7 a client of the control socket, a to d one of the pages, the second what:
//
//     0 TEXT     sends TEXT and a line end (of the pages: CR LF)
//     0-TEXT     sends TEXT alone
//     0*N        sends N thousand times the same byte
//     0!         closes; 0/ ends its own way alone; 0? reads what has come
//     *TEXT      the host has news: a message, a result, or another happening, by its first letter
//
// Clients that are not there connect. What has to hold: each line that comes back is one JSON
// object, no more answers than lines, no control character in what is said to the log, each answer
// of the pages begins as HTTP does, but to those of before HTTP 1.

#include "host/loop.h"
#include "host/serve/control.h"
#include "host/serve/http.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace kelo_host;
using namespace std::chrono_literals;

namespace
{

constexpr int most_lines = 300;
constexpr int most_thousands = 300;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

sockaddr_un address_of(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

class client
{
  public:
    client(bool of_pages) : pages_(of_pages) {}
    ~client() { close(); }

    void open(const std::string& path)
    {
        if (fd_ >= 0)
            return;
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const sockaddr_un address = address_of(path);
        require(fd_ >= 0);
        if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            close();
    }
    void close()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
        partial_.clear();
        said_.clear();
        asked_ = answered_ = 0;
        watches_ = false;
    }
    void end_own_way() const { shutdown(fd_, SHUT_WR); }
    void say(std::string_view bytes)
    {
        const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        const std::string_view gone = bytes.substr(0, sent > 0 ? static_cast<size_t>(sent) : 0);
        asked_ += std::ranges::count(gone, '\n');
        watches_ = watches_ || gone.find("watch") != gone.npos;
        if (pages_)
            said_ += gone;
    }
    void hear()
    {
        char bytes[16384];
        for (ssize_t count; (count = recv(fd_, bytes, sizeof bytes, 0)) > 0;)
            partial_.append(bytes, static_cast<size_t>(count));
        if (pages_)
            return require(partial_.empty() || partial_.starts_with("HTTP/1.") ||
                           said_.find("HTTP/0") != said_.npos);
        for (size_t end; (end = partial_.find('\n')) != partial_.npos;) {
            take(partial_.substr(0, end));
            partial_.erase(0, end + 1);
        }
    }

  private:
    void take(const std::string& line)
    {
        const json_value object = json_value::parse(line, nullptr, false);
        require(object.is_object() && (object.contains("ok") || watches_));
        // One more for a last line without an end, or one that is too long to have had it yet.
        if (object.contains("ok") && object.value("error", "") != "too many clients")
            require(++answered_ <= asked_ + 1);
    }

    bool pages_;
    int fd_ = -1;
    std::string partial_, said_;
    long asked_ = 0, answered_ = 0;
    bool watches_ = false;
};

struct host {
    loop waits;
    feed happenings;
    int sending = 0;
    control served{[](const std::string& line) {
                       require(std::ranges::none_of(line, [](char c) {
                           return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
                       }));
                   },
                   {[this](const user_command& command) { return act(command); },
                    [this](int number) { return number == sending; }, [] { return true; },
                    [] { return std::string("1,2"); }}};
    http_server pages{waits.base(),
                      {.status =
                           [] {
                               return json_value{{"reason", "online"}};
                           },
                       .figures =
                           [] {
                               return json_value{{"type", "figures"}};
                           },
                       .history = [] { return "{\"type\":\"history\"}"; },
                       .metrics = [](metrics_format) { return "text\n"; }}};

    reply act(const user_command& command)
    {
        if (command.verb == command_verb::sms) {
            require(message_fault(command.number, command.text).empty());
            return {true, "", ++sending, {}};
        }
        if (command.verb == command_verb::sim)
            require(command.sim == 1 || command.sim == 2);
        if (command.verb == command_verb::at)
            return {true, "", 5, {}};
        return {command.verb != command_verb::restart, "", 0, {{"status", {{"imsi", "26201"}}}}};
    }
    void tell(const std::string& what)
    {
        if (what.starts_with("m"))
            happenings.tell("message", {{"text", to_text(what)}, {"number", "+491"}});
        else if (what.starts_with("r"))
            happenings.tell("result", {{"number", sending}, {"state", "sent"}});
        else
            happenings.tell("status", {{"imsi", "26201"}, {"text", std::string(2000, 's')}});
        pages.tell({{"type", "status"}});
    }
    void turn()
    {
        for (int i = 0; i < 3; i++)
            waits.wait(0ms);
        served.pass();
    }
};

void happen(client& who, const std::string& path, const std::string& line, const char* end)
{
    who.open(path);
    const std::string text = line.size() > 2 ? line.substr(2) : "";
    switch (line.size() > 1 ? line[1] : '\0') {
    case ' ':
        who.say(text + end);
        break;
    case '-':
        who.say(text);
        break;
    case '*':
        for (int left = std::min(std::atoi(text.c_str()), most_thousands); left > 0; left--)
            who.say(std::string(1000, line.back()));
        break;
    case '!':
        who.close();
        break;
    case '/':
        who.end_own_way();
        break;
    case '?':
        who.hear();
        break;
    default:
        break;
    }
}

void converse(std::istream& script, const std::string& folder)
{
    const std::string control_path = folder + "/control", pages_path = folder + "/pages";
    host one;
    require(one.served.open(one.waits, one.happenings, control_path, "").empty());
    http_address address;
    const sockaddr_un pages = address_of(pages_path); // as a socket of the network is, for evhttp
    std::memcpy(&address.socket, &pages, sizeof pages);
    address.length = sizeof pages;
    require(one.pages.open(address).empty());

    std::list<client> askers(8, client(false)), readers(4, client(true));
    std::string line;
    for (int i = 0; i < most_lines && std::getline(script, line); i++) {
        const char who = line.empty() ? '\0' : line[0];
        if (who >= '0' && who <= '7')
            happen(*std::next(askers.begin(), who - '0'), control_path, line, "\n");
        else if (who >= 'a' && who <= 'd')
            happen(*std::next(readers.begin(), who - 'a'), pages_path, line, "\r\n");
        else if (who == '*')
            one.tell(line.substr(1));
        one.turn();
    }
    for (int i = 0; i < 4; i++) {
        for (auto* const all : {&askers, &readers})
            for (client& each : *all)
                each.hear();
        one.turn();
    }
    one.served.close("the host ends");
    for (client& each : askers)
        each.hear();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::signal(SIGPIPE, SIG_IGN); // as in the host
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    std::string folder = (std::filesystem::temp_directory_path() / "kelo-fuzz-XXXXXX").string();
    require(mkdtemp(folder.data()) != nullptr);
    std::istringstream script(std::string(reinterpret_cast<const char*>(bytes), size));
    converse(script, folder);
    std::filesystem::remove_all(folder);
    return 0;
}
