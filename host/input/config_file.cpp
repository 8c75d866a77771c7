// SPDX-License-Identifier: MIT
#include "host/input/config_file.h"

#include "host/text.h"

#include <algorithm>
#include <sys/stat.h>

namespace kelo_host
{

namespace
{

using std::string;

constexpr int most_lines = 10000;
constexpr const char* white = " \t\r";

string trimmed(const string& text)
{
    const size_t begin = text.find_first_not_of(white);
    return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(white) + 1 - begin);
}

bool is_quoted(const string& text)
{
    return text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
           text.back() == text.front();
}

bool is_switch(const string& text)
{
    constexpr const char* words[] = {"true", "false", "yes", "no", "on", "off"};
    return std::ranges::find(words, text) != std::end(words);
}

std::vector<string> words_of(const string& text)
{
    std::vector<string> words;
    for (size_t begin = 0; (begin = text.find_first_not_of(white, begin)) != text.npos;) {
        const size_t end = text.find_first_of(white, begin);
        words.push_back(text.substr(begin, end - begin));
        begin = std::min(end, text.size());
    }
    return words;
}

mode_t mode_of(const string& path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) == 0 ? about.st_mode & 0777 : 0;
}

// A password may hold any character: the rest of the line is the value, and no comment.
struct config_line {
    string name, value;
    bool bare = false; // a name alone
};

config_line read_line(const string& line)
{
    const size_t equals = line.find('=');
    if (equals == line.npos)
        return {line, "", true};
    string value = trimmed(line.substr(equals + 1));
    if (is_quoted(value))
        value = value.substr(1, value.size() - 2);
    else if (value.empty())
        throw CLI::ConfigError("there is no value behind the =");
    return {trimmed(line.substr(0, equals)), value, false};
}

std::vector<string> values_of(const config_line& line, const CLI::Option& option)
{
    if (option.get_items_expected_max() == 0) {
        if (!line.bare && !is_switch(line.value))
            throw CLI::ConfigError(line.name + " takes true or false");
        return {line.bare ? "true" : line.value};
    }
    if (line.bare && option.get_items_expected_min() > 0)
        throw CLI::ConfigError(line.name + " takes a value: " + line.name + " = VALUE");
    if (!line.bare && option.get_items_expected_max() > 1)
        return words_of(line.value);
    return {line.value};
}

// Whether the command line, or a file that comes ahead of this one, has it or what rules it out.
bool is_overruled(const CLI::Option& option)
{
    return option.count() > 0 || std::ranges::any_of(option.get_excludes(), [](const auto* other) {
               return other->count() > 0;
           });
}

} // namespace

std::vector<CLI::ConfigItem> config_file::from_config(std::istream& in) const
{
    // CLI11 hands over a stream without its name, and begins with the last of the files.
    const auto files = app_.get_config_ptr()->as<std::vector<string>>();
    const string& path = files.at(files.size() - ++begun_);
    const mode_t mode = mode_of(path);
    std::vector<CLI::ConfigItem> found;
    std::map<string, string> here;
    string text;
    for (int number = 1; std::getline(in, text); number++) {
        const string place = path + ":" + std::to_string(number);
        try {
            text = trimmed(text);
            if (number > most_lines)
                throw CLI::ConfigError("the file is too long");
            if (text.empty() || text[0] == '#')
                continue;
            if (printable(text) != text)
                throw CLI::ConfigError("the line holds what is no text");
            const config_line line = read_line(text);
            const CLI::Option* const option = app_.get_option_no_throw("--" + line.name);
            if (option == nullptr)
                throw CLI::ConfigError("there is no option " + line.name);
            if (!option->get_configurable())
                throw CLI::ConfigError(line.name + " is for the command line alone");
            if (secrets_.contains(line.name) && (mode & 077) != 0)
                throw CLI::ConfigError(line.name +
                                       " is a secret, and others may open this file: chmod 600, or "
                                       "put it into one of that mode");
            if (!here.emplace(line.name, place).second)
                throw CLI::ConfigError(line.name + " is set above already, at " + here[line.name]);
            const auto values = values_of(line, *option);
            if (is_overruled(*option))
                continue;
            places_.insert_or_assign("--" + line.name, place);
            found.push_back({{}, line.name, values});
        } catch (const CLI::ConfigError& error) {
            throw CLI::ConfigError(place + ": " + printable(error.what()));
        }
    }
    return found;
}

// Several values reach an option that may have none as a list.
string config_file::to_flag(const CLI::ConfigItem& item) const
{
    return item.inputs.size() == 1 ? item.inputs[0]
                                   : "[" + CLI::detail::join(item.inputs, ",") + "]";
}

string config_file::placed(const string& fault) const
{
    const size_t begin = fault.find("--");
    if (begin == fault.npos)
        return fault;
    const size_t end = fault.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", begin);
    const auto place = places_.find(fault.substr(begin, end - begin));
    return place == places_.end() ? fault : place->second + ": " + fault;
}

} // namespace kelo_host
