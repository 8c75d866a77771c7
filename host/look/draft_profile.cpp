// SPDX-License-Identifier: MIT
#include "host/look/draft_profile.h"

#include "host/look/check_profiles.h"
#include "host/state/reasons.h"
#include "host/text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <set>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

using std::string;
using std::string_view;

constexpr size_t longest_comment = 110;
constexpr size_t longest_model = 15;
constexpr int patience = 3;         // a modem that has fallen silent is asked no more
constexpr size_t most_listed = 400; // commands of AT+CLAC that are looked at

// ---- What profiles hold

// A flow is chosen by the first of these forms that the module knows.
struct kin_row {
    const char* form;
    const char* word; // that the answer has to hold; null for any
    const char* like;
};
constexpr kin_row kin[] = {
    {"AT+QNWPREFCFG=?", nullptr, "RM500Q"},  {"AT+QCFG=?", "nwscanmode", "EC25"},
    {"AT^SYSCFGEX=?", nullptr, "MH5000-31"}, {"AT+MODODR=?", nullptr, "U9300C"},
    {"AT#RFSTS=?", nullptr, "LE910"},
};
constexpr const char* plainest = "UC20"; // asks for the least that is a vendor's own

// What a key may hold, the best first. `word` as above; `like` where it fits one flow alone.
struct candidate_row {
    const char* key;
    const char* command;
    const char* word = nullptr;
    const char* like = nullptr;
};
// clang-format off
constexpr candidate_row candidates[] = {
    {"AT_SEL_SIMSLOT",        "AT+QUIMSLOT=$NUM"},
    {"AT_SEND_PIN",           "AT+CPIN=\"$PIN_NUMBER\""},
    {"AT_GET_ICCID",          "AT+QCCID"},
    {"AT_GET_ICCID",          "AT+CICCID"},
    {"AT_GET_ICCID",          "AT#CCID"},
    {"AT_GET_ICCID",          "AT+ICCID"},
    {"AT_GET_ICCID",          "AT^ICCID?"},
    {"AT_GET_ICCID",          "AT+CCID"},
    {"AT_GET_MBN_LIST",       "AT+QMBNCFG=\"List\"", "ist"},
    {"AT_SET_APN",            "AT+QICSGP=$PARAM", nullptr, "RM500Q"},
    {"AT_SET_APN",            "AT+QICSGP=$PARAM", nullptr, "EC25"},
    {"AT_SET_APN",            "AT+CGDCONT=1,\"IP\",$PARAM", nullptr, "U9300C"},
    {"AT_SET_APN",            "AT+CGDCONT=1,$PARAM", nullptr, "MH5000-31"},
    {"AT_SET_USER_PWD",       "AT$QCPDPP=1,$PARAM"},
    {"AT_GET_NETWORK",        "AT+QNWPREFCFG=\"mode_pref\""},
    {"AT_GET_NETWORK",        "AT+QCFG=\"nwscanmode\";+CMGF=0;+CNMI=2,2,0,0,0", "nwscanmode", "EC25"},
    {"AT_GET_NETWORK",        "AT+QCFG=\"nwscanmode\"", "nwscanmode"},
    {"AT_GET_NETWORK",        "AT+MODODR?"},
    {"AT_GET_NETWORK",        "AT^SYSCFGEX?"},
    {"AT_NETWORK_AUTO",       "AT+QNWPREFCFG=\"mode_pref\",$MODE", nullptr, "RM500Q"},
    {"AT_NETWORK_AUTO",       "AT+QCFG=\"nwscanmode\",$MODE,1", "nwscanmode", "EC25"},
    {"AT_NETWORK_AUTO",       "AT+MODODR=$MODE", nullptr, "U9300C"},
    {"AT_NETWORK_AUTO",       "AT+WS46=$MODE", nullptr, "LE910"},
    {"AT_GET_BAND",           "AT+QCFG=\"band\"", "band"},
    {"AT_GET_BAND",           "AT+BNDPRF?"},
    {"AT_SET_NET_SEQ",        "AT+QCFG=\"nwscanseq\",$NET_SEQUENCE,1", "nwscanseq"},
    {"AT_CFUN_MINI",          "AT+CFUN=4", nullptr, "LE910"},
    {"AT_CFUN_MINI",          "AT+CFUN=0"},
    {"AT_CFUN_FULL",          "AT+CFUN=1"},
    {"AT_CLIP_ENABLED",       "AT+CLIP=1"},
    {"AT_CALL_STATE_INIT",    "AT^DSCI=1"},
    {"AT_SET_VOLTE",          "AT+QCFG=\"ims\",$CONF", "ims"},
    {"AT_SMS_SET_CHARSET",    "AT+CSCS=\"GSM\";+CMGF=0;+CNMI=2,2,0,0,0", "GSM", "MH5000-31"},
    {"AT_SMS_SET_CHARSET",    "AT+CSCS=\"GSM\"", "GSM"},
    {"AT_MODE",               "AT+CMGF=0;+CNMI=2,2,0,0,0"},
    {"AT_SET_SMSC",           "AT+CSCA=\"$SCA\""},
    {"AT_SET_NET_URC",        "AT+QINDCFG=\"csq\",1", "csq"},
    {"AT_CHECK_NETWORK",      "AT+QNWINFO"},
    {"AT_CHECK_NETWORK",      "AT^HCSQ?"},
    {"AT_CHECK_NETWORK",      "AT+PSRAT"},
    {"AT_CHECK_NETWORK",      "AT+ZPAS?"},
    {"AT_GET_SERVINGCELL",    "AT+QENG=\"servingcell\"", "servingcell"},
    {"AT_SEND_SMS_TEXT_MODE", "AT+CMGF=1"},
    {"AT_SEND_SMS_PDU_MODE",  "AT+CMGF=0"},
    {"AT_GSM",                "AT+CSCS=\"GSM\"", "GSM"},
    {"AT_UCS2",               "AT+CSCS=\"GSM\"", "GSM"},
    {"AT_SEND_SMS_DES",       "AT+CMGS=\"$SMS_DES\""},
    {"AT_SEND_SMS_LEN",       "AT+CMGS=$SMS_LEN"},
};

