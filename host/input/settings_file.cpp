// SPDX-License-Identifier: MIT
#include "host/input/settings_file.h"

#include "host/input/fields.h"

#include <kelo/gsm.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <set>

namespace kelo_host
{

namespace
{

enum class value_kind { number, text, pin };

struct known_setting {
    const char* name;
    value_kind kind;
    size_t offset;
    int low, high; // of a number; high: most characters of a text
};

// clang-format off
#define TEXT(name) #name, value_kind::text, offsetof(cellular_setting, name), 0, sizeof(cellular_setting::name) - 1
#define NUMBER(name, low, high) #name, value_kind::number, offsetof(cellular_setting, name), low, high
constexpr known_setting known_settings[] = {
    {NUMBER(enable, 0, 1)},
    {TEXT(apn)},
    {TEXT(user)},
    {TEXT(password)},
    {"pin", value_kind::pin, offsetof(cellular_setting, pin), 4, 8}, // 3GPP TS 31.101 9.5.1
    {NUMBER(auth, 0, 4)},
    {NUMBER(net_mode, 0, 5)},
    {NUMBER(attach_timeout, 0, 86400)},
    {NUMBER(ping_enable, 0, 1)},
    {TEXT(ping_target)},
};
#undef TEXT
#undef NUMBER
// clang-format on

// What goes between the quotes of an AT command, and to the dialer and ping as an argument.
std::string text_fault(const known_setting& known, std::string_view value)
{
    if (value.size() > static_cast<size_t>(known.high))
        return "is longer than " + std::to_string(known.high) + " characters";
    for (const char c : value)
        if (c == '"' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return "holds a quote or a control character";
    if (value.starts_with('-'))
        return "begins with '-': a program would take it for an option";
    return "";
}

bool is_pin(const known_setting& known, std::string_view value)
{
    return value.empty() || (value.size() >= static_cast<size_t>(known.low) &&
                             value.size() <= static_cast<size_t>(known.high) &&
                             value.find_first_not_of("0123456789") == value.npos);
}

std::string set_number(int& target, const known_setting& known, std::string_view value)
{
    int number = 0;
    const auto [end, fault] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (value.empty() || fault != std::errc() || end != value.data() + value.size() ||
        number < known.low || number > known.high)
        return "takes a number from " + std::to_string(known.low) + " to " +
               std::to_string(known.high);
    target = number;
    return "";
}

std::string set_known(cellular_setting& settings, const known_setting& known,
                      std::string_view value)
{
    char* const place = reinterpret_cast<char*>(&settings) + known.offset;
    if (known.kind == value_kind::number)
        return set_number(*reinterpret_cast<int*>(place), known, value);
    if (known.kind == value_kind::pin && !is_pin(known, value))
        return "is not four to eight digits"; // and not shown: it may be nearly right
    if (const std::string fault = text_fault(known, value); !fault.empty())
        return fault;
    std::memcpy(place, value.data(), value.size());
    place[value.size()] = '\0';
    return "";
}

} // namespace

cellular_setting default_settings()
{
    cellular_setting settings{};
    settings.enable = 1;
    settings.ping_enable = 1;
    set_setting(settings, "ping_target", "8.8.8.8");
    return settings;
}

std::string set_setting(cellular_setting& settings, std::string_view name, std::string_view value)
{
    for (const known_setting& known : known_settings) {
        if (name != known.name)
            continue;
        const std::string fault = set_known(settings, known, value);
        return fault.empty() ? "" : std::string(name) + " " + fault;
    }
    std::string names;
    for (const known_setting& known : known_settings)
        names += (names.empty() ? "" : ", ") + std::string(known.name);
    return "unknown setting '" + std::string(name) + "': there are " + names;
}

setting_fields read_fields(std::string_view line, std::string& error)
{
    setting_fields fields;
    while (const auto field = next_field(line, error)) {
        if (!field->value) {
            error = field->name + " lacks '=' and a value";
            break;
        }
        fields.emplace_back(field->name, *field->value);
    }
    return fields;
}

std::string set_settings(cellular_setting& settings, const setting_fields& fields)
{
    cellular_setting changed = settings;
    std::set<std::string> seen;
    for (const auto& [name, value] : fields) {
        const std::string error =
            seen.insert(name).second ? set_setting(changed, name, value) : name + " stands twice";
        if (!error.empty())
            return error;
    }
    settings = changed;
    return "";
}

std::string set_settings(cellular_setting& settings, std::string_view line)
{
    std::string error;
    const setting_fields fields = read_fields(line, error);
    return error.empty() ? set_settings(settings, fields) : error;
}

std::vector<std::string> parse_settings(std::istream& in, const std::string& name,
                                        cellular_setting& settings)
{
    std::vector<std::string> errors;
    std::string line;
    for (int number = 1; std::getline(in, line); number++) {
        if (!line.empty() && line.back() == '\r') // written on another system
            line.pop_back();
        const std::string error = set_settings(settings, line);
        if (!error.empty())
            errors.push_back(name + ":" + std::to_string(number) + ": " + error);
    }
    if (in.bad())
        errors.push_back(name + ": cannot be read to its end");
    return errors;
}

std::vector<std::string> read_settings_file(const std::string& path, cellular_setting& settings)
{
    std::ifstream in(path);
    if (!in)
        return {path + ": " + std::strerror(errno)};
    return parse_settings(in, path, settings);
}

std::vector<std::string> changed_settings(const cellular_setting& before,
                                          const cellular_setting& now)
{
    std::vector<std::string> names;
    for (const known_setting& known : known_settings) {
        const char* const old = reinterpret_cast<const char*>(&before) + known.offset;
        const char* const fresh = reinterpret_cast<const char*>(&now) + known.offset;
        if (known.kind == value_kind::number ? std::memcmp(old, fresh, sizeof(int)) != 0
                                             : std::strcmp(old, fresh) != 0)
            names.emplace_back(known.name);
    }
    return names;
}

bool needs_restart(const cellular_setting& before, const cellular_setting& now)
{
    return std::strcmp(before.apn, now.apn) != 0 || std::strcmp(before.user, now.user) != 0 ||
           std::strcmp(before.password, now.password) != 0 ||
           std::strcmp(before.pin, now.pin) != 0 || before.auth != now.auth;
}

bool apply_change(const cellular_setting& before, const cellular_setting& now, int& mode)
{
    const bool restart = needs_restart(before, now);
    const bool on = now.enable != 0;
    if (!on || now.net_mode != mode)
        kelo_set_cellular(&now); // with the link off it sends no mode, and fills no slot
    if (!on || now.net_mode == mode)
        kelo_set_cellular_but_mode(&now);
    set_cell_pdpdeact(0); // raised by our own change
    if (restart)
        kelo_cellular_restart(&now);
    if (on || restart)
        mode = now.net_mode;
    return restart;
}

} // namespace kelo_host
