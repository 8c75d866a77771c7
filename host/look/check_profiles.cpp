// SPDX-License-Identifier: MIT
#include "host/look/check_profiles.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <string_view>
#include <tuple>

namespace kelo_host
{

namespace
{

using std::string;
using std::string_view;

// Families: modules whose flows are alike. The bits say which keys a family's flows reach.
enum : unsigned {
    quectel_lte = 1u << 0,
    quectel_lte_sms = 1u << 1, // of those, the ones with an SMS flow
    ec25v = 1u << 2,
    quectel_umts = 1u << 3,
    longsung = 1u << 4,
    telit = 1u << 5,
    unisoc = 1u << 6,
    quectel_5g = 1u << 7,
    balong = 1u << 8,
    unmasked = 1u << 9, // of all, those whose band mask is not known
};
constexpr unsigned voice_modules = ec25v | quectel_umts | longsung | telit | quectel_5g | balong;
constexpr unsigned sms_modules = quectel_lte_sms | voice_modules | unisoc;
constexpr unsigned every_module = quectel_lte | sms_modules;

// By the first four characters, as the library finds the file of a model.
struct known_module {
    const char* start;
    unsigned families;
};
constexpr known_module modules[] = {
    {"EC20", quectel_lte | quectel_lte_sms},
    {"EC21", quectel_lte | quectel_lte_sms},
    {"EC25", quectel_lte | quectel_lte_sms | ec25v},
    {"EG25", quectel_lte},
    {"EG95", quectel_lte},
    {"EP06", quectel_lte},
    {"UC15", quectel_umts | unmasked},
    {"UC20", quectel_umts | unmasked},
    {"U930", longsung},
    {"E972", longsung | unmasked},
    {"LE91", telit | unmasked},
    {"V1.0", unisoc},
    {"RM50", quectel_5g},
    {"RM51", quectel_5g},
    {"RG50", quectel_5g},
    {"RG51", quectel_5g},
    {"MH50", balong},
};

struct known_key {
    const char* name;
    const char* placeholder; // that the library fills in; nullptr for none
    unsigned families;       // whose flows reach the key; 0: no flow does
};
constexpr known_key keys[] = {
    {"AT_ACTIVE_CONT", nullptr, longsung | quectel_5g},
    {"AT_AUDIO_PCM_SLAVE", nullptr, quectel_5g},
    {"AT_CALL_STATE_INIT", nullptr, quectel_5g},
    {"AT_CBAND", "$BAND", ec25v | quectel_umts | longsung | telit},
    {"AT_CFUN_FULL", nullptr, every_module},
    {"AT_CFUN_MINI", nullptr, every_module},
    {"AT_CHECK_NETWORK", nullptr, voice_modules},
    {"AT_CLIP_ENABLED", nullptr, voice_modules | unisoc},
    {"AT_DEL_GTRNDIS", nullptr, 0},
    {"AT_ENABLE_GPS", nullptr, 0},
    {"AT_GET_BAND", nullptr, ec25v | quectel_umts | longsung | balong},
    {"AT_GET_ICCID", nullptr, every_module & ~unsigned{unisoc}},
    {"AT_GET_MBN_LIST", nullptr, quectel_lte},
    {"AT_GET_NETWORK", nullptr, every_module & ~unsigned{unisoc}},
    {"AT_GET_SERVINGCELL", nullptr, quectel_5g},
    {"AT_GET_SIGNAL1", nullptr, 0},
    {"AT_GET_SMSC", nullptr, 0},
    {"AT_GET_USB_MODE", nullptr, 0},
    {"AT_GPS_LOC", nullptr, 0},
    {"AT_GSM", nullptr, sms_modules},
    {"AT_MODE", nullptr, voice_modules & ~unsigned{balong}},
    {"AT_NETWORK_AUTO", "$MODE", every_module & ~unsigned{unisoc}},
    {"AT_SEL_SIMSLOT", "$NUM", quectel_5g},
    {"AT_SEND_PIN", "$PIN_NUMBER", every_module},
    {"AT_SEND_SMS_DES", "$SMS_DES", sms_modules},
    {"AT_SEND_SMS_LEN", "$SMS_LEN", sms_modules},
    {"AT_SEND_SMS_PDU_MODE", nullptr, sms_modules},
    {"AT_SEND_SMS_TEXT_MODE", nullptr, sms_modules},
    {"AT_SET_APN", "$PARAM", quectel_lte | longsung | quectel_5g | balong},
    {"AT_SET_CONT1", nullptr, ec25v},
    {"AT_SET_CONT3", "$APN", ec25v},
    {"AT_SET_IPPASS", nullptr, 0},
    {"AT_SET_NET_SEQ", "$NET_SEQUENCE", ec25v | quectel_umts | longsung},
    {"AT_SET_NET_URC", nullptr, voice_modules & ~unsigned{balong}},
    {"AT_SET_NVWR_SEQ", nullptr, 0},
    {"AT_SET_NVWR_SEV", nullptr, 0},
    {"AT_SET_SMSC", "$SCA", voice_modules},
    {"AT_SET_USER_PWD", "$PARAM", longsung},
    {"AT_SET_VOLTE", "$CONF", quectel_5g},
    {"AT_SMS_SET_CHARSET", nullptr, voice_modules | unisoc},
    {"AT_UCS2", nullptr, sms_modules},
};

// Reached by a flow, and better not there: the step is then dropped, which costs one log line.
struct left_out_key {
    const char* key;
    unsigned families;
    bool unfilled; // nothing fills the placeholder on these modules: it would go out as text
    const char* reason;
};
constexpr left_out_key left_out[] = {
    {"AT_CBAND", unmasked, true, "no band mask is known for this module"},
    {"AT_ACTIVE_CONT", longsung | quectel_5g, false, "the dialer starts the context"},
    {"AT_SET_NET_SEQ", longsung, false, "no command is known that takes this module's value, 17"},
    {"AT_GET_NETWORK", telit, false, "no known answer of this module is among those read"},
    {"AT_CHECK_NETWORK", telit, false, "no known answer of this module is among those read"},
};

constexpr size_t longest_line = 255;
constexpr size_t longest_model = 15;

const known_key* find_key(string_view name)
{
    for (const known_key& key : keys)
        if (name == key.name)
            return &key;
    return nullptr;
}

unsigned families_of(string_view module)
{
    for (const known_module& known : modules)
        if (module.substr(0, 4) == known.start)
            return known.families;
    return 0;
}

const left_out_key* find_left_out(string_view key, unsigned families)
{
    for (const left_out_key& row : left_out)
        if (key == row.key && (families & row.families))
            return &row;
    return nullptr;
}

struct profile_entry {
    string name, value;
    int line;
};

struct profile_file {
    string file, module;
    int module_line = 0;
    std::vector<profile_entry> entries;
};

class checker
{
  public:
    void check_folder(const std::filesystem::path& folder);
    std::vector<finding> take() { return std::move(findings_); }
    std::vector<string> modules() const;

