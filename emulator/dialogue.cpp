// SPDX-License-Identifier: MIT
#include "emulator/dialogue.h"

#include "emulator/modem.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace kelo_emulator
{

namespace
{

constexpr int max_include_depth = 4;
constexpr long max_wait_ms = 600000;

bool is_name(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '_' || c == '-';
    });
}

bool begins(const std::string& text, const char* start)
{
    return text.rfind(start, 0) == 0;
}

enum class finality { no, yes, bad };

finality final_kind(const std::string& line)
{
    if (line == "OK" || line == "ERROR" || line == "NO CARRIER")
        return finality::yes;
    for (const char* start : {"+CME ERROR: ", "+CMS ERROR: "})
        if (begins(line, start))
            return parse_number(line.substr(strlen(start)), 9999) >= 0 ? finality::yes
                                                                       : finality::bad;
    return finality::no;
}

struct dialogue_loader {
    const std::string& folder;
    const std::set<std::string>& known_uses;
    dialogue_file& out;
    std::string file;
    int number = 0;
    bool rule_open = false;
    bool rule_ended = false; // its final result, or `silent`, was seen
    struct file_reference {
        std::string file;
        int number;
        std::string name;
    };
    std::vector<file_reference> references;

    std::string fail(const std::string& what) const
    {
        return file + ":" + std::to_string(number) + ": " + what;
    }

    std::string end_rule()
    {
        const bool unfinished = rule_open && !rule_ended;
        rule_open = rule_ended = false;
        return unfinished ? fail("the rule above has neither a final result nor `silent`") : "";
    }

    // Notes each ${name} for the check at the end, when all variables are known.
    std::string note_references(const std::string& text)
    {
        std::size_t at = 0;
        while ((at = text.find("${", at)) != std::string::npos) {
            const std::size_t end = text.find('}', at);
            if (end == std::string::npos)
                return fail("`${` without `}`");
            const std::string name = text.substr(at + 2, end - at - 2);
            if (!is_name(name))
                return fail("`${" + name + "}` is no variable name");
            const bool capture =
                name.size() == 1 && std::isdigit(static_cast<unsigned char>(name[0]));
            if (!capture)
                references.push_back({file, number, name});
            else if (!rule_open || name[0] - '0' < 1 ||
                     name[0] - '0' > std::count(out.rules.back().pattern.begin(),
                                                out.rules.back().pattern.end(), '*'))
                return fail("`${" + name + "}`: the pattern has no such `*`");
            at = end;
        }
        return "";
    }

    std::string assignment(const std::string& text, variable_change& result)
    {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos)
            return fail("expected `name = value`");
        result = {trim(text.substr(0, equals)), trim(text.substr(equals + 1))};
        if (!is_name(result.name))
            return fail("`" + result.name + "` is no variable name");
        return note_references(result.value);
    }

    std::string top_line(const std::string& word, const std::string& rest, int depth)
    {
        std::string error = end_rule();
        if (!error.empty())
            return error;
        if (word == ">>") {
            if (rest.size() < 2 || strncasecmp(rest.c_str(), "AT", 2) != 0)
                return fail("a command begins with AT");
            out.rules.push_back({});
            out.rules.back().pattern = rest;
            rule_open = true;
            return "";
        }
        if (word == "var") {
            variable_change made;
            error = assignment(rest, made);
            if (error.empty())
                out.variables[made.name] = made.value;
            return error;
        }
        if (word == "use") {
            for (const std::string& name : split(rest, ' ')) {
                if (name.empty())
                    continue;
                if (!known_uses.count(name))
                    return fail("no built-in behaviour `" + name + "`");
                out.uses.insert(name);
            }
            return "";
        }
        if (depth >= max_include_depth)
            return fail("includes are nested too deeply");
        if (rest.empty() || rest.find('/') != std::string::npos)
            return fail("include names a file of the same folder");
        const std::string outer_file = file;
        const int outer_number = number;
        error = read(rest, depth + 1);
        if (error.empty()) {
            file = outer_file;
            number = outer_number;
        }
        return error;
    }

    std::string rule_line(const std::string& word, const std::string& rest)
    {
        if (!rule_open)
            return fail("`" + word + "` stands outside a rule");
        dialogue_rule& rule = out.rules.back();
        if (word == "report") {
            later_report made{0, rest};
            if (begins(rest, "after ")) {
                const std::size_t blank = rest.find(' ', 6);
                const long ms = blank == std::string::npos
                                    ? -1
                                    : parse_number(rest.substr(6, blank - 6), max_wait_ms);
                if (ms < 0)
                    return fail("expected `report after <ms> <text>`");
                made = {static_cast<int>(ms), rest.substr(blank + 1)};
            }
            rule.reports.push_back(made);
            return note_references(made.text);
        }
        if (rule_ended)
            return fail("only `report` may follow the final result");
        if (word == "silent") {
            rule_ended = true;
            return rest.empty() ? "" : fail("`silent` stands alone");
        }
        if (word == "needs") {
            rule.needs = rest;
            return rest == "sim" || rest == "card" ? ""
                                                   : fail("expected `needs sim` or `needs card`");
        }
        if (word == "wait") {
            const long ms = parse_number(rest, max_wait_ms);
            rule.wait_ms = static_cast<int>(ms);
            return ms < 0 ? fail("expected `wait <ms>`") : "";
        }
        if (word == "set") {
            variable_change made;
            const std::string error = assignment(rest, made);
            if (error.empty()) {
                references.push_back({file, number, made.name});
                rule.assignments.push_back(made);
            }
            return error;
        }
        switch (final_kind(rest)) {
        case finality::bad:
            return fail("an error result has a number");
        case finality::yes:
            rule.final_result = rest;
            rule_ended = true;
            return "";
        case finality::no:
            break;
        }
        rule.lines.push_back(rest);
        return note_references(rest);
    }

    std::string read(const std::string& name, int depth)
    {
        std::ifstream stream(folder + "/" + name);
        if (!stream) {
            const std::string why = folder + "/" + name + ": " + strerror(errno);
            return depth ? fail(why) : why;
        }
        file = name;
        number = 0;
        std::string line;
        while (std::getline(stream, line)) {
            ++number;
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            const std::string text = trim(line);
            if (text.empty() || text[0] == '#')
                continue;
            // An answer keeps its trailing blanks: modules do print some.
            const std::size_t blank = text.find(' ');
            const std::string word = text.substr(0, blank);
            std::string rest = blank == std::string::npos ? "" : trim(text.substr(blank));
            if (word == "<<") {
                const std::size_t start = line.find("<<") + 2;
                rest = line.substr(start < line.size() && line[start] == ' ' ? start + 1 : start);
            }
            std::string error;
            if (word == ">>" || word == "var" || word == "use" || word == "include")
                error = top_line(word, rest, depth);
            else if (word == "<<" || word == "set" || word == "wait" || word == "needs" ||
                     word == "report" || word == "silent")
                error = rule_line(word, rest);
            else
                error = fail("`" + word +
                             "` is none of include, use, var, >>, <<, set, needs, wait, "
                             "report, silent");
            if (!error.empty())
                return error;
        }
        return end_rule();
    }
};

} // namespace