struct left_row {
    const char* key;
    const char* why;
};
constexpr left_row left_to_hand[] = {
    {"AT_CBAND",           "the bands of the module are its maker's to tell"},
    {"AT_ACTIVE_CONT",     "the external dialer starts the context"},
    {"AT_AUDIO_PCM_SLAVE", "the wiring of the board decides it"},
};
// clang-format on

// The name of the command alone: AT+QCFG of AT+QCFG="band".
string name_of(string_view command)
{
    return string(command.substr(0, std::min(command.find_first_of("=?;", 2), command.size())));
}

// ---- The drafter

// For a comment: printable, short, and without what would make a command of it.
string in_comment(string_view text)
{
    string clean(text.substr(0, longest_comment));
    for (char& c : clean)
        c = c < ' ' || c > '~' ? '?' : c;
    for (size_t at = 0; (at = clean.find("=>", at)) != string::npos;)
        clean.insert(at + 1, " ");
    return clean;
}

// Without the prefix and the quotes that some modules put around it.
string bare(string_view line)
{
    for (const string_view prefix : {"+CGMM:", "+GMM:", "+CGMR:", "+GMR:", "+CGMI:", "Revision:"})
        if (line.starts_with(prefix))
            line.remove_prefix(prefix.size());
    const size_t first = line.find_first_not_of(" \"");
    const size_t last = line.find_last_not_of(" \"");
    return first == line.npos ? "" : string(line.substr(first, last - first + 1));
}

constexpr const char* not_told = "not told";

class drafter
{
  public:
    explicit drafter(const at_question& ask) : ask_(ask) {}
    profile_draft run();

