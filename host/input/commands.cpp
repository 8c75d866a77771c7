// SPDX-License-Identifier: MIT
#include "host/input/commands.h"

#include <kelo/command.h>

#include <algorithm>
#include <iterator>

namespace kelo_host
{

namespace
{

constexpr std::string_view blanks = " \t";
constexpr int deepest = 2; // the settings within a request

std::string_view trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == text.npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Takes the first word off `rest`.
std::string_view next_word(std::string_view& rest)
{
    const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
    rest = trim(rest.substr(word.size()));
    return word;
}

constexpr unsigned in_words = 1, by_request = 2, both = 3;

enum class field_kind { none, text, number, flag, settings };
struct field_row {
    const char* name = "";
    field_kind kind = field_kind::none;
    bool required = false;
};
struct verb_row {
    command_verb verb;
    const char* name;
    const char* words; // behind it, for people
    unsigned ways;
    field_row fields[3] = {}; // of a request
};

// clang-format off
using enum field_kind;
constexpr verb_row rows[] = {
    {command_verb::sim,      "sim",      " 1|2",            both,       {{"sim", number, true}}},
    {command_verb::set,      "set",      " NAME=VALUE...",  both,       {{"settings", settings, true}}},
    {command_verb::restart,  "restart",  "",                both},
    {command_verb::reload,   "reload",   "",                both},
    {command_verb::sms,      "sms",      " NUMBER TEXT",    both,       {{"number", text, true}, {"text", text, true}, {"wait", flag}}},
    {command_verb::gps,      "gps",      "",                both,       {{"wait", flag}}},
    {command_verb::status,   "status",   "",                by_request},
    {command_verb::figures,  "figures",  "",                by_request},
    {command_verb::messages, "messages", "",                by_request},
    {command_verb::results,  "results",  "",                by_request},
    {command_verb::watch,    "watch",    "",                by_request},
    {command_verb::at,       "at",       "",                by_request, {{"command", text, true}, {"timeout", number}}},
    {command_verb::help,     "help",     "",                both},
    {command_verb::quit,     "quit",     "",                in_words},
};
constexpr field_row of_all[] = {{"do", text, true}, {"id", none}, {"private", flag}};
constexpr const char* kind_names[] = {"text or number", "text", "number", "true or false", "object"};
// clang-format on

const verb_row* find_verb(std::string_view name, unsigned way)
{
    const auto* const row = std::find_if(std::begin(rows), std::end(rows), [&](const auto& one) {
        return name == one.name && (one.ways & way) != 0;
    });
    return row != std::end(rows) ? row : nullptr;
}

std::string names_of(unsigned way)
{
    std::string names;
    for (const verb_row& row : rows)
        if ((row.ways & way) != 0)
            names += (names.empty() ? "" : ", ") + std::string(row.name) +
                     (way == in_words ? row.words : "");
    return names;
}

// What is wrong with a command, however it came.
std::string fault_of(const user_command& command)
{
    switch (command.verb) {
    case command_verb::sim:
        return command.sim == 1 || command.sim == 2 ? "" : "sim takes 1 or 2";
    case command_verb::set:
        return command.settings.empty() ? "set takes fields, as apn=internet auth=1" : "";
    case command_verb::sms:
        return message_fault(command.number, command.text);
    case command_verb::at:
        if (command.text.find('\0') != command.text.npos)
            return "the command holds a NUL";
        return command.timeout_s >= 0 && command.timeout_s <= KELO_ASK_MOST_TIME
                   ? ""
                   : "timeout is from 1 to " + std::to_string(KELO_ASK_MOST_TIME) + " seconds";
    default:
        return "";
    }
}

// Takes the words behind a command. Returns what is wrong.
std::string take_words(user_command& command, std::string_view rest)
{
    std::string error;
    switch (command.verb) {
    case command_verb::sim:
        command.sim = rest.size() == 1 ? rest[0] - '0' : 0;
        return "";
    case command_verb::set:
        command.settings = read_fields(rest, error);
        return error;
    case command_verb::sms:
        command.number = next_word(rest);
        command.text = rest;
        return "";
    default:
        return rest.empty() ? "" : "it takes nothing behind it";
    }
}

// Whether the brackets outside of texts nest deeper than any request does.
bool is_deep(std::string_view line)
{
    int depth = 0;
    bool quoted = false;
    for (size_t at = 0; at < line.size(); at++) {
        const char c = line[at];
        if (quoted && c == '\\')
            at++;
        else if (c == '"')
            quoted = !quoted;
        else if (!quoted && (c == '{' || c == '[') && ++depth > deepest)
            return true;
        else if (!quoted && (c == '}' || c == ']'))
            depth--;
    }
    return false;
}

bool is_of_kind(const json_value& value, field_kind kind)
{
    switch (kind) {
    case text:
        return value.is_string();
    case number:
        return value.is_number_integer();
    case flag:
        return value.is_boolean();
    case settings:
        return value.is_object();
    case none:
        break;
    }
    return value.is_string() || value.is_number_integer() || value.is_null();
}

const field_row* find_field(const verb_row& row, std::string_view name)
{
    const auto has_name = [&](const field_row& one) { return name == one.name; };
    const auto* const own = std::find_if(std::begin(row.fields), std::end(row.fields), has_name);
    if (own != std::end(row.fields) && !name.empty())
        return own;
    const auto* const shared = std::find_if(std::begin(of_all), std::end(of_all), has_name);
    return shared != std::end(of_all) ? shared : nullptr;
}

std::string names_of_fields(const verb_row& row)
{
    std::string names;
    for (const field_row& one : row.fields)
        names += one.kind != none ? one.name + std::string(", ") : "";
    return names + "id, private";
}

// What is wrong with the fields of a request, by their names and kinds.
std::string check_fields(const verb_row& row, const json_value& request)
{
    for (const auto& [name, value] : request.items()) {
        const field_row* const field = find_field(row, name);
        if (field == nullptr)
            return std::string(row.name) + " has no field '" + name + "': there are " +
                   names_of_fields(row);
        if (!is_of_kind(value, field->kind))
            return name + " takes " + kind_names[static_cast<int>(field->kind)];
    }
    for (const field_row& one : row.fields)
        if (one.required && !request.contains(one.name))
            return std::string(row.name) + " lacks '" + one.name + "'";
    return "";
}

// A number that an int does not hold is out of every range.
int int_of(const json_value& request, const char* name)
{
    const auto found = request.find(name);
    if (found == request.end())
        return 0;
    const double value = found->get<double>();
    return value >= -1 && value <= 1e6 ? static_cast<int>(value) : -1;
}

std::string take_settings(user_command& command, const json_value& fields)
{
    for (const auto& [name, value] : fields.items()) {
        if (!value.is_string() && !value.is_number_integer())
            return "the setting " + name + " takes text or number";
        command.settings.emplace_back(name,
                                      value.is_string() ? value.get<std::string>() : value.dump());
    }
    return "";
}

std::string text_in(const json_value& request, const char* name)
{
    return request.value(name, std::string());
}

} // namespace

std::string command_help()
{
    return names_of(in_words);
}

json_value request_help()
{
    json_value help = json_value::object();
    for (const verb_row& row : rows) {
        if ((row.ways & by_request) == 0)
            continue;
        help[row.name] = json_value::object();
        for (const field_row& one : row.fields)
            if (one.kind != none)
                help[row.name][one.name] = std::string(kind_names[static_cast<int>(one.kind)]) +
                                           (one.required ? "" : ", may be left out");
    }
    return help;
}

const char* verb_name(command_verb verb)
{
    for (const verb_row& row : rows)
        if (row.verb == verb)
            return row.name;
    return "";
}

std::optional<user_command> parse_command(std::string_view line, std::string& error)
{
    std::string_view rest = trim(line);
    user_command command;
    if (rest.empty() || rest.front() == '#')
        return command;
    const std::string_view name = next_word(rest);
    const verb_row* const row = find_verb(name, in_words);
    if (row == nullptr) {
        error = "no command '" + std::string(name) + "': there are " + command_help();
        return std::nullopt;
    }
    command.verb = row->verb;
    error = take_words(command, rest);
    if (error.empty())
        error = fault_of(command);
    return error.empty() ? std::optional(command) : std::nullopt;
}

std::optional<user_command> parse_request(std::string_view line, json_value& id, std::string& error)
{
    if (line.find('\0') != line.npos || !is_utf8(line) || is_deep(line)) {
        error = "a request is text in UTF-8, without NUL, and nests no deeper than its settings";
        return std::nullopt;
    }
    const json_value request = json_value::parse(line, nullptr, false);
    if (!request.is_object()) {
        error = "no JSON object: a request is one object a line, as {\"do\":\"status\"}";
        return std::nullopt;
    }
    if (const auto found = request.find("id"); found != request.end() && is_of_kind(*found, none))
        id = *found;
    const auto named = request.find("do");
    const std::string name =
        named != request.end() && named->is_string() ? std::string(*named) : "";
    const verb_row* const row = find_verb(name, by_request);
    if (row == nullptr) {
        error = "no request '" + name + "': do takes " + names_of(by_request);
        return std::nullopt;
    }
    user_command command;
    command.verb = row->verb;
    command.id = id;
    error = check_fields(*row, request);
    if (error.empty() && request.contains("settings"))
        error = take_settings(command, request["settings"]);
    if (!error.empty())
        return std::nullopt;
    command.sim = int_of(request, "sim");
    command.timeout_s = int_of(request, "timeout");
    command.number = text_in(request, "number");
    command.text = text_in(request, row->verb == command_verb::at ? "command" : "text");
    command.wait = request.value("wait", row->verb == command_verb::at);
    command.show_private = request.value("private", false);
    error = fault_of(command);
    return error.empty() ? std::optional(command) : std::nullopt;
}

std::string message_fault(std::string_view number, std::string_view text)
{
    const std::string_view digits = number.substr(number.starts_with('+') ? 1 : 0);
    if (digits.empty() || digits.size() > 20 ||
        digits.find_first_not_of("0123456789") != digits.npos)
        return "a message goes to a number: up to 20 digits, with '+' ahead when international";
    if (text.empty())
        return "the message is empty";
    if (text.find('\0') != text.npos)
        return "the message holds a NUL";
    return "";
}

} // namespace kelo_host
