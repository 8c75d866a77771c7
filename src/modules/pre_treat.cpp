// Pre-treatment: makes the text of a command right before it goes out, or finds that it need not.
//
// Everything here runs on the mobile task, between two commands. The text is built from copies of
// the record's fields: record_lock is let go before flow_lock is taken for the node.
#include "modules/modules.h"

#include "support/diag.h"
#include "support/text.h"
#include "support/words.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace kelo
{

namespace
{

template <std::size_t size>
[[gnu::format(printf, 2, 3)]] void format_value(char (&value)[size], const char* format, ...)
{
    va_list values;
    va_start(values, format);
    std::vsnprintf(value, size, format, values); // what does not fit is cut
    va_end(values);
}

// Copies one field of the record, on its own.
template <std::size_t size> void take_field(char (&copy)[size], const char (&field)[size])
{
    const lock_scope hold(record_lock);
    std::memcpy(copy, field, size);
}

void skip(at_info* at)
{
    at_set_flags(at, AT_FLAG_SKIP);
}

} // namespace

void at_install(at_info* at, char* text)
{
    if (text == nullptr)
        return;
    // The CR of a profile that was saved with CR LF line ends.
    std::size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == '\r')
        text[--length] = '\0';
    lock_scope hold(flow_lock);
    char* const old = at->cmd;
    at->cmd = text;
    hold.release();
    std::free(old);
}

void at_fill(at_info* at, const char* placeholder, const char* value)
{
    const char* const text = at->cmd_template;
    at_install(at,
               at_substitute(text, text == nullptr ? 0 : std::strlen(text), placeholder, value));
}

char* at_substitute(const char* text, std::size_t text_length, const char* placeholder,
                    const char* value)
{
    if (text == nullptr || placeholder == nullptr || *placeholder == '\0' ||
        !text_has(text, placeholder) || value == nullptr || *value == '\0')
        return nullptr;
    if (text_has_control(value)) {
        diag_at(plain, __func__, "refused a value with control characters for %s\n", placeholder);
        return nullptr;
    }
    const std::size_t size = text_length + std::strlen(value);
    auto* const result = static_cast<char*>(std::calloc(size, 1));
    if (result == nullptr)
        return nullptr;
    std::size_t used = 0;
    const auto append = [&](const char* part, std::size_t length) {
        const std::size_t room = size - 1 - used;
        const std::size_t count = length < room ? length : room;
        std::memcpy(result + used, part, count);
        used += count;
    };
    const char* rest = text;
    while (const char* const found = text_find(rest, placeholder)) {
        append(rest, static_cast<std::size_t>(found - rest));
        append(value, std::strlen(value));
        rest = found + std::strlen(placeholder);
    }
    append(rest, std::strlen(rest));
    return result;
}

int general_pre_treat(gsm_mobile*, at_info* at)
{
    if (at->cmd_template != nullptr && *at->cmd_template != '\0')
        at_install(at, text_duplicate(at->cmd_template));
    return 0;
}

int netseq_pre_treat(gsm_mobile* rec, at_info* at)
{
    char model[sizeof rec->model];
    take_field(model, rec->model);
    const bool wcdma_first = text_begins(model, "U9300C") || text_begins(model, "E9720");
    at_fill(at, "$NET_SEQUENCE", wcdma_first ? "17" : "00");
    if ((at_get_flags(at) & AT_FLAG_ONCE_DONE) != 0)
        skip(at);
    return 0;
}

int apn_pre_treat(gsm_mobile* rec, at_info* at)
{
    char model[sizeof rec->model];
    char apn[sizeof rec->apn];
    char user[sizeof rec->user];
    char password[sizeof rec->password];
    lock_scope hold(record_lock);
    text_set(model, rec->model);
    text_set(apn, rec->apn);
    text_set(user, rec->user);
    text_set(password, rec->password);
    const int auth = rec->auth;
    hold.release();

    char value[512] = "";
    if (text_begins(model, "ML303") || text_begins(model, "U9300C") ||
        text_begins(model, "E9720")) {
        format_value(value, "\"%s\"", apn);
    } else if (text_begins(model, "MH5000")) {
        static constexpr const char* protocols[] = {"IP", "IPV6", "IPV4V6"};
        const int protocol = word_get(cell_net_proto);
        if (protocol >= 0 && protocol <= 2)
            format_value(value, "\"%s\",\"%s\"", protocols[protocol], apn);
    } else {
        const int context = word_get(verizon_flag) != 0 ? 3 : 1;
        format_value(value, "%d,3,\"%s\",\"%s\",\"%s\",%d", context, apn, user, password, auth);
    }
    at_fill(at, "$PARAM", value);
    return 0;
}