  private:
    const at_answer& test(const string& form); // asked once
    bool knows(string_view command, const char* word);
    string identity(std::initializer_list<const char*> commands);
    const char* kin_of_module();
    void comment(string_view text);
    void line(string_view key, string_view value);
    void head(const string& model, const string& begin, const char* like);
    string said_of(const string& name, const char* word);
    void key(string_view key, const char* like);
    void rest();

    at_question ask_;
    int silent_ = 0;
    std::map<string, at_answer> asked_;
    std::set<string> listed_;
    string text_;
};

const at_answer& drafter::test(const string& form)
{
    const auto [at, is_new] = asked_.try_emplace(form);
    if (is_new && silent_ < patience) {
        at->second = ask_(form);
        silent_ = at->second.how == at_answer::end::silent ? silent_ + 1 : 0;
    }
    return at->second;
}

// By its test form, or by the module's own list: some commands have no test form.
bool drafter::knows(string_view command, const char* word)
{
    const string name = name_of(command);
    const at_answer& answer = test(name + "=?");
    if (answer.how != at_answer::end::ok)
        return word == nullptr && listed_.contains(name);
    const auto has_word = [&](const string& one) { return one.find(word) != one.npos; };
    return word == nullptr || answer.lines.empty() ||
           std::any_of(answer.lines.begin(), answer.lines.end(), has_word);
}

string drafter::identity(std::initializer_list<const char*> commands)
{
    for (const char* const command : commands)
        for (const string& one : test(command).lines)
            if (const string text = bare(one);
                !text.empty() && text.find_first_of("+:\",") == text.npos)
                return text;
    return not_told;
}

const char* drafter::kin_of_module()
{
    for (const kin_row& row : kin)
        if (knows(row.form, row.word))
            return row.like;
    return plainest;
}

// A long one becomes several, up to four.
void drafter::comment(string_view text)
{
    for (int count = 0; count < 4 && !text.empty(); count++) {
        size_t length = text.size();
        if (length > longest_comment) {
            const size_t blank = text.rfind(' ', longest_comment);
            length = blank == text.npos || blank == 0 ? longest_comment : blank;
        }
        text_ += "# " + in_comment(text.substr(0, length)) + "\n";
        text.remove_prefix(std::min(text.find_first_not_of(' ', length), text.size()));
    }
}

void drafter::line(string_view key, string_view value)
{
    constexpr size_t column = 24;
    text_ += string(key) + string(column - std::min(key.size(), column - 1), ' ') + "=> " +
             string(value) + "\n";
}

void drafter::head(const string& model, const string& begin, const char* like)
{
    comment("Drafted by kelo-host --draft-profile from what the module answers. No command of it "
            "was sent:");
    comment("go through it with docs/profiles.md, send each one by hand, and look at its answer.");
    comment("Maker " + identity({"AT+CGMI", "AT+GMI"}) + ", model " + model + ", revision " +
            identity({"AT+CGMR", "AT+GMR"}));
    if (identity({"AT+CGMR"}) == not_told)
        comment("AT+CGMR tells no revision: without one nothing is sent to the module.");
    text_ += "\n";
    if (has_flow(model)) {
        comment("The library knows this model: its flow goes by the revision.");
        line("MODULE", begin);
    } else {
        comment("MODEL is how the answer to AT+CGMM has to begin, LIKE whose flow is walked.");
        line("MODEL", begin);
        line("LIKE", like);
        if (like == string_view(plainest))
            comment("It knows none of the commands that a flow is chosen by: this one asks for the "
                    "least.");
    }
}

// What the module said of it: the line with the word, the first one without.
string drafter::said_of(const string& name, const char* word)
{
    const at_answer& answer = test(name + "=?");
    if (answer.how != at_answer::end::ok)
        return name + " stands in AT+CLAC.";
    for (const string& one : answer.lines)
        if (word == nullptr || one.find(word) != one.npos)
            return name + "=? " + one;
    return name + "=? is accepted.";
}