  private:
    void say(const string& file, int line, string text)
    {
        findings_.push_back({file, line, std::move(text)});
    }
    void read_file(const std::filesystem::path& path);
    void read_line(profile_file& profile, string_view line, int number);
    void read_module(profile_file& profile, string_view value, int number);
    void check_shared_start();
    void check_profile(const profile_file& profile);
    void check_value(const profile_file& profile, const profile_entry& entry, const known_key& key,
                     unsigned families);

    std::vector<profile_file> profiles_;
    std::vector<finding> findings_;
};

string in_quotes(string_view text)
{
    return "'" + string(text) + "'";
}

string_view trim_head(string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return text;
}

string_view trim_tail(string_view text)
{
    const size_t last = text.find_last_not_of(" \t\n");
    return last == string_view::npos ? string_view() : text.substr(0, last + 1);
}

void checker::check_folder(const std::filesystem::path& folder)
{
    std::error_code fault;
    std::vector<std::filesystem::path> paths;
    for (std::filesystem::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault))
        if (entry->path().filename().string().find(".conf") != string::npos)
            paths.push_back(entry->path());
    if (fault)
        return say("", 0, "the folder cannot be read: " + fault.message());
    if (paths.empty())
        return say("", 0, "no file has .conf in its name: no module finds its commands");

    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths)
        read_file(path);
    check_shared_start();
    for (const profile_file& profile : profiles_)
        check_profile(profile);
    std::stable_sort(findings_.begin(), findings_.end(), [](const finding& a, const finding& b) {
        return std::tie(a.file, a.line) < std::tie(b.file, b.line);
    });
}

