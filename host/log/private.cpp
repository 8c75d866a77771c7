// SPDX-License-Identifier: MIT
#include "host/log/private.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace kelo_host
{

namespace
{

constexpr size_t npos = std::string_view::npos;
constexpr size_t least_identity = 14, most_identity = 22;
constexpr const char* hidden = hidden_line;

// What stands behind the mark is hidden, but for so many commas and what is ahead of them.
struct pattern {
    std::string_view mark;
    int shown;
};

// What fields of objects are private, and the lines of this program that begin with their names.
enum class kind {
    secret,   // never shown
    identity, // by its last two digits
    text,
    figure
};
struct private_field {
    std::string_view name;
    kind what;
};
// clang-format off
constexpr private_field private_fields[] = {
    {"pin", kind::secret}, {"password", kind::secret},
    {"imsi", kind::identity}, {"iccid", kind::identity}, {"serial", kind::identity},
    {"number", kind::text}, {"caller", kind::text}, {"sender", kind::text}, {"destination", kind::text},
    {"recipient", kind::text}, {"text", kind::text}, {"data", kind::text}, {"payload", kind::text},
    {"latitude", kind::figure}, {"longitude", kind::figure}, {"altitude_m", kind::figure}};
// clang-format on

const private_field* private_field_named(std::string_view name)
{
    const auto one = std::find_if(std::begin(private_fields), std::end(private_fields),
                                  [&](const private_field& row) { return row.name == name; });
    return one == std::end(private_fields) ? nullptr : one;
}

// Whatever the case of the letters is. Passwords stand behind an APN: where a module has one field
// less than another, the APN goes too.
// clang-format off
constexpr pattern secrets[] = {
    {"+CPIN=", 0}, {"+CPIN2=", 0}, {"+CPWD=", 0}, {"+CLCK=", 0}, {"pin = ", 0}, {"quectel-CM -", 0},
    {"+QICSGP=", 2}, {"+QICSGP:", 2}, {"$QCPDPP=", 2}, {"$QCPDPP:", 2}, {"AUTH=", 2}, {"AUTH:", 2},
    {"AUTHDATA=", 2}, {"AUTHDATA:", 2}, {"AUTHREQ=", 2}, {"AUTHREQ:", 2}, {"+QMTCONN=", 1}, {"+QMTCFG=", 2}};

constexpr pattern personal[] = {
    // commands
    {"+CMGS=\"", 0}, {"+CMGW=\"", 0}, {"+CSCA=", 0}, {">>> ATD", 0}, {") ATD", 0}, {"'ATD", 0}, {"+CUSD=", 0},
    {"+CPBW=", 0}, {"+CNMA=", 0},
    // answers and reports
    {"+CMT:", 0}, {"+CMGR:", 0}, {"+CMGL:", 0}, {"+CDS:", 0}, {"+CBM:", 0}, {"+CLIP:", 0}, {"+CNUM:", 0},
    {"+CSCA:", 0}, {"+CCWA:", 0}, {"+COLP:", 0}, {"+CLCC:", 0}, {"^DSCI:", 0}, {"+CPBR:", 0}, {"+CPBF:", 0},
    {"+CUSD:", 0}, {"+CIMI:", 0}, {"CCID:", 0}, {"+CGSN:", 0}, {"+QMTRECV:", 3}, {"+QGPSLOC:", 0},
    // what the library makes of them
    {"imsi='", 0}, {"iccid='", 0}, {"sn='", 0}, {"number='", 0}, {"callingnum='", 0}, {"sms_center='", 0},
    {"gps='", 0}, {"+QGPSLOC:", 0},
    {"SMSC Number = ", 0}, {"Sender Number = ", 0}, {"User data = ", 0}, {"User data 8bit = ", 0},
    {"The User Data Header (", 0}, {"SCA   : (", 0}, {"DA    : (", 0}, {"PDU   : (", 0}, {"UD    : (", 0},
    {"PDU too short:", 0}, {"a status report can't be read:", 0}};

// Behind these comes a message's body.
constexpr std::string_view heads[] = {"+CMT:", "+CMGR:", "+CMGL:", "+CDS:", "+CBM:"};

// A body has no mark of its own: behind a head all is hidden but what begins so,
constexpr std::string_view own_begins[] = {
    "[Cell", "[4G]", "[SEQ", "[SMS]", "[ERROR]", "keeper: ", "sms: ", "GSM Event", "-START-", "------", "kelo_",
    "a message is ", "a status report ", "PDU too short:", "no room ", "no memory "};
// and in the block of a message these of its rows.
constexpr std::string_view open_rows[] = {"Time    : ", "Mode    : ", "Length  : ", "SMS Time: ", "-START-"};

// A line of this program that begins so has something private behind the mark, up to a character.
struct own_pattern {
    std::string_view begin, mark;
    char until;
};
constexpr own_pattern own_patterns[] = {
    {"message from ", "message from ", 0}, {"  | ", "  | ", 0}, {"message ", " to ", ':'},
    {"GPS: 0", "GPS: ", 0}, {"GPS: 1", "GPS: ", 0}, {"GPS: 2", "GPS: ", 0}, // an hour begins a position
    {"report on message", " to ", ','}, {"ICCID, IMSI ", "ICCID, IMSI   ", 0}, {"SIM ", "  number ", 0},
    {"Serial, port ", "Serial, port  ", ' '}};
// clang-format on

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_hex(char c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

size_t find_mark(std::string_view line, std::string_view mark)
{
    const auto same = [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) ==
               std::toupper(static_cast<unsigned char>(b));
    };
    const auto at = std::search(line.begin(), line.end(), mark.begin(), mark.end(), same);
    return at == line.end() ? npos : static_cast<size_t>(at - line.begin());
}

template <size_t count> bool begins(std::string_view line, const std::string_view (&marks)[count])
{
    return std::any_of(marks, marks + count, [&](auto mark) { return line.starts_with(mark); });
}

// "exec_at_command:90 ..."
bool is_placed(std::string_view line)
{
    const size_t colon =
        line.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_");
    if (colon == npos || colon == 0 || line[colon] != ':')
        return false;
    const size_t end = line.find_first_not_of("0123456789", colon + 1);
    return end != npos && end > colon + 1 && line[end] == ' ';
}

bool is_own(std::string_view line)
{
    return begins(line, own_begins) || is_placed(line);
}

// Where the first of the patterns begins to hide.
template <size_t count> size_t first_cut(std::string_view line, const pattern (&patterns)[count])
{
    size_t first = npos;
    for (const pattern& one : patterns) {
        size_t at = find_mark(line, one.mark);
        if (at == npos)
            continue;
        at += one.mark.size();
        for (int left = one.shown; left > 0 && at != npos; left--) {
            at = line.find(',', at);
            at = at == npos ? npos : at + 1;
        }
        first = std::min(first, at);
    }
    return first;
}

// Numbers and hexadecimal texts wherever they stand.
std::string mask_runs(std::string_view line)
{
    constexpr size_t least_number = 7, least_hex = 16;
    std::string clean;
    for (size_t at = 0; at < line.size();) {
        const auto end_of = [&](bool (*is)(char), size_t from) {
            return static_cast<size_t>(
                std::find_if_not(line.begin() + static_cast<long>(from), line.end(), is) -
                line.begin());
        };
        const bool plus = line[at] == '+';
        const size_t start = at + plus;
        const size_t digits = end_of(is_digit, start) - start;
        const size_t length = end_of(is_hex, start) - start;
        if (!plus && is_identity(digits, length))
            clean += hidden + std::string(line.substr(start + digits - 2, 2));
        else if (digits >= least_identity || length >= least_hex ||
                 (plus && digits >= least_number))
            clean += hidden;
        else
            clean += line.substr(at, std::max<size_t>(plus + length, 1));
        at = std::max(start + length, at + 1);
    }
    return clean;
}

// What is behind the cut, an identity in quotes by its last two digits.
std::string mask_behind(std::string_view line, size_t cut)
{
    const std::string_view value = line.substr(cut);
    const size_t from = value.find_first_not_of(" '\"");
    if (from == npos)
        return std::string(line); // nothing is there
    const std::string_view bare = value.substr(from, value.find_last_not_of(" '\"") - from + 1);
    const bool is_number = std::all_of(bare.begin(), bare.end(), is_digit);
    std::string masked = is_number && bare.size() <= 22 ? mask_runs(bare) : hidden;
    if (!masked.starts_with(hidden))
        masked = hidden;
    return mask_runs(line.substr(0, cut + from)) + masked;
}

// Where the modem's part of a line of the dialogue begins.
size_t dialogue_text(std::string_view line)
{
    const size_t end = line.find(']');
    if (end == npos || (!line.starts_with("[SEQ") && !line.starts_with("[SMS]")))
        return npos;
    const std::string_view arrow = line.substr(end + 1);
    if (!arrow.starts_with(">>> ") && !arrow.starts_with("<<<(") && !arrow.starts_with("---><<< "))
        return npos;
    return line.find(' ', end) + 1;
}

} // namespace

bool is_identity(size_t digits, size_t hex)
{
    return digits >= least_identity && digits <= most_identity && digits + 1 >= hex;
}

size_t secret_from(std::string_view line)
{
    return first_cut(line, secrets);
}

size_t personal_from(std::string_view line)
{
    return first_cut(line, personal);
}

bool is_message_head(std::string_view line)
{
    return begins(line, heads);
}

// An end of an answer says nothing of the message that may have been ahead of it.
bool is_result(std::string_view text)
{
    if (text == "OK" || text == "ERROR" || text == "> ")
        return true;
    for (const std::string_view mark : {"+CMS ERROR: ", "+CME ERROR: ", "+CMGS: "})
        if (text.starts_with(mark))
            return text.size() <= mark.size() + 3 &&
                   std::all_of(text.begin() + static_cast<long>(mark.size()), text.end(), is_digit);
    return false;
}

std::string line_mask::apply(std::string_view line)
{
    const size_t secret = first_cut(line, secrets);
    if (show_)
        return secret == npos ? std::string(line) : std::string(line.substr(0, secret)) + hidden;

    const size_t text_at = dialogue_text(line);
    const bool is_sent = text_at != npos && line.substr(0, text_at).ends_with(">>> ");
    if (is_sent) {
        dialogue_ = std::exchange(body_next_, false);
        block_ = false;
        if (dialogue_)
            return std::string(line.substr(0, text_at)) + hidden;
        body_next_ = find_mark(line, "+CMGS=") != npos || find_mark(line, "+CMGW=") != npos;
    } else if (text_at != npos) {
        const std::string_view text = line.substr(text_at);
        if (begins(text, heads))
            dialogue_ = true;
        else if (dialogue_ && !is_result(text))
            return std::string(line.substr(0, text_at)) + hidden;
    } else if (line == "-START-") {
        block_ = true;
        at_end_ = false;
    } else if (block_ && at_end_ && line == "-END-") {
        block_ = false;
        return std::string(line);
    } else if (block_) {
        at_end_ |= line.starts_with("PDU     :"); // a text may hold an -END- of its own
        if (!begins(line, open_rows) && !is_own(line))
            return hidden;
    } else if (dialogue_ && !is_own(line)) {
        return hidden;
    } else if (line.starts_with("User data 8bit = ")) {
        block_ = true; // the text goes on, and the block follows
    }

    const size_t cut = std::min(secret, first_cut(line, personal));
    if (cut == npos)
        return mask_runs(line);
    return cut == secret ? mask_runs(line.substr(0, cut)) + hidden : mask_behind(line, cut);
}

std::string mask_own_line(std::string_view line)
{
    // A change of a field, "name: old -> new".
    const size_t colon = line.find(": ");
    if (colon != npos && private_field_named(line.substr(0, colon)) != nullptr) {
        constexpr std::string_view none = "- -> ";
        const size_t at = colon + 2;
        return mask_behind(line, line.substr(at).starts_with(none) ? at + none.size() : at);
    }
    for (const own_pattern& one : own_patterns) {
        const size_t at = line.find(one.mark);
        if (!line.starts_with(one.begin) || at == npos)
            continue;
        const size_t from = at + one.mark.size();
        const size_t end = one.until == 0 ? npos : line.find(one.until, from);
        return mask_behind(line.substr(0, end), from) +
               std::string(end == npos ? "" : line.substr(end));
    }
    return mask_runs(line);
}

namespace
{

json_value masked_value(const json_value& value, const private_field* field)
{
    if (value.is_array()) {
        json_value clean = json_value::array();
        for (const json_value& one : value)
            clean.push_back(masked_value(one, field));
        return clean;
    }
    if (value.is_object()) {
        json_value clean = json_value::object();
        for (const auto& [name, one] : value.items()) {
            const private_field* const own = private_field_named(name);
            if (own == nullptr || own->what != kind::secret)
                clean[name] = masked_value(one, own != nullptr ? own : field);
        }
        return clean;
    }
    if (value.is_string() && field != nullptr)
        return field->what == kind::identity ? mask_behind(value.get<std::string>(), 0) : hidden;
    if (value.is_string())
        return mask_own_line(value.get<std::string>());
    // Counts and numbers of messages are nobody's.
    return field != nullptr && field->what == kind::figure ? json_value(nullptr) : value;
}

} // namespace

json_value masked(const json_value& object)
{
    return masked_value(object, nullptr);
}

} // namespace kelo_host
