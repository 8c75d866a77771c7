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

// By the first four characters, as the library finds the file of a model. Of several names the
// first only recognises a module, and its variants have the flows.
struct known_module {
    string_view names;
    unsigned families;   // 0: recognised, and no flow is known
    bool revision_names; // the revision begins with the variant, so a model may say more than that
};
constexpr known_module modules[] = {
    {"EC20 EC20CE EC20C EC20F", quectel_lte | quectel_lte_sms, true},
    {"EC21 EC21E EC21V EC21AUTL EC21AUT EC21AU EC21A EC21J EC21KT EC21CL",
     quectel_lte | quectel_lte_sms, true},
    {"EC25 EC25AU EC25AF EC25A EC25E EC25J EC25V", quectel_lte | quectel_lte_sms | ec25v, true},
    {"EG25", quectel_lte, true},
    {"EG95", quectel_lte, true},
    {"EP06", quectel_lte, true},
    {"UC15", quectel_umts | unmasked, true},
    {"UC20", quectel_umts | unmasked, true},
    {"U9300C", longsung, false},
    {"E9720", longsung | unmasked, false},
    {"LE910", telit | unmasked, false},
    {"V1.0.1-B7", unisoc, false},
    {"RM500 RM500Q", quectel_5g, true},
    {"RM510 RM510Q", quectel_5g, true},
    {"RG500 RG500Q", quectel_5g, true},
    {"RG510 RG510Q", quectel_5g, true},
    {"MH5000 MH5000-31", balong, false},
    {"Quectel_M35", 0, false},
};

std::vector<string_view> names_of(const known_module& module)
{
    std::vector<string_view> names;
    for (size_t at = 0; at < module.names.size();) {
        const size_t end = std::min(module.names.find(' ', at), module.names.size());
        names.push_back(module.names.substr(at, end - at));
        at = end + 1;
    }
    return names;
}

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
constexpr size_t family = 4;    // characters that a profile and its models share
constexpr int most_files = 256; // of a folder
constexpr size_t largest_file = 256 * 1024;
constexpr const char* file_keys[] = {"MODULE", "MODEL", "LIKE"};

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
        if (module.substr(0, family) == known.names.substr(0, family))
            return known.families;
    return 0;
}

// Of a module that a file brings: those of the one variant, and no mask.
unsigned families_like(string_view like)
{
    const unsigned families = families_of(like);
    return (like == "EC25V" ? unsigned{ec25v} : families & ~unsigned{ec25v}) |
           (families != 0 ? unsigned{unmasked} : 0u);
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
    std::filesystem::path folder;
    string file, module;
    int module_line = 0;
    std::vector<profile_entry> entries;
    string comments; // a key that is named there is left out on purpose

    const profile_entry* find(string_view name) const
    {
        for (const profile_entry& entry : entries)
            if (entry.name == name)
                return &entry;
        return nullptr;
    }
};

class checker
{
  public:
    void check_folder(const std::filesystem::path& folder, bool may_be_empty);
    std::vector<finding> take() { return std::move(findings_); }
    bool serves(string_view model) const;

  private:
    void say(const string& file, int line, string text)
    {
        findings_.push_back({folder_, file, line, std::move(text)});
    }
    void read_file(const std::filesystem::path& path);
    void read_line(profile_file& profile, string_view line, int number);
    void read_module(profile_file& profile, string_view value, int number);
    void check_shared_start();
    void check_shared_model();
    string pair_fault(const profile_file& profile) const;
    bool brings_module(const profile_file& profile) const { return pair_fault(profile).empty(); }
    void check_names(const profile_file& profile);
    void check_profile(const profile_file& profile);
    void check_value(const profile_file& profile, const profile_entry& entry, const known_key& key,
                     unsigned families);

    std::filesystem::path folder_;       // the one that is looked at
    std::vector<profile_file> profiles_; // of all folders
    size_t first_ = 0;                   // of this one
    std::vector<finding> findings_;
};

string in_quotes(string_view text)
{
    return "'" + string(text) + "'";
}