std::vector<string> checker::modules() const
{
    std::vector<string> found;
    for (const profile_file& profile : profiles_)
        if (!profile.module.empty())
            found.push_back(profile.module);
    return found;
}

void checker::read_file(const std::filesystem::path& path)
{
    profile_file profile;
    profile.file = path.filename().string();
    std::error_code fault;
    std::ifstream in; // a pipe without a writer would hold its open for good
    if (std::filesystem::is_regular_file(path, fault))
        in.open(path, std::ios::binary);
    if (!in.is_open())
        return say(profile.file, 0, "not a file that can be read");

    string line;
    for (int number = 1; std::getline(in, line); number++) {
        if (line.size() > longest_line) {
            say(profile.file, number,
                "longer than " + std::to_string(longest_line) +
                    " characters: it reads as two lines");
            line.resize(longest_line);
        }
        read_line(profile, line, number);
    }
    profiles_.push_back(std::move(profile));
}

void checker::read_line(profile_file& profile, string_view line, int number)
{
    if (line.find('\0') != string_view::npos)
        return say(profile.file, number, "holds a NUL: the line ends there");
    line = trim_tail(line);
    const size_t arrow = line.find("=>");
    if (arrow == string_view::npos)
        return;
    if (line.back() == '\r') {
        say(profile.file, number, "ends in a CR, which becomes part of the value: save with LF");
        line = trim_tail(line.substr(0, line.size() - 1));
        if (line.size() < arrow + 2)
            return;
    }
    if (trim_head(line).starts_with('#'))
        say(profile.file, number, "a comment that holds '=>' reads as a command");
    if (arrow == 0)
        return say(profile.file, number, "a name is missing ahead of '=>'");

    // The library drops the one character ahead of the arrow, whatever it is.
    const char before = line[arrow - 1];
    if (before != ' ' && before != '\t')
        say(profile.file, number,
            "a blank is missing ahead of '=>': the name loses its last letter");
    const string_view value = trim_head(line.substr(arrow + 2));
    const string_view name = trim_tail(trim_head(line.substr(0, arrow - 1)));
    if (trim_head(line).starts_with("MODULE")) {
        if (line.starts_with(' ') || line.starts_with('\t'))
            say(profile.file, number, "MODULE has to stand at the start of its line");
        if (name != "MODULE")
            say(profile.file, number, in_quotes(name) + " counts as a MODULE line");
        return read_module(profile, value, number);
    }
    if (name.empty())
        return say(profile.file, number, "a name is missing ahead of '=>'");
    profile.entries.push_back({string(name), string(value), number});
}

void checker::read_module(profile_file& profile, string_view value, int number)
{
    if (profile.module_line != 0)
        say(profile.file, number,
            "a second MODULE line replaces that of line " + std::to_string(profile.module_line));
    if (value.empty())
        say(profile.file, number, "MODULE has no value");
    else if (value.size() > longest_model)
        say(profile.file, number,
            "MODULE is longer than any model text, " + std::to_string(longest_model) +
                " characters");
    profile.module = value;
    profile.module_line = number;
}

// Of two files that share four characters, the one that the folder lists first serves both models.
void checker::check_shared_start()
{
    std::map<string, string> first;
    for (const profile_file& profile : profiles_) {
        if (profile.module.empty())
            continue;
        const auto [other, is_new] = first.emplace(profile.module.substr(0, 4), profile.file);
        if (!is_new)
            say(profile.file, profile.module_line,
                "MODULE " + in_quotes(profile.module) + " shares its first four characters with " +
                    other->second + ": one file of the two is never used");
    }
}

