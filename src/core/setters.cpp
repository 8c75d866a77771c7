// SPDX-License-Identifier: MIT
// Setters of the modem record. What they store takes effect when a later command or flow uses it.
#include "core/core.h"

#include "support/diag.h"
#include "support/text.h"

namespace kelo
{

bool accepts_text(const char* what, const char* text)
{
    if (text == nullptr || (!text_has_control(text) && std::strpbrk(text, "\"\t") == nullptr))
        return true;
    diag_plain("%s: refused, it holds a quote or a control character\n", what);
    return false;
}

namespace
{

int set_number(int gsm_mobile::*field, int value)
{
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    rec->*field = value;
    return 0;
}

const char* or_empty(const char* text)
{
    return text != nullptr ? text : "";
}

} // namespace

} // namespace kelo

int libgsm_set_apn(const char* apn, const char* user, const char* password, int auth)
{
    using namespace kelo;
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    // The three belong together: with one of them refused, all stay.
    if (rec == nullptr || !accepts_text("apn", apn) || !accepts_text("user", user) ||
        !accepts_text("password", password))
        return -1;
    text_set(rec->apn, or_empty(apn));
    if (apn != nullptr)
        diag_plain("[4G]---> apn = %s \n", rec->apn);
    else
        diag_plain("[4G]---> apn is NULL ");
    text_set(rec->user, or_empty(user));
    text_set(rec->password, or_empty(password));
    rec->auth = auth;
    return 0;
}

int libgsm_set_pincode(const char* text)
{
    using namespace kelo;
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || !accepts_text("pin", text))
        return -1;
    if (text != nullptr)
        text_set(rec->pincode, text);
    return 0;
}

int libgsm_set_smscenter(const char* text)
{
    using namespace kelo;
    const lock_scope<record_lock> hold;
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || !accepts_text("smscenter", text))
        return -1;
    text_set(rec->smscenter, or_empty(text));
    return 0;
}

int libgsm_set_scanmode(int value)
{
    return kelo::set_number(&gsm_mobile::scanmode, value);
}

int libgsm_set_smsmode(int value)
{
    return kelo::set_number(&gsm_mobile::smsmode, value);
}

int libgsm_set_volte(int value)
{
    return kelo::set_number(&gsm_mobile::volte, value);
}

int libgsm_set_simslot(int value)
{
    return kelo::set_number(&gsm_mobile::simslot, value);
}
