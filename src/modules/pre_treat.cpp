// SPDX-License-Identifier: MIT
// Pre-treatment: makes the text of a command right before it goes out, or finds that it need not.
//
// Everything here runs on the mobile task, between two commands.
#include "modules/modules.h"

#include "handlers/sim_guard.h"
#include "support/diag.h"
#include "support/scan.h"
#include "support/text.h"
#include "support/words.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kelo
{

text_pointer at_substitute(const char* text, std::size_t text_length, const char* placeholder,
                           const char* value)
{
    if (text == nullptr || placeholder == nullptr || *placeholder == '\0' ||
        !text_has(text, placeholder) || value == nullptr || *value == '\0')
        return nullptr;
    if (text_has_control(value)) {
        diag_at(plain, __func__, "refused a value with control characters for %s\n", placeholder);
        return nullptr;
    }
    const std::size_t room = text_length + std::strlen(value) - 1;
    text_pointer result = text_room(room);
    if (result == nullptr)
        return nullptr;
    std::size_t used = 0;
    const auto append = [&](const char* part, std::size_t length) {
        const std::size_t count = length < room - used ? length : room - used;
        std::memcpy(result.get() + used, part, count);
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

namespace
{

// The flag tells others; the result holds, whatever a reload meanwhile makes of the flag.
int skip(at_info* at)
{
    at_set_flags(at, AT_FLAG_SKIP);
    return at_not_wanted;
}

// Makes `text` the command's; null leaves the old one.
void install(at_info* at, text_pointer text)
{
    if (text == nullptr)
        return;
    // The CR of a profile that was saved with CR LF line ends.
    std::size_t length = std::strlen(text.get());
    while (length > 0 && text.get()[length - 1] == '\r')
        text.get()[--length] = '\0';
    const lock_scope<flow_lock> hold;
    text_replace(at->cmd, std::move(text));
}

// Installs the template with `value` in the place of the placeholder.
void fill(at_info* at, const char* placeholder, const char* value)
{
    const char* const text = at->cmd_template;
    install(at, at_substitute(text, text == nullptr ? 0 : std::strlen(text), placeholder, value));
}

constexpr std::size_t value_size = 512;
using value_field = char[value_size];

// The whole of a treatment: fills with what `make` makes of the record's fields, cut to `size`, and
// passes the command over where `make` says that it is not wanted.
int treat(gsm_mobile* rec, at_info* at, const char* placeholder,
          bool (*make)(const gsm_mobile* of, value_field& value), std::size_t size = value_size)
{
    value_field value = {};
    lock_scope<record_lock> hold;
    const bool wanted = make(rec, value);
    hold.release(); // ahead of the node's lock
    value[size - 1] = '\0';
    fill(at, placeholder, value);
    return wanted ? 0 : skip(at);
}

[[gnu::format(printf, 2, 3)]] void format_value(value_field& value, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    std::vsnprintf(value, sizeof value, format, values); // what does not fit is cut
    va_end(values);
}

} // namespace

int general_pre_treat(gsm_mobile*, at_info* at)
{
    if (at->cmd_template != nullptr && *at->cmd_template != '\0')
        install(at, text_duplicate(at->cmd_template));
    return 0;
}

int cband_pre_treat(gsm_mobile* rec, at_info* at)
{
    value_field reported;
    lock_scope<record_lock> hold;
    const char* const mask = module_band_mask(rec->model, rec->revision);
    const bool by_file = module_brought(rec->model, rec->revision) != nullptr;
    format_value(reported, ",%s,%s,%s", rec->band_gsm, rec->band_lte, rec->band_tds);
    hold.release();
    // Which bands a module has is no likeness to another.
    if (by_file && at->cmd_template != nullptr && text_has(at->cmd_template, "$BAND"))
        return skip(at);
    if (mask == nullptr)
        return general_pre_treat(rec, at);
    fill(at, "$BAND", mask);
    // The mask stands behind a comma in some modules' commands, behind the equals sign in others.
    for (const char ahead : {',', '='}) {
        *reported = ahead;
        if (at->cmd != nullptr && text_has(at->cmd, reported))
            return skip(at);
    }
    return 0;
}

int netseq_pre_treat(gsm_mobile* rec, at_info* at)
{
    const bool done = (at_get_flags(at) & AT_FLAG_ONCE_DONE) != 0;
    const int result =
        treat(rec, at, "$NET_SEQUENCE", [](const gsm_mobile* of, value_field& value) {
            text_set(value, module_net_sequence(module_alike(of->model, of->revision)));
            return true;
        });
    return done ? skip(at) : result;
}

namespace
{

// The value for a scan mode on such a model; empty where the model has none.
const char* mode_text(const mode_values& modes, int scanmode)
{
    for (const mode_value& entry : modes.values) {
        if (entry.scanmode != scanmode)
            continue;
        const int choice = entry.nr_alone != nullptr ? word_get(cell_network_switch) : 0;
        return choice == 0 ? entry.value : choice == 1 ? entry.nr_alone : "";
    }
    return modes.otherwise;
}

} // namespace

int netmode_pre_treat(gsm_mobile* rec, at_info* at)
{
    return treat(rec, at, "$MODE", [](const gsm_mobile* of, value_field& value) {
        const mode_values* const modes = module_modes(module_alike(of->model, of->revision));
        if (modes != nullptr)
            text_set(value, mode_text(*modes, of->scanmode));
        else
            format_value(value, "%d", of->scanmode);
        const bool mapped = modes != nullptr && modes->mapped && *value != '\0';
        int number = -1;
        if (mapped)
            scan(value, dec(number));
        return of->currscanmode != of->scanmode && of->currscanmode != number;
    });
}

int apn_pre_treat(gsm_mobile* rec, at_info* at)
{
    return treat(rec, at, "$PARAM", [](const gsm_mobile* of, value_field& value) {
        static constexpr const char* protocols[] = {"IP", "IPV6", "IPV4V6"};
        const int protocol = word_get(cell_net_proto);
        switch (module_apn_form(module_alike(of->model, of->revision))) {
        case apn_form::name:
            format_value(value, "\"%s\"", of->apn);
            break;
        case apn_form::name_with_protocol:
            if (protocol >= KELO_NET_PROTO_IP && protocol <= KELO_NET_PROTO_IPV4V6)
                format_value(value, "\"%s\",\"%s\"", protocols[protocol], of->apn);
            break;
        case apn_form::context:
            format_value(value, "%d,3,\"%s\",\"%s\",\"%s\",%d", word_get(verizon_flag) != 0 ? 3 : 1,
                         of->apn, of->user, of->password, of->auth);
        }
        return true;
    });
}

int userpwd_pre_treat(gsm_mobile* rec, at_info* at)
{
    return treat(rec, at, "$PARAM", [](const gsm_mobile* of, value_field& value) {
        format_value(value, "%d,\"%s\",\"%s\"", of->auth, of->password, of->user);
        return *of->user != '\0';
    });
}

int cont3_pre_treat(gsm_mobile* rec, at_info* at)
{
    return treat(rec, at, "$APN", [](const gsm_mobile* of, value_field& value) {
        text_set(value, *of->apn != '\0' ? of->apn : "vzwinternet");
        return true;
    });
}

namespace
{

// With a keeper the PIN goes out only where that can't lock the card.
int guarded_pin(at_info* at)
{
    constexpr int tries_s = 2;
    constexpr int verdict_s = 5; // a module may take so long to have the card check it
    char text[64] = "";
    const pin_step step = sim_guard_next(text);
    if (step == pin_step::pass)
        return skip(at);
    if (step == pin_step::send)
        fill(at, "$PIN_NUMBER", text);
    else
        install(at, text_duplicate(text));
    const lock_scope<flow_lock> hold;
    if (step == pin_step::ask)
        at->flags &= ~AT_FLAG_SENT; // its own turn comes next
    at->timeout = step == pin_step::ask ? tries_s : verdict_s;
    return 0;
}

} // namespace

int cpin_pre_treat(gsm_mobile* rec, at_info* at)
{
    if (word_get(keeper_on) != 0)
        return guarded_pin(at);
    // Only straight after the modem has asked: a wrong PIN that goes out again and again locks the
    // SIM.
    return treat(rec, at, "$PIN_NUMBER", [](const gsm_mobile* of, value_field& value) {
        diag_plain("[Cellular]---> {cpin_pre_treat} pin = %s \n", of->pincode);
        if (of->last_event == GSM_EVENT_PIN_REQUIRED)
            text_set(value, of->pincode);
        return *value != '\0';
    });
}

namespace
{

// Of the message before: without memory for its own, a message must not go to that one's number.
void forget_text(at_info* at)
{
    const lock_scope<flow_lock> hold;
    text_replace(at->cmd, nullptr);
}

} // namespace

int sms_des_pre_treat(gsm_mobile* rec, at_info* at)
{
    forget_text(at);
    return treat(rec, at, "$SMS_DES", [](const gsm_mobile* of, value_field& value) {
        text_set(value, of->sms_dest);
        return true;
    });
}

int sms_len_pre_treat(gsm_mobile* rec, at_info* at)
{
    forget_text(at);
    return treat(
        rec, at, "$SMS_LEN",
        [](const gsm_mobile* of, value_field& value) {
            format_value(value, "%d", of->sms_len);
            return true;
        },
        8);
}

int volte_pre_treat(gsm_mobile* rec, at_info* at)
{
    return treat(
        rec, at, "$CONF",
        [](const gsm_mobile* of, value_field& value) {
            format_value(value, "%d", of->volte);
            return true;
        },
        4);
}

int smsc_pre_treat(gsm_mobile* rec, at_info* at)
{
    return treat(rec, at, "$SCA", [](const gsm_mobile* of, value_field& value) {
        text_set(value, of->smscenter);
        return *value != '\0';
    });
}

int ucs2_pre_treat(gsm_mobile* rec, at_info* at)
{
    lock_scope<record_lock> hold;
    const bool left_alone = rec->smsmode != 0;
    hold.release();
    if (!left_alone)
        return general_pre_treat(rec, at);
    return skip(at);
}

int selslot_pre_treat(gsm_mobile* rec, at_info* at)
{
    lock_scope<record_lock> hold;
    const int slot = rec->simslot;
    if (slot != 1 && slot != 2) {
        hold.release();
        return skip(at);
    }
    rec->simslot = 0; // consumed: the next flow passes the row over
    hold.release();
    word_set(selected_card, slot);
    select_scanmode(slot);
    diag_at(plain, __func__, "switch to SIM%d\n\n", slot);
    fill(at, "$NUM", slot == 1 ? "1" : "2");
    return 0;
}

namespace
{

// The four identities are asked for once each.
int ask_once(at_info* at, const char* field, const char* name, const char* what)
{
    value_field text;
    lock_scope<record_lock> hold;
    text_set(text, field);
    hold.release();
    if (std::strcmp(what, "sn") == 0)
        diag_at(plain, name, "%s='%s'\n", what, text);
    else
        diag_at(debug, name, "%s='%s'\n", what, text);
    return *text != '\0' ? skip(at) : 0;
}

} // namespace

int cgmm_pre_treat(gsm_mobile* rec, at_info* at)
{
    return ask_once(at, rec->model, __func__, "model");
}

int cgmi_pre_treat(gsm_mobile* rec, at_info* at)
{
    return ask_once(at, rec->mfrs, __func__, "mfrs");
}

int cgmr_pre_treat(gsm_mobile* rec, at_info* at)
{
    const int result = ask_once(at, rec->revision, __func__, "revision");
    if (result == at_not_wanted)
        at_compose_flows_of_file(rec);
    return result;
}

int cgsn_pre_treat(gsm_mobile* rec, at_info* at)
{
    return ask_once(at, rec->sn, __func__, "sn");
}

} // namespace kelo