void drafter::key(string_view key, const char* like)
{
    text_ += "\n";
    for (const left_row& row : left_to_hand)
        if (key == row.key)
            return comment(string(key) + " is left out: " + row.why + ".");
    if (key == "AT_NETWORK_AUTO" && like == string_view("MH5000-31")) {
        comment("The value is a whole command, AT^SYSCFGEX or AT^C5GOPTION: does the module know "
                "both?");
        return line(key, "$MODE");
    }
    std::vector<string> tried;
    for (const candidate_row& row : candidates) {
        if (key != row.key || (row.like != nullptr && like != string_view(row.like)))
            continue;
        const string name = name_of(row.command);
        if (knows(row.command, row.word)) {
            comment(said_of(name, row.word));
            return line(key, row.command);
        }
        tried.push_back(name + (row.word != nullptr ? string(" with ") + row.word : ""));
    }
    string names;
    for (const string& one : tried)
        names += (names.empty() ? "" : ", ") + one;
    comment(string(key) + " is left out: " +
            (tried.empty() ? "no command is known that takes the values of this flow."
                           : "the module does not know " + names + "."));
}

// What there is besides, for whoever looks for a command that was not found.
void drafter::rest()
{
    text_ += "\n";
    comment(listed_.empty() ? "AT+CLAC lists no commands." : "AT+CLAC lists:");
    string names;
    for (const string& one : listed_) {
        if (names.size() + one.size() >= longest_comment) {
            comment(names);
            names.clear();
        }
        names += (names.empty() ? "" : " ") + one;
    }
    if (!names.empty())
        comment(names);
}

// What of its name a MODEL can hold: without the variant, where that is enough to tell it.
string beginning_of(const string& model)
{
    const string stem = model.substr(0, std::min(model.find('-'), longest_model));
    return stem.size() >= 4 && !takes_away(stem) ? stem : model.substr(0, longest_model);
}

profile_draft drafter::run()
{
    const string model = identity({"AT+CGMM", "AT+GMM"});
    if (model == not_told)
        return {"",
                silent_ >= 2 ? "the modem says nothing"
                             : "the modem does not tell its model (AT+CGMM)",
                silent_ >= 2 ? static_cast<int>(reason_group::module) : 1};
    if (printable(model) != model)
        return {"", "the model that the modem tells is no text: " + printable(model.substr(0, 60)),
                1};
    const string begin = beginning_of(model);
    if (const string fault = model_fault(begin); !fault.empty() && !has_flow(model))
        return {"", "no file can bring the module " + printable(model) + ": " + fault, 1};
    for (const string& one : ask_("AT+CLAC").lines)
        for (size_t at = 0; at < one.size() && listed_.size() < most_listed;) {
            const size_t end = std::min(one.find_first_of(" ,", at), one.size());
            string name = one.substr(at, end - at);
            at = end + 1;
            if (!name.empty() && string_view("+^#$*%&").find(name[0]) != string_view::npos)
                name = "AT" + name; // some lists leave it out
            if (name.starts_with("AT") && name.size() > 2)
                listed_.insert(name_of(name));
        }
    const char* const like = kin_of_module();
    head(model, begin, like);
    std::vector<string> keys;
    for (const candidate_row& row : candidates)
        keys.emplace_back(row.key);
    for (const string& one : known_keys())
        keys.push_back(one);
    std::set<string> written;
    for (const string& one : keys) {
        const key_facts facts = has_flow(model) ? facts_of(model, one) : facts_of_like(like, one);
        if (facts.reached && written.insert(one).second)
            key(one, like);
    }
    rest();
    if (silent_ >= patience)
        return {"", "the modem has fallen silent", static_cast<int>(reason_group::module)};
    return {text_, "", 0};
}

// ---- The port

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class at_port
{
  public:
    ~at_port()
    {
        if (fd_ >= 0) {
            tcflush(fd_, TCOFLUSH);
            ioctl(fd_, TIOCNXCL);
            close(fd_);
        }
    }
    string open(const string& path); // what is wrong; empty for nothing
    at_answer ask(const string& command);
    bool is_gone() const { return gone_; }

  private:
    // Waits for it; false when it did not come until then.
    bool ready(short what, clock::time_point end);

    int fd_ = -1;
    bool gone_ = false;
    bool echoes_ = false; // as far as is known
};

