// SPDX-License-Identifier: MIT
#include "host/look/check_device.h"

#include "host/state/status.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace kelo_host
{

namespace
{

namespace fs = std::filesystem;
using std::string;

constexpr size_t most_named = 8; // in one line

bool exists(const string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// Names with a blank between, the rest by its number.
string list_of(const std::vector<string>& names)
{
    string text;
    for (size_t at = 0; at < std::min(names.size(), most_named); at++)
        text += (at > 0 ? " " : "") + names[at];
    if (names.size() > most_named)
        text += " and " + std::to_string(names.size() - most_named) + " more";
    return text;
}

// ---- The port

std::vector<string> port_nodes(const device_paths& paths, int first)
{
    constexpr int limit = 128;
    std::vector<string> found;
    for (int index = first; index < limit; index++)
        for (const auto& [name, number] :
             {std::pair("ttyUSB", index), std::pair("ttyACM", index + 1)})
            if (const string node = paths.dev + "/" + name + std::to_string(number); exists(node))
                found.push_back(node);
    return found;
}

look look_at_port(const device_paths& paths, const string& port)
{
    const string there = list_of(port_nodes(paths, -1)); // ttyACM0 counts one higher
    const string others = there.empty() ? "there are none" : "there are " + there;
    if (!port.empty())
        return {"port", true, port + (paths.port.empty() ? " (" + others + ")" : "")};
    const string wanted = paths.port.empty()
                              ? "no serial port of a modem from " + paths.dev + "/ttyUSB" +
                                    std::to_string(paths.first_port) + " on"
                              : "no " + paths.port;
    return {"port", false,
            wanted + ", " + others +
                ": plug the modem in, load its driver (option), or name the port with --port"};
}

look look_at_permission(const string& port)
{
    if (access(port.c_str(), R_OK | W_OK) == 0)
        return {"permission", true, ""};
    return {"permission", false,
            port + ": " + std::strerror(errno) + ": run as root, or as a member of its group"};
}

// ---- Other programs

string name_of(const fs::path& process)
{
    string name;
    std::getline(std::ifstream(process / "comm") >> std::ws, name);
    return name;
}

std::vector<fs::path> other_processes(const device_paths& paths)
{
    std::vector<fs::path> found;
    std::error_code fault;
    for (fs::directory_iterator entry(paths.proc, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        const string pid = entry->path().filename();
        if (pid.find_first_not_of("0123456789") == pid.npos && pid != std::to_string(getpid()))
            found.push_back(entry->path());
    }
    return found;
}

// An emulated modem, at the other end of a pseudo-terminal, may keep this one open as well.
bool holds(const fs::path& process, const fs::path& file)
{
    bool found = false, emulates = false;
    std::error_code fault; // of a process that has gone, or is another user's
    for (fs::directory_iterator entry(process / "fd", fault), end; !fault && entry != end;
         entry.increment(fault)) {
        std::error_code gone;
        const fs::path opened = fs::read_symlink(entry->path(), gone);
        found = found || opened == file;
        emulates = emulates || opened.filename() == "ptmx";
    }
    return found && !emulates;
}

string with_pid(const fs::path& process)
{
    return name_of(process) + " (" + process.filename().string() + ")";
}

look look_at_holders(const std::vector<fs::path>& processes, const string& port)
{
    std::error_code fault; // a name that udev gives is a link
    const fs::path file = fs::canonical(port, fault);
    std::vector<string> holders;
    for (const fs::path& process : processes)
        if (!fault && holds(process, file))
            holders.push_back(with_pid(process));
    if (holders.empty())
        return {"port free", true, ""};
    return {"port free", false, port + " is held by " + list_of(holders) + ": end that program"};
}

look look_at_modem_manager(const std::vector<fs::path>& processes)
{
    for (const fs::path& process : processes)
        if (name_of(process) == "ModemManager")
            return {"ModemManager", false,
                    with_pid(process) + " takes turns on the port: disable it (systemctl disable "
                                        "--now ModemManager)"};
    return {"ModemManager", true, "it does not run"};
}

// ---- Programs

look look_at_program(const device_paths& paths, const char* name, const char* cure)
{
    for (size_t at = 0; at < paths.path.size();) {
        const size_t end = std::min(paths.path.find(':', at), paths.path.size());
        const string file = paths.path.substr(at, end - at) + "/" + name;
        std::error_code fault;
        if (fs::is_regular_file(file, fault) && access(file.c_str(), X_OK) == 0)
            return {name, true, file};
        at = end + 1;
    }
    return {name, false, string("not in PATH: ") + cure};
}

// ---- Folders

// An owner's folder may be empty.
look look_at_profiles(const string& folder, bool needed)
{
    int good = 0;
    std::vector<string> bad;
    std::error_code fault;
    for (fs::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        const string name = entry->path().filename();
        if (name.find(".conf") == name.npos)
            continue;
        std::error_code odd;
        if (fs::is_regular_file(entry->path(), odd) && access(entry->path().c_str(), R_OK) == 0)
            good++;
        else
            bad.push_back(name);
    }
    std::sort(bad.begin(), bad.end());
    constexpr const char* copy = ": copy the profile files there, see docs/profiles.md";
    if (fault)
        return {"profiles", false, folder + ": " + fault.message() + copy};
    if (!bad.empty())
        return {"profiles", false,
                folder + " has files that can't be read: " + list_of(bad) + ": make them readable"};
    if (good == 0 && needed)
        return {"profiles", false, folder + " has no .conf file" + copy};
    return {"profiles", true, std::to_string(good) + " files in " + folder};
}

look look_at_config(const string& folder)
{
    if (access(folder.c_str(), W_OK | X_OK) == 0)
        return {"config", true, folder + " is writable"};
    return {"config", false,
            folder + ": " + std::strerror(errno) +
                ": make it a writable folder, 5Gdebug in it shows the AT dialogue"};
}

} // namespace

string chosen_port(const device_paths& paths)
{
    if (!paths.port.empty())
        return exists(paths.port) ? paths.port : "";
    const auto nodes = port_nodes(paths, paths.first_port);
    return nodes.empty() ? "" : nodes[0];
}

std::vector<look> check_device(const device_paths& paths)
{
    constexpr const char* tools = "install busybox, or the tools of the distribution";
    const string port = chosen_port(paths);
    const auto processes = other_processes(paths);
    std::vector<look> looks = {look_at_port(paths, port)};
    if (!port.empty()) {
        looks.push_back(look_at_permission(port));
        looks.push_back(look_at_holders(processes, port));
    }
    looks.push_back(look_at_modem_manager(processes));
    if (paths.link)
        looks.push_back(look_at_program(paths, "quectel-CM", "install it, or run with --no-link"));
    looks.push_back(look_at_program(paths, "ifconfig", tools));
    if (paths.link && paths.link_ping)
        looks.push_back(look_at_program(paths, "ping", "install it, or run with --no-ping"));
    looks.push_back(look_at_program(paths, "killall", tools));
    for (const auto& folder : paths.profiles)
        looks.push_back(look_at_profiles(folder, folder == paths.profiles.back()));
    looks.push_back(look_at_config(paths.config));
    return looks;
}

string line_of(const look& one)
{
    const string ok = one.text.empty() ? "ok" : "ok, ";
    return one.what + ": " + (one.well ? ok : "") + printable(one.text);
}

string profile_fault(const folder_list& folders, const string& model)
{
    if (profile_serves(folders, model))
        return "";
    string named;
    for (const auto& folder : folders)
        named += (named.empty() ? "" : " or ") + folder.string();
    return "no profile in " + named + " serves " + printable(model) +
           ": its own commands are left out (docs/profiles.md)";
}

} // namespace kelo_host