// Whether the word stands there whole.
bool names_word(string_view text, string_view word)
{
    const auto is_letter = [&](size_t at) {
        return at < text.size() &&
               (std::isalnum(static_cast<unsigned char>(text[at])) || text[at] == '_');
    };
    for (size_t at = 0; (at = text.find(word, at)) != string_view::npos; at++)
        if (!is_letter(at + word.size()) && (at == 0 || !is_letter(at - 1)))
            return true;
    return false;
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

void checker::check_folder(const std::filesystem::path& folder, bool may_be_empty)
{
    folder_ = folder;
    first_ = profiles_.size();
    const auto before = static_cast<std::ptrdiff_t>(findings_.size());
    std::error_code fault;
    std::vector<std::filesystem::path> paths;
    int count = 0;
    for (std::filesystem::directory_iterator entry(folder, fault), end; !fault && entry != end;
         entry.increment(fault)) {
        const string name = entry->path().filename().string();
        if (name.find(".conf") == string::npos)
            continue;
        if (++count > most_files) // in the order of the system, which is that of the library
            say(name, 0,
                "is never read: no more than " + std::to_string(most_files) +
                    " files of a folder are, as the system lists them");
        else
            paths.push_back(entry->path());
    }
    if (fault)
        return say("", 0, "the folder cannot be read: " + fault.message());
    if (paths.empty() && !may_be_empty)
        return say("", 0, "no file has .conf in its name: no module finds its commands");

    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths)
        read_file(path);
    check_shared_start();
    check_shared_model();
    for (size_t at = first_; at < profiles_.size(); at++)
        check_profile(profiles_[at]);
    std::stable_sort(findings_.begin() + before, findings_.end(),
                     [](const finding& a, const finding& b) {
                         return std::tie(a.file, a.line) < std::tie(b.file, b.line);
                     });
}

bool checker::serves(string_view model) const
{
    for (const profile_file& profile : profiles_) {
        const string_view module = profile.module;
        if (!module.empty() &&
            (module == model || (module.size() >= family && model.size() >= family &&
                                 module.substr(0, family) == model.substr(0, family))))
            return true;
        if (brings_module(profile) && model.starts_with(profile.find("MODEL")->value))
            return true;
    }
    return false;
}

