// SPDX-License-Identifier: MIT
// kelo_send_sms: a text from the host, cut, encoded and queued on its own thread.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/text.h"
#include "support/words.h"

namespace kelo
{

namespace
{

constexpr unsigned most_minutes = 63 * 7 * 24 * 60; // TS 23.040 9.2.3.12.1
constexpr unsigned least_minutes = 5;
constexpr std::size_t longest_text = 64 * 1024;

int refuse(const char* why)
{
    diag_at(plain, "kelo_send_sms", "refused: %s\n", why);
    return 0;
}

// What the caller's record says, as far as it goes, over the defaults.
kelo_sms_options options_of(const kelo_sms_options* given)
{
    kelo_sms_options options = {};
    options.size = sizeof options;
    if (given != nullptr)
        std::memcpy(&options, given, std::min(given->size, sizeof options));
    options.tag[sizeof options.tag - 1] = '\0';
    return options;
}

const char* fault_of(const kelo_sms_options& options)
{
    if (options.validity != KELO_SMS_LONGEST_VALIDITY &&
        (options.validity < least_minutes || options.validity > most_minutes))
        return "no such validity";
    if (options.report < 0 || options.report > 1 || options.flash < 0 || options.flash > 1)
        return "report and flash are 0 or 1";
    return nullptr;
}

int next_number()
{
    static int number = 0;
    const int next = word_add(number, 1) & 0x7fffffff; // a device sends fewer in its life
    return next != 0 ? next : next_number();
}

// Encodes each part onto the list; false when one could not be made.
bool compose_parts(const composed_text& cut, std::string_view text, const submit_options& submit,
                   const char* tag, sms_job* job, list_head& parts)
{
    char number[32];
    set_field(number, submit.destination);
    for (int i = 1; i <= cut.parts; i++) {
        const auto pdu = sms_compose_part(cut, text, i, submit);
        if (!pdu)
            return false;
        const std::string_view body = {pdu->items, pdu->count};
        sms_part* const part = sms_part_create(0, tag, number, sms_tpdu_length(body), body, job, i);
        if (part == nullptr)
            return false;
        list_add_tail(&part->node, &parts);
    }
    return true;
}

int queue_text(const char* number, std::string_view text, const kelo_sms_options& options)
{
    const auto cut = sms_compose(text);
    if (!cut)
        return refuse("the text is empty, too long, or no UTF-8");
    char centre[65] = "";
    if (gsm_mobile* const rec = modem_record())
        sms_centre_of(rec, centre);
    const submit_options submit = {centre,
                                   number,
                                   sms_next_reference(),
                                   sms_validity(options.validity),
                                   options.report != 0,
                                   options.flash != 0};
    const sms_job_wish wish = {next_number(), options.report != 0, options.going_out,
                               options.context};
    sms_job* const job = sms_job_create(options.tag, number, cut->parts, wish);
    if (job == nullptr)
        return refuse("no memory");
    // The tag of an item may not be empty.
    const char* const tag = options.tag[0] != '\0' ? options.tag : "kelo";
    list_head parts = LIST_HEAD_INIT(parts);
    const bool made = compose_parts(*cut, text, submit, tag, job, parts);
    if (list_empty(&parts))
        sms_job_without_parts(job, false);
    if (made && sms_outbox_append(parts, KELO_SMS_OUTBOX))
        return wish.number;
    sms_parts_take_back(parts);
    return refuse(made ? "too many parts wait" : "no memory");
}

} // namespace

} // namespace kelo

using namespace kelo;

int kelo_sms_options_defaults(struct kelo_sms_options* options)
{
    if (options == nullptr || options->size < sizeof options->size)
        return -1;
    kelo_sms_options defaults = {};
    defaults.size = options->size;
    std::memcpy(options, &defaults, std::min(options->size, sizeof defaults));
    return 0;
}

int kelo_send_sms(const char* number, const char* text, const struct kelo_sms_options* given)
{
    constexpr std::size_t most_digits = 20;
    if (refused_in_fork(__func__))
        return 0;
    if (number == nullptr || text == nullptr)
        return refuse("no number or no text");
    const std::string_view digits = {number, strnlen(number, most_digits + 2)};
    if (!sms_number_valid(digits) || digits.size() > most_digits + (digits[0] == '+' ? 1 : 0) ||
        digits == "+")
        return refuse("no number");
    const std::size_t length = strnlen(text, longest_text + 1);
    if (length > longest_text)
        return refuse("the text is too long");
    if (given != nullptr && given->size < sizeof given->size)
        return refuse("options without their size");
    const kelo_sms_options options = options_of(given);
    if (const char* const fault = fault_of(options))
        return refuse(fault);
    const int sent = queue_text(number, {text, length}, options);
    if (sent != 0 && options.report != 0)
        word_set(sms_reports_wanted, 1);
    return sent;
}

int kelo_cancel_sms(int number)
{
    return number > 0 && !refused_in_fork(__func__) && sms_outbox_cancel(number) ? 1 : 0;
}
