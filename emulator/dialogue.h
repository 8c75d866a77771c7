// SPDX-License-Identifier: MIT
// The dialogue file of one model: what the module answers to which command. README.md has the
// format.
//
// A rule ends with the next `>>`. Rules are tried in the order of the file, the first match
// answers, and rules stand ahead of built-ins.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kelo_emulator
{

struct variable_change {
    std::string name, value;
};

struct later_report {
    int after_ms;
    std::string text;
};

struct dialogue_rule {
    std::string pattern;
    std::vector<variable_change> assignments;
    std::string needs; // "", "card" or "sim"
    int wait_ms = 0;
    std::vector<std::string> lines;
    std::string final_result; // empty: silent
    std::vector<later_report> reports;
};

struct dialogue_file {
    std::set<std::string> uses;
    std::map<std::string, std::string> variables;
    std::vector<dialogue_rule> rules;
};

// Reads `folder`/`file`. Empty text, or "EC25.dlg:12: what is wrong with the line".
std::string load_dialogue(const std::string& folder, const std::string& file,
                          const std::set<std::string>& known_uses, dialogue_file& out);

// Puts values for ${name} and ${1}. Unknown names become empty.
std::string expand(const std::string& text, const std::map<std::string, std::string>& variables,
                   const std::vector<std::string>& captures = {});

// A whole decimal number from 0 to `limit`; -1 when it is anything else.
long parse_number(const std::string& text, long limit);

// Bytes as JSON can hold them and nothing is lost: UTF-8 of one character U+0000 to U+00FF each.
std::string bytes_as_text(const std::string& bytes);

std::string trim(const std::string& text);
std::vector<std::string> split(const std::string& text, char separator);

} // namespace kelo_emulator