void checker::read_file(const std::filesystem::path& path)
{
    profile_file profile;
    profile.folder = folder_;
    profile.file = path.filename().string();
    std::error_code fault;
    std::ifstream in; // a pipe without a writer would hold its open for good
    if (std::filesystem::is_regular_file(path, fault))
        in.open(path, std::ios::binary);
    if (!in.is_open())
        return say(profile.file, 0, "not a file that can be read");

    string line;
    size_t size = 0;
    for (int number = 1; std::getline(in, line); number++) {
        size += line.size() + 1;
        if (size > largest_file) {
            say(profile.file, number, "the file is larger than 256 KiB: the rest is never read");
            break;
        }
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
    if (arrow == string_view::npos) {
        profile.comments += string(line) + "\n";
        return;
    }
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
    for (size_t at = first_; at < profiles_.size(); at++) {
        const profile_file& profile = profiles_[at];
        if (profile.module.empty())
            continue;
        const auto [other, is_new] = first.emplace(profile.module.substr(0, family), profile.file);
        if (!is_new)
            say(profile.file, profile.module_line,
                "MODULE " + in_quotes(profile.module) + " shares its first four characters with " +
                    other->second + ": one file of the two is never used");
    }
}

// The same for two that bring one module.
void checker::check_shared_model()
{
    std::map<string, string> first;
    for (size_t at = first_; at < profiles_.size(); at++) {
        const profile_file& profile = profiles_[at];
        if (!brings_module(profile))
            continue;
        const profile_entry& model = *profile.find("MODEL");
        const auto [other, is_new] = first.emplace(model.value, profile.file);
        if (!is_new)
            say(profile.file, model.line,
                "MODEL " + in_quotes(model.value) + " stands in " + other->second +
                    " as well: the one that the system lists first is used");
    }
}

// Why the file brings no module of its own; empty for one that does.
string checker::pair_fault(const profile_file& profile) const
{
    const profile_entry* const model = profile.find("MODEL");
    const profile_entry* const like = profile.find("LIKE");
    if (model == nullptr || like == nullptr)
        return like != nullptr    ? "LIKE stands without MODEL"
               : model != nullptr ? "MODEL stands without LIKE"
                                  : "neither MODEL nor LIKE";
    if (const string fault = model_fault(model->value); !fault.empty())
        return fault;
    if (!names_module(like->value))
        return "LIKE " + in_quotes(like->value) + " is no module whose flow is known";
    return "";
}

void checker::check_names(const profile_file& profile)
{
    const profile_entry* const model = profile.find("MODEL");
    const profile_entry* const like = profile.find("LIKE");
    const bool tries = model != nullptr || like != nullptr;
    const string fault = pair_fault(profile);
    if (tries && !fault.empty())
        say(profile.file, (fault.starts_with("LIKE") || model == nullptr ? like : model)->line,
            fault + ": the file brings no module of its own");
    if (tries && fault.empty() && has_flow(model->value))
        say(profile.file, model->line,
            "a module that calls itself " + in_quotes(model->value) +
                " has a flow without this file, which wins");
    if (profile.module_line == 0 && !tries)
        say(profile.file, 0, "no MODULE line: no model finds this file");
    else if (!profile.module.empty() && !has_flow(profile.module) && !fault.empty())
        say(profile.file, profile.module_line,
            "no flow is known for a model like " + in_quotes(profile.module) +
                ": it needs MODEL and LIKE");
}

void checker::check_profile(const profile_file& profile)
{
    const bool brings = brings_module(profile);
    const unsigned families =
        brings ? families_like(profile.find("LIKE")->value) : families_of(profile.module);
    check_names(profile);

    std::map<string_view, int> seen;
    for (const profile_entry& entry : profile.entries) {
        const known_key* key = find_key(entry.name);
        const bool names = entry.name == "MODEL" || entry.name == "LIKE";
        if (key == nullptr && !names) {
            say(profile.file, entry.line, "unknown key " + in_quotes(entry.name));
            continue;
        }
        const auto [first, is_new] = seen.emplace(entry.name, entry.line);
        if (!is_new)
            say(profile.file, entry.line,
                entry.name + " stands in line " + std::to_string(first->second) +
                    " already, which wins");
        if (!names)
            check_value(profile, entry, *key, families);
    }
    for (const known_key& key : keys)
        if ((key.families & families) && !seen.count(key.name) &&
            !find_left_out(key.name, families) && !names_word(profile.comments, key.name))
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
                entry.name + " holds " + key.placeholder +
                    ", which nothing replaces: " + out->reason);
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

folder_list profile_folders()
{
    folder_list folders = {KELO_PROFILE_DIR};
    std::error_code fault;
    if (std::filesystem::exists(KELO_OWN_PROFILE_DIR, fault))
        folders.insert(folders.begin(), KELO_OWN_PROFILE_DIR);
    return folders;
}

std::vector<finding> check_profiles(const folder_list& folders)
{
    checker all;
    for (const auto& folder : folders)
        all.check_folder(folder, folder != folders.back()); // an owner's own may be
    return all.take();
}

bool profile_serves(const folder_list& folders, std::string_view model)
{
    checker all;
    for (const auto& folder : folders)
        all.check_folder(folder, folder != folders.back()); // an owner's own may be
    return all.serves(model);
}

bool names_module(std::string_view name)
{
    for (const known_module& module : modules)
        for (const string_view known : names_of(module))
            if (name == known && module.families != 0)
                return true;
    return false;
}

bool takes_away(std::string_view model)
{
    for (const known_module& module : modules)
        for (const string_view known : names_of(module))
            if (known.starts_with(model))
                return true;
    return false;
}

bool has_flow(std::string_view model)
{
    string whole(model); // as a revision has it, without the hyphen of RM500Q-GL
    std::erase(whole, '-');
    for (const known_module& module : modules) {
        const auto names = names_of(module);
        for (size_t at = 0; at < names.size() && module.families != 0; at++)
            if ((model.size() >= family && names[at].starts_with(model)) ||
                (module.revision_names && (at > 0 || names.size() == 1) &&
                 whole.starts_with(names[at])))
                return true;
    }
    return false;
}

string model_fault(string_view model)
{
    const auto is_odd = [](char c) {
        return c < ' ' || c > '~' || string_view("+:\",").find(c) != string_view::npos;
    };
    if (model.empty())
        return "MODEL has no value";
    if (model.size() < family || model.size() > longest_model)
        return "MODEL takes " + std::to_string(family) + " to " + std::to_string(longest_model) +
               " characters";
    if (std::any_of(model.begin(), model.end(), is_odd) || model.starts_with("AT") ||
        model.find("OK") != model.npos || model.find("ERROR") != model.npos)
        return "no answer to AT+CGMM begins with MODEL " + in_quotes(model);
    if (takes_away(model))
        return "MODEL " + in_quotes(model) +
               " would take away a module that is known without a file";
    return "";
}

std::vector<std::string> known_file_keys()
{
    return {std::begin(file_keys), std::end(file_keys)};
}

std::vector<std::string> known_keys()
{
    std::vector<std::string> names;
    for (const auto& key : keys)
        names.emplace_back(key.name);
    return names;
}

static key_facts facts(unsigned families, std::string_view key)
{
    const auto* const known = find_key(key);
    const auto* const out = find_left_out(key, families);
    return {known->placeholder != nullptr ? known->placeholder : "",
            (known->families & families) != 0, out != nullptr && out->unfilled};
}

key_facts facts_of(std::string_view module, std::string_view key)
{
    return facts(families_of(module), key);
}

key_facts facts_of_like(std::string_view like, std::string_view key)
{
    return facts(families_like(like), key);
}

} // namespace kelo_host
