// The keys of the profile files, as the check of kelo-host and the guide to profiles tell them,
// held to the catalogue, the flows and the pre-treatments.
#include "host/check_profiles.h"
#include "modules/modules.h"
#include "support/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>

using namespace kelo;
using std::string;

namespace
{

using names = std::set<string>;

std::span<const at_info> rows_of(const at_info* table, std::size_t count)
{
    return {table, count};
}

std::span<const at_info> private_rows()
{
    return rows_of(at_private_table, at_private_rows);
}

names catalogue_keys()
{
    names keys;
    for (const at_info& row : private_rows())
        keys.insert(row.name);
    return keys;
}

// The keys that a flow of this module takes from its profile file.
names reached(const string& model, const string& revision, int flow)
{
    names keys;
    for (const flow_step& step : module_steps(model.c_str(), revision.c_str(), flow)) {
        const auto has_id = [&](const at_info& row) { return row.id == step.id; };
        if (std::ranges::none_of(rows_of(at_general_table, at_general_rows), has_id))
            keys.insert(std::ranges::find_if(private_rows(), has_id)->name);
    }
    return keys;
}

// Whether the key's command fills this placeholder on a modem that has told all.
bool fills(const at_info& row, const string& placeholder, const string& module)
{
    g_mobile.last_event = GSM_EVENT_PIN_REQUIRED;
    g_mobile.simslot = 1;
    text_set(g_mobile.model, module.c_str());
    text_set(g_mobile.revision, module.c_str());
    for (char* field :
         {g_mobile.apn, g_mobile.user, g_mobile.pincode, g_mobile.sms_dest, g_mobile.smscenter})
        std::strcpy(field, "1");
    at_info* const at = at_info_create(1, nullptr, nullptr, 3, 0, 0, row.handler, 1, row.pre_treat,
                                       1, placeholder.c_str());
    row.pre_treat(&g_mobile, at);
    const bool filled = at->cmd != nullptr && !text_has(at->cmd, "$");
    at_info_free(at);
    return filled;
}

TEST(ProfileKeys, TheCheckKnowsThoseOfTheCatalogueAndTheirPlaceholders)
{
    const auto known = kelo_host::known_keys();
    EXPECT_EQ(names(known.begin(), known.end()), catalogue_keys());
    names placeholders;
    for (const string& key : known)
        placeholders.insert(kelo_host::facts_of("", key).placeholder);
    placeholders.erase("");
    for (const at_info& row : private_rows())
        for (const string& placeholder : placeholders)
            EXPECT_EQ(fills(row, placeholder, "U9300C"),
                      kelo_host::facts_of("", row.name).placeholder == placeholder)
                << row.name << " " << placeholder;
}

// The check knows modules by four characters, as the library finds their files.
TEST(ProfileKeys, TheCheckKnowsWhatTheFlowsReachAndWhatNothingFills)
{
    std::map<string, names> variants;
    for (std::size_t i = 0; const char* key = module_key(i); i++)
        variants[string(key).substr(0, 4)].insert(key);
    for (const auto& [start, modules] : variants) {
        names keys;
        for (const string& module : modules)
            for (int flow = FLOW_START; flow <= FLOW_SMS_PDU; flow++)
                keys.merge(reached(module, module, flow));
        for (const at_info& row : private_rows()) {
            const kelo_host::key_facts facts = kelo_host::facts_of(start, row.name);
            EXPECT_EQ(facts.reached, keys.contains(row.name)) << start << " " << row.name;
            const auto is_filled = [&](const string& module) {
                return fills(row, facts.placeholder, module);
            };
            EXPECT_EQ(facts.unfilled, facts.reached && !facts.placeholder.empty() &&
                                          std::ranges::none_of(modules, is_filled))
                << start << " " << row.name;
        }
    }
}

names keys_in(const string& text)
{
    static const std::regex key("AT_[A-Z0-9_]+");
    names keys;
    for (std::sregex_iterator at(text.begin(), text.end(), key), end; at != end; ++at)
        keys.insert(at->str());
    return keys;
}

std::vector<string> columns_of(const string& line)
{
    std::vector<string> columns;
    std::istringstream rest(line.substr(1));
    for (string column; std::getline(rest, column, '|');)
        columns.push_back(column);
    return columns;
}

// Its table has a column for modules that walk alike, and in it a letter for each flow with the
// key.
TEST(ProfileKeys, TheGuideTellsWhatTheFlowsReach)
{
    std::ifstream guide(KELO_PROFILE_GUIDE);
    names named, told;
    std::vector<string> header;
    for (string line; std::getline(guide, line);) {
        named.merge(keys_in(line));
        if (line.starts_with("| Key |"))
            header = line.find("EC20") != string::npos ? columns_of(line) : std::vector<string>();
        if (!line.starts_with("| AT_") || header.empty())
            continue;
        const std::vector<string> cells = columns_of(line);
        ASSERT_EQ(cells.size(), header.size()) << line;
        for (const string& key : keys_in(cells[0])) {
            told.insert(key);
            for (std::size_t i = 1; i < cells.size(); i++) {
                names letters;
                std::istringstream modules(header[i]);
                for (string module; modules >> module;)
                    for (int flow = FLOW_START; flow <= FLOW_SMS_PDU; flow++)
                        if (reached(module, "-", flow).contains(key))
                            letters.insert(string(1, "SRMM"[flow - 1]));
                for (const char* letter : {"S", "R", "M"})
                    EXPECT_EQ(cells[i].find(letter) != string::npos, letters.contains(letter))
                        << key << " on " << header[i] << ", " << letter;
            }
        }
    }
    EXPECT_EQ(named, catalogue_keys());
    for (const string& key : named)
        for (std::size_t i = 0; const char* module = module_key(i); i++)
            for (int flow = FLOW_START; flow <= FLOW_SMS_PDU; flow++)
                EXPECT_TRUE(told.contains(key) || !reached(module, "-", flow).contains(key)) << key;
}

} // namespace
