// SPDX-License-Identifier: MIT
// The keys of the profile files, as the check of kelo-host and the guide to profiles tell them,
// held to the catalogue, the flows and the pre-treatments.
#include "host/look/check_profiles.h"
#include "tests/testing.h"

#include <algorithm>
#include <map>
#include <set>

using kelo_host::facts_of;
using std::string;

using names = std::set<string>;

static const std::span<const command_row> general_rows{at_general_table, at_general_rows};
static const std::span<const command_row> private_rows{at_private_table, at_private_rows};

// The keys that the flows of this module, or one of them, take from its profile file.
static names reached(const string& module, const string& revision, int first = FLOW_START,
                     int last = FLOW_SMS_PDU)
{
    names keys;
    for (int flow = first; flow <= last; flow++)
        for (const flow_step& step : module_steps(module.c_str(), revision.c_str(), flow)) {
            const auto has_id = [&](const command_row& row) { return row.id == step.id; };
            if (std::ranges::none_of(general_rows, has_id))
                keys.insert(std::ranges::find_if(private_rows, has_id)->text);
        }
    return keys;
}

// Whether the key's command fills this placeholder on a modem that has told all.
static bool fills(const command_row& row, const string& placeholder, const string& module)
{
    gsm_mobile& rec = g_mobile;
    rec.last_event = GSM_EVENT_PIN_REQUIRED;
    rec.simslot = 1;
    text_set(rec.model, module.c_str());
    text_set(rec.revision, module.c_str());
    for (char* field : {rec.apn, rec.user, rec.pincode, rec.sms_dest, rec.smscenter})
        std::strcpy(field, "1");
    at_info* const at = at_info_create(1, nullptr, nullptr, 3, 0, 0, row.handler, 1, row.pre_treat,
                                       1, placeholder.c_str());
    row.pre_treat(&rec, at);
    const bool filled = at->cmd != nullptr && !text_has(at->cmd, "$");
    at_info_free(at);
    return filled;
}

static std::vector<string> split(const string& text, const char* separators)
{
    std::vector<string> all;
    for (std::size_t end = 0, at; (at = text.find_first_not_of(separators, end)) != text.npos;) {
        end = text.find_first_of(separators, at);
        all.push_back(text.substr(at, end - at));
    }
    return all;
}

static names catalogue_keys()
{
    names keys;
    for (const command_row& row : private_rows)
        keys.insert(row.text);
    return keys;
}

TEST(ProfileKeys, TheCheckKnowsThoseOfTheCatalogueAndTheirPlaceholders)
{
    const auto known = kelo_host::known_keys();
    EXPECT_EQ(names(known.begin(), known.end()), catalogue_keys());
    names placeholders;
    for (const string& key : known)
        placeholders.insert(facts_of("", key).placeholder);
    placeholders.erase("");
    for (const command_row& row : private_rows)
        for (const string& placeholder : placeholders)
            EXPECT_EQ(fills(row, placeholder, "U9300C"),
                      facts_of("", row.text).placeholder == placeholder)
                << row.text << " " << placeholder;
}

// The check knows modules by four characters, as the library finds their files.
TEST(ProfileKeys, TheCheckKnowsWhatTheFlowsReachAndWhatNothingFills)
{
    std::map<string, names> variants;
    for (std::size_t i = 0; const char* key = module_key(i); i++)
        variants[string(key).substr(0, 4)].insert(key);
    for (const auto& [start, modules] : variants)
        for (const command_row& row : private_rows) {
            const kelo_host::key_facts facts = facts_of(start, row.text);
            bool is_reached = false, is_filled = false;
            for (const string& module : modules) {
                is_reached |= reached(module, module).contains(row.text);
                is_filled |= fills(row, facts.placeholder, module);
            }
            EXPECT_EQ(facts.reached, is_reached) << start << " " << row.text;
            EXPECT_EQ(facts.unfilled, is_reached && !facts.placeholder.empty() && !is_filled)
                << start << " " << row.text;
        }
}