int userpwd_pre_treat(gsm_mobile* rec, at_info* at)
{
    char user[sizeof rec->user];
    char password[sizeof rec->password];
    lock_scope hold(record_lock);
    text_set(user, rec->user);
    text_set(password, rec->password);
    const int auth = rec->auth;
    hold.release();

    if (*user == '\0')
        skip(at);
    char value[512];
    format_value(value, "%d,\"%s\",\"%s\"", auth, password, user);
    at_fill(at, "$PARAM", value);
    return 0;
}

int cont3_pre_treat(gsm_mobile* rec, at_info* at)
{
    char apn[sizeof rec->apn];
    take_field(apn, rec->apn);
    at_fill(at, "$APN", *apn != '\0' ? apn : "vzwinternet");
    return 0;
}

int cpin_pre_treat(gsm_mobile* rec, at_info* at)
{
    char pin[sizeof rec->pincode];
    lock_scope hold(record_lock);
    text_set(pin, rec->pincode);
    const bool required = rec->last_event == GSM_EVENT_PIN_REQUIRED;
    hold.release();

    diag_plain("[Cellular]---> {cpin_pre_treat} pin = %s \n", pin);
    // Only straight after the modem has asked: a wrong PIN that goes out again and again locks the
    // SIM.
    if (required && *pin != '\0')
        at_fill(at, "$PIN_NUMBER", pin);
    else
        skip(at);
    return 0;
}

int sms_des_pre_treat(gsm_mobile* rec, at_info* at)
{
    char destination[sizeof rec->sms_dest];
    take_field(destination, rec->sms_dest);
    at_fill(at, "$SMS_DES", destination);
    return 0;
}

int sms_len_pre_treat(gsm_mobile* rec, at_info* at)
{
    lock_scope hold(record_lock);
    const int length = rec->sms_len;
    hold.release();
    char value[8];
    format_value(value, "%d", length);
    at_fill(at, "$SMS_LEN", value);
    return 0;
}

int smsc_pre_treat(gsm_mobile* rec, at_info* at)
{
    char center[sizeof rec->smscenter];
    take_field(center, rec->smscenter);
    if (*center == '\0')
        skip(at);
    else
        at_fill(at, "$SCA", center);
    return 0;
}

int ucs2_pre_treat(gsm_mobile* rec, at_info* at)
{
    lock_scope hold(record_lock);
    const bool left_alone = rec->smsmode != 0;
    hold.release();
    if (!left_alone)
        return general_pre_treat(rec, at);
    skip(at);
    return 0;
}

int volte_pre_treat(gsm_mobile* rec, at_info* at)
{
    lock_scope hold(record_lock);
    const int volte = rec->volte;
    hold.release();
    char value[4];
    format_value(value, "%d", volte);
    at_fill(at, "$CONF", value);
    return 0;
}

int selslot_pre_treat(gsm_mobile* rec, at_info* at)
{
    lock_scope hold(record_lock);
    const int slot = rec->simslot;
    const bool wanted = slot == 1 || slot == 2;
    if (wanted)
        rec->simslot = 0; // consumed: the next flow passes the row over
    hold.release();
    if (!wanted) {
        skip(at);
        return 0;
    }
    word_set(selected_card, slot);
    select_scanmode(slot);
    diag_at(plain, __func__, "switch to SIM%d\n\n", slot);
    char value[4];
    format_value(value, "%d", slot);
    at_fill(at, "$NUM", value);
    return 0;
}

// The four identities are asked for once each.

int cgmm_pre_treat(gsm_mobile* rec, at_info* at)
{
    char model[sizeof rec->model];
    take_field(model, rec->model);
    if (*model != '\0')
        skip(at);
    diag_at(debug, __func__, "model='%s'\n", model);
    return 0;
}

int cgmi_pre_treat(gsm_mobile* rec, at_info* at)
{
    char mfrs[sizeof rec->mfrs];
    take_field(mfrs, rec->mfrs);
    if (*mfrs != '\0')
        skip(at);
    diag_at(debug, __func__, "mfrs='%s'\n", mfrs);
    return 0;
}

int cgmr_pre_treat(gsm_mobile* rec, at_info* at)
{
    char revision[sizeof rec->revision];
    take_field(revision, rec->revision);
    if (*revision != '\0')
        skip(at);
    diag_at(debug, __func__, "revision='%s'\n", revision);
    return 0;
}

int cgsn_pre_treat(gsm_mobile* rec, at_info* at)
{
    char sn[sizeof rec->sn];
    take_field(sn, rec->sn);
    if (*sn != '\0')
        skip(at);
    diag_at(plain, __func__, "sn='%s'\n", sn);
    return 0;
}

} // namespace kelo