string at_port::open(const string& path)
{
    fd_ = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0)
        return path + ": " + std::strerror(errno);
    termios line{};
    if (tcgetattr(fd_, &line) != 0)
        return path + " is no serial port";
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0)
        return path + " is held by another program: end it (kelo-host --check-device names it)";
    ioctl(fd_, TIOCEXCL);
    cfmakeraw(&line);
    cfsetspeed(&line, B115200);
    line.c_cflag |= CLOCAL | CREAD;
    line.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    tcflush(fd_, TCIOFLUSH);
    return tcsetattr(fd_, TCSANOW, &line) == 0 ? "" : path + ": " + std::strerror(errno);
}

bool at_port::ready(short what, clock::time_point end)
{
    while (!gone_) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - clock::now()).count();
        pollfd one = {fd_, what, 0};
        const int count = left > 0 ? poll(&one, 1, static_cast<int>(left)) : 0;
        if (count < 0 && errno == EINTR)
            continue;
        gone_ = (one.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
        return count > 0 && !gone_;
    }
    return false;
}

bool is_final(string_view line, at_answer::end& how)
{
    how = line == "OK" ? at_answer::end::ok : at_answer::end::refused;
    for (const string_view error :
         {"ERROR", "+CME ERROR", "+CMS ERROR", "COMMAND NOT SUPPORT", "TOO MANY PARAMETERS"})
        if (line.starts_with(error))
            return true;
    return line == "OK";
}

at_answer at_port::ask(const string& command)
{
    constexpr size_t limit = 64 * 1024; // of one answer
    const auto end = clock::now() + std::chrono::seconds(3);
    char piece[4096];
    size_t heard = 0;
    // What is late belongs to the question before.
    while (heard < limit && ready(POLLIN, std::min(end, clock::now() + milliseconds(1)))) {
        const ssize_t count = read(fd_, piece, sizeof piece);
        heard += count > 0 ? static_cast<size_t>(count) : limit;
    }
    const string sent = command + "\r";
    for (size_t at = 0; at < sent.size();) {
        const ssize_t count =
            ready(POLLOUT, end) ? write(fd_, sent.data() + at, sent.size() - at) : 0;
        if (count <= 0)
            return {};
        at += static_cast<size_t>(count);
    }
    at_answer answer;
    bool begun = !echoes_; // what stands ahead of the echo is of the question before
    string rest;
    for (heard = 0; heard < limit && ready(POLLIN, end);) {
        const ssize_t count = read(fd_, piece, sizeof piece);
        if (count <= 0)
            break;
        heard += static_cast<size_t>(count);
        rest.append(piece, static_cast<size_t>(count));
        for (size_t feed; (feed = rest.find('\n')) != rest.npos; rest.erase(0, feed + 1)) {
            string line = rest.substr(0, feed);
            line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
            if (line == command) {
                begun = echoes_ = true;
                answer.lines.clear();
            } else if (begun && is_final(line, answer.how)) {
                return answer;
            } else if (begun && !line.empty()) {
                answer.lines.push_back(line);
            }
        }
    }
    return {};
}

} // namespace

profile_draft draft_profile(const at_question& ask)
{
    return drafter(ask).run();
}

profile_draft draft_profile_at(const string& port)
{
    constexpr int of_the_port = static_cast<int>(reason_group::port);
    if (port.empty())
        return {"", "there is no port (kelo-host --check-device, or --port)", of_the_port};
    at_port modem;
    if (const string fault = modem.open(port); !fault.empty())
        return {"", fault, of_the_port};
    modem.ask("AT"); // the first line may meet the rest of somebody else's
    profile_draft made = draft_profile([&](const string& command) { return modem.ask(command); });
    if (modem.is_gone())
        return {"", "the port has gone", of_the_port};
    return made;
}

} // namespace kelo_host