std::string load_dialogue(const std::string& folder, const std::string& file,
                          const std::set<std::string>& known_uses, dialogue_file& out)
{
    dialogue_loader loader{folder, known_uses, out, {}, 0, false, false, {}};
    const std::string error = loader.read(file, 0);
    if (!error.empty())
        return error;
    for (const dialogue_loader::file_reference& use : loader.references)
        if (!out.variables.count(use.name))
            return use.file + ":" + std::to_string(use.number) + ": no `var " + use.name + "`";
    return "";
}

std::string expand(const std::string& text, const std::map<std::string, std::string>& variables,
                   const std::vector<std::string>& captures)
{
    std::string result;
    std::size_t at = 0;
    for (;;) {
        const std::size_t start = text.find("${", at);
        const std::size_t end = start == std::string::npos ? start : text.find('}', start);
        if (end == std::string::npos)
            return result + text.substr(at);
        result += text.substr(at, start - at);
        const std::string name = text.substr(start + 2, end - start - 2);
        const std::size_t index =
            name.size() == 1 && name[0] >= '1' && name[0] <= '9' ? std::size_t(name[0] - '1') : 99;
        if (index < captures.size())
            result += captures[index];
        else if (const auto found = variables.find(name); found != variables.end())
            result += found->second;
        at = end + 1;
    }
}

long parse_number(const std::string& text, long limit)
{
    if (text.empty() || text.size() > 9)
        return -1;
    long value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return -1;
        value = value * 10 + (c - '0');
    }
    return value <= limit ? value : -1;
}

std::string bytes_as_text(const std::string& bytes)
{
    std::string text;
    for (const unsigned char byte : bytes) {
        if (byte >= 0x80)
            text += static_cast<char>(0xC0 | byte >> 6);
        text += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F));
    }
    return text;
}

std::string trim(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::size_t at = 0;
    for (;;) {
        const std::size_t end = text.find(separator, at);
        parts.push_back(text.substr(at, end == std::string::npos ? end : end - at));
        if (end == std::string::npos)
            return parts;
        at = end + 1;
    }
}

bool pattern_matches(const std::string& pattern, const std::string& text,
                     std::vector<std::string>* captures)
{
    const auto same = [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) ==
               std::toupper(static_cast<unsigned char>(b));
    };
    // Greedy from the left with one point of return: linear for one `*`, bounded for any number.
    std::vector<std::size_t> starts, ends;
    std::size_t p = 0, t = 0;
    std::size_t star = std::string::npos;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            starts.push_back(t);
            ends.push_back(t);
        } else if (p < pattern.size() && same(pattern[p], text[t])) {
            ++p;
            ++t;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++ends.back();
        } else {
            return false;
        }
    }
    for (; p < pattern.size() && pattern[p] == '*'; ++p) {
        starts.push_back(t);
        ends.push_back(t);
    }
    if (p != pattern.size())
        return false;
    if (captures)
        for (std::size_t i = 0; i < starts.size(); ++i)
            captures->push_back(text.substr(starts[i], ends[i] - starts[i]));
    return true;
}

} // namespace kelo_emulator
