// SPDX-License-Identifier: MIT
#include "host/input/custom_file.h"

#include "host/input/fields.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>

namespace kelo_host
{

namespace
{

struct number_field {
    const char* name;
    int custom_item::*target;
    int low, high;
};

// A flow counts every position up to its highest one, so positions stay small.
constexpr number_field number_fields[] = {
    {"sim", &custom_item::sim, 1, 2},   {"flow", &custom_item::flow, FLOW_START, FLOW_RELOAD},
    {"id", &custom_item::id, 1, 9999},  {"timeout", &custom_item::timeout, 1, 600},
    {"seq", &custom_item::seq, 1, 999},
};
constexpr size_t longest_cmd = 512;

std::string set_number(custom_item& item, const number_field& known, const line_field& field)
{
    int number = 0;
    const std::string& text = field.value.value_or("");
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size() || text.empty() ||
        number < known.low || number > known.high)
        return field.name + " takes a number from " + std::to_string(known.low) + " to " +
               std::to_string(known.high) + (text.empty() ? "" : ", not '" + text + "'");
    item.*known.target = number;
    return "";
}

std::string set_cmd(custom_item& item, const line_field& field)
{
    if (!field.quoted)
        return "cmd takes a text in quotes, as cmd=\"AT+CMEE=2\"";
    if (field.value->empty())
        return "cmd is empty";
    if (field.value->size() > longest_cmd)
        return "cmd is longer than " + std::to_string(longest_cmd) + " characters";
    for (const char c : *field.value)
        if (c < 0x20 || c > 0x7e)
            return "cmd holds a character that no AT command may hold";
    item.cmd = *field.value;
    return "";
}

std::string set_field(custom_item& item, const line_field& field)
{
    if (field.name.empty())
        return "a name is missing ahead of '='";
    for (const number_field& known : number_fields)
        if (field.name == known.name)
            return set_number(item, known, field);
    if (field.name == "cmd")
        return set_cmd(item, field);
    if (field.name == "ignore") {
        if (field.value && *field.value != "1")
            return "ignore stands alone, or is 1";
        item.ignore = true;
        return "";
    }
    return "unknown field '" + field.name +
           "': there are sim, flow, id, ignore, timeout, seq and cmd";
}

std::string whole_item_fault(const custom_item& item)
{
    for (const char* name : {"sim", "flow", "id"})
        for (const number_field& known : number_fields)
            if (std::strcmp(known.name, name) == 0 && item.*known.target == 0)
                return std::string(name) + " is missing";
    if (!item.ignore && !item.timeout && !item.seq && item.cmd.empty())
        return "the item changes nothing: give ignore, timeout, seq or cmd";
    if (item.ignore && !item.cmd.empty())
        return "ignore and cmd exclude each other: a given text is always sent";
    return "";
}

// The item of one line, none for an empty one or a fault.
std::optional<custom_item> parse_line(std::string_view line, std::string& error)
{
    custom_item item;
    std::set<std::string> seen;
    while (auto field = next_field(line, error)) {
        if (!seen.insert(field->name).second)
            error = field->name + " stands twice";
        else
            error = set_field(item, *field);
        if (!error.empty())
            return std::nullopt;
    }
    if (seen.empty() || !error.empty())
        return std::nullopt;
    error = whole_item_fault(item);
    return error.empty() ? std::optional(item) : std::nullopt;
}

} // namespace

custom_file parse_custom(std::istream& in, const std::string& name)
{
    custom_file file;
    std::string line;
    for (int number = 1; std::getline(in, line); number++) {
        if (!line.empty() && line.back() == '\r') // written on another system
            line.pop_back();
        std::string error;
        auto item = parse_line(line, error);
        if (item) {
            for (const custom_item& other : file.items)
                if (other.sim == item->sim && other.flow == item->flow && other.id == item->id)
                    error = "this command of this SIM and flow was changed in line " +
                            std::to_string(other.line) + " already";
        }
        if (!error.empty()) {
            file.errors.push_back(name + ":" + std::to_string(number) + ": " + error);
        } else if (item) {
            item->line = number;
            file.items.push_back(std::move(*item));
        }
    }
    if (in.bad())
        file.errors.push_back(name + ": cannot be read to its end");
    return file;
}

custom_file read_custom_file(const std::string& path)
{
    std::ifstream in(path);
    if (!in)
        return {{}, {path + ": " + std::strerror(errno)}};
    return parse_custom(in, path);
}

void install_custom(const std::vector<custom_item>& items)
{
    // The library reads them at every change of flow until the process ends.
    static std::deque<std::string> texts;
    static std::deque<at_config_item> records;
    for (const custom_item& item : items) {
        at_config_item& record = records.emplace_back();
        record.sim = item.sim;
        record.flow = item.flow;
        record.id = item.id;
        record.ignore = item.ignore;
        record.timeout = item.timeout;
        record.seq = item.seq;
        record.cmd = item.cmd.empty() ? nullptr : texts.emplace_back(item.cmd).data();
        list_add_tail(&record.node, &cell_at_config_h);
    }
}

} // namespace kelo_host