void checker::check_profile(const profile_file& profile)
{
    const unsigned families = families_of(profile.module);
    if (profile.module_line == 0)
        say(profile.file, 0, "no MODULE line: no model finds this file");
    else if (!profile.module.empty() && families == 0)
        say(profile.file, profile.module_line,
            "no flow is known for a model like " + in_quotes(profile.module));

    std::map<string_view, int> seen;
    for (const profile_entry& entry : profile.entries) {
        const known_key* key = find_key(entry.name);
        if (key == nullptr) {
            say(profile.file, entry.line, "unknown key " + in_quotes(entry.name));
            continue;
        }
        const auto [first, is_new] = seen.emplace(key->name, entry.line);
        if (!is_new)
            say(profile.file, entry.line,
                entry.name + " stands in line " + std::to_string(first->second) +
                    " already, which wins");
        check_value(profile, entry, *key, families);
    }
    for (const known_key& key : keys)
        if ((key.families & families) && !seen.count(key.name) &&
            !find_left_out(key.name, families))
            say(profile.file, 0, string(key.name) + " is missing: a flow of this module sends it");
}

// The placeholders of a value. A $ that opens a vendor's command, as in AT$QCPDPP, is none.
std::vector<string_view> placeholders(string_view value)
{
    std::vector<string_view> found;
    bool command_start = true; // up to the first character behind AT, + or ;
    for (size_t at = 0; at < value.size(); at++) {
        const char c = value[at];
        if (c == '$' && !(command_start && at != 0)) {
            size_t end = at + 1;
            while (end < value.size() &&
                   (std::isupper(static_cast<unsigned char>(value[end])) ||
                    std::isdigit(static_cast<unsigned char>(value[end])) || value[end] == '_'))
                end++;
            found.push_back(value.substr(at, end - at));
        }
        const bool is_attention = at < 2 && (c == 'A' || c == 'a' || c == 'T' || c == 't');
        command_start = c == ';' || is_attention;
    }
    return found;
}

void checker::check_value(const profile_file& profile, const profile_entry& entry,
                          const known_key& key, unsigned families)
{
    const string_view value = entry.value;
    if (value.empty())
        return say(profile.file, entry.line, entry.name + " has no value");
    for (const char c : value)
        if (c < 0x20 || c > 0x7e)
            return say(profile.file, entry.line,
                       entry.name + " holds a character that no AT command may hold");

    // On this module the value of the placeholder is a whole command.
    const bool whole_command = entry.name == "AT_NETWORK_AUTO" && families == balong;
    if (whole_command && value != key.placeholder)
        return say(profile.file, entry.line,
                   entry.name + " has to be " + key.placeholder +
                       " alone: what replaces it is a whole command");
    if (!whole_command && value.substr(0, 2) != "AT" && value.substr(0, 2) != "at")
        say(profile.file, entry.line, entry.name + " does not begin with AT");

    const left_out_key* out = find_left_out(entry.name, families);
    int uses = 0;
    for (const string_view placeholder : placeholders(value)) {
        if (key.placeholder == nullptr || placeholder != key.placeholder)
            say(profile.file, entry.line,
                entry.name + " holds " + string(placeholder) + ", which nothing replaces here" +
                    (key.placeholder ? string(" (its placeholder is ") + key.placeholder + ")"
                                     : string()));
        else if (out != nullptr && out->unfilled)
            say(profile.file, entry.line,
                entry.name + " would send " + key.placeholder + " as it stands: " + out->reason);
        else
            uses++;
    }
    if (uses > 1)
        say(profile.file, entry.line,
            entry.name + " holds " + key.placeholder + " twice: a long value is cut");
    if (uses == 0 && key.placeholder != nullptr && out == nullptr &&
        value.find(key.placeholder) == string_view::npos)
        say(profile.file, entry.line,
            entry.name + " lacks " + key.placeholder + ", so it would never be sent");
}

} // namespace

std::vector<finding> check_profiles(const std::filesystem::path& folder)
{
    checker all;
    all.check_folder(folder);
    return all.take();
}

std::vector<std::string> profile_modules(const std::filesystem::path& folder)
{
    checker all;
    all.check_folder(folder);
    return all.modules();
}

std::vector<std::string> known_keys()
{
    std::vector<std::string> names;
    for (const auto& key : keys)
        names.emplace_back(key.name);
    return names;
}

key_facts facts_of(std::string_view module, std::string_view key)
{
    const unsigned families = families_of(module);
    const auto* const known = find_key(key);
    const auto* const out = find_left_out(key, families);
    return {known->placeholder != nullptr ? known->placeholder : "",
            (known->families & families) != 0, out != nullptr && out->unfilled};
}

} // namespace kelo_host