// Catches: a check that takes a model for one with a flow which has none, or lets a MODEL or LIKE
// pass that the library refuses.
TEST(ProfileKeys, TheCheckKnowsWhichNamesHaveAFlow)
{
    const auto has_steps = [](const string& model, const string& revision) {
        return !module_steps(model.c_str(), revision.c_str(), FLOW_START).empty();
    };
    for (std::size_t i = 0; const char* key = module_key(i); i++) {
        EXPECT_EQ(kelo_host::names_module(key), module_is_listed(key)) << key;
        for (std::size_t length = 1; length <= std::strlen(key) + 1; length++) {
            const string model = (key + string("-")).substr(0, length);
            EXPECT_EQ(kelo_host::takes_away(model), module_named_with(model.c_str()) != nullptr)
                << model;
            if (length >= 4 && length <= std::strlen(key) && has_steps(model, "-")) {
                EXPECT_TRUE(kelo_host::has_flow(model)) << model;
            }
        }
    }
    // A model, its revision as the module has it.
    for (const auto& [model, revision] : {std::pair("EC25-E", "EC25EFAR06A08M4G"),
                                          {"EC200T", "EC200TEUHAR05A01M16"},
                                          {"EC20F", "EC20CEFAGR06A10M4G"},
                                          {"LE910C1-EU", "25.30.005"},
                                          {"LE910", "17.00.523"},
                                          {"RM500U-CN", "RM500UCNAAR03A13M2G"},
                                          {"RM500Q-GL", "RM500QGLABR11A06M4G"},
                                          {"EP06-E", "EP06ELAR04A04M4G"},
                                          {"RM520N-GL", "RM520NGLAAR03A03M4G"},
                                          {"EC20", "-"},
                                          {"Quectel_M35", "M35FAR01A01"},
                                          {"MH5000-31", "10.1.2.5"},
                                          {"EC21KL", "-"}})
        EXPECT_EQ(kelo_host::has_flow(model), has_steps(model, revision)) << model;
    for (const char* like : {"EC25", "EC25V", "RM500Q", "UC20", "MH5000"})
        for (const command_row& row : private_rows)
            EXPECT_EQ(kelo_host::facts_of_like(like, row.text).reached,
                      reached(like, like).contains(row.text))
                << like << " " << row.text;
}

// Its table has a column for modules that walk alike, and in it a letter for each flow with the
// key.
TEST(ProfileKeys, TheGuideTellsWhatTheFlowsReach)
{
    std::ifstream guide(KELO_PROFILE_GUIDE);
    names named, told, sent, file_keys;
    std::vector<string> header;
    for (string line; std::getline(guide, line);) {
        std::vector<string> keys = split(line, " |,.;`=");
        std::erase_if(keys, [](const string& word) { return !word.starts_with("AT_"); });
        const std::vector<string> cells = split(line, "|");
        named.insert(keys.begin(), keys.end());
        for (const string& key : kelo_host::known_file_keys())
            if (line.starts_with("| " + key + " |"))
                file_keys.insert(key);
        if (line.starts_with("| Key | EC20"))
            header = cells;
        if (!line.starts_with("| AT_") || cells.size() != header.size())
            continue; // of another table
        told.insert(keys.begin(), keys.end());
        for (std::size_t i = 1; i < cells.size(); i++)
            for (const auto& [letter, first, last] : {std::tuple('S', FLOW_START, FLOW_START),
                                                      {'R', FLOW_RELOAD, FLOW_RELOAD},
                                                      {'M', FLOW_SMS_TEXT, FLOW_SMS_PDU}}) {
                names sent_here;
                for (const string& module : split(header[i], " "))
                    sent_here.merge(reached(module, "-", first, last));
                for (const string& key : keys)
                    EXPECT_EQ(cells[i].find(letter) != string::npos, sent_here.contains(key))
                        << key << " on " << header[i] << ", " << letter;
            }
    }
    EXPECT_EQ(named, catalogue_keys());
    EXPECT_EQ(file_keys, (names{module_key_name, model_key_name, like_key_name}));
    const auto known = kelo_host::known_file_keys();
    EXPECT_EQ(names(known.begin(), known.end()), file_keys);
    for (std::size_t i = 0; const char* module = module_key(i); i++)
        sent.merge(reached(module, "-"));
    EXPECT_EQ(told, sent);
}
