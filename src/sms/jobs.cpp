// SPDX-License-Identifier: MIT
// What becomes of messages: each has a record from the call that hands it in until the fate of its
// last part is known, and is then a result that waits for the host.
#include "sms/ring.h"
#include "sms/sms.h"

#include "support/diag.h"
#include "support/owned.h"
#include "support/seldom.h"
#include "support/text.h"
#include "support/wakeup.h"

#include <cstdlib>
#include <ctime>

namespace kelo
{

// Guarded by outbox_lock.
struct sms_job {
    kelo_sms_result result = {};
    sms_job_wish wish = {};
    int alive = 0;              // parts whose fate is not known yet
    int fates[fate_count] = {}; // parts by theirs
};

namespace
{

// Guarded by outbox_lock.
KELO_SELDOM ring<kelo_sms_result, KELO_SMS_RESULTS> results;
KELO_SELDOM ring<kelo_sms_report, KELO_SMS_REPORTS> reports;

// Parts that the network has confirmed, for the reports that may follow: the newest of them.
struct confirmed_part {
    int number = 0;
    char tag[sizeof kelo_sms_result::tag] = {};
    char destination[sizeof kelo_sms_result::destination] = {};
    int part = 0;
    int reference = 0; // -1: reported
};
constexpr unsigned most_confirmed = 256;
KELO_SELDOM confirmed_part confirmed[most_confirmed];
unsigned confirmed_count = 0;

// The worst that befell a part decides.
int state_of(const sms_job& job)
{
    static constexpr std::pair<part_fate, int> order[] = {
        {part_fate::failed, KELO_SMS_FAILED},
        {part_fate::refused, KELO_SMS_REFUSED},
        {part_fate::not_written, KELO_SMS_NOT_WRITTEN},
        {part_fate::unknown, KELO_SMS_UNKNOWN},
        {part_fate::confirmed, KELO_SMS_SENT}};
    for (const auto& [fate, state] : order)
        if (job.fates[static_cast<int>(fate)] > 0)
            return state;
    return 0; // all were taken back
}

// Caller holds outbox_lock.
void note_confirmed(const sms_job& job, int part, int reference)
{
    confirmed_part& slot = confirmed[confirmed_count++ % most_confirmed];
    slot = {job.result.number, {}, {}, part, reference};
    text_set(slot.tag, job.result.tag);
    text_set(slot.destination, job.result.destination);
}

// Networks write a number in their own form: the digits at its end are the same. A name says
// nothing.
bool same_number(std::string_view dialled, std::string_view reported)
{
    constexpr std::size_t telling = 7;
    const std::size_t length = std::min({telling, dialled.size(), reported.size()});
    if (length < std::min<std::size_t>(telling, 3) || !sms_number_valid(reported))
        return !sms_number_valid(reported);
    return dialled.ends_with(behind(reported, reported.size() - length));
}

// The newest that it can be; null for none. Caller holds outbox_lock.
confirmed_part* part_of(const status_report& report)
{
    for (unsigned back = 1; back <= std::min(confirmed_count, most_confirmed); back++) {
        confirmed_part& slot = confirmed[(confirmed_count - back) % most_confirmed];
        if (slot.reference == report.reference &&
            same_number(text_of(slot.destination), text_of(report.recipient)))
            return &slot;
    }
    return nullptr;
}

} // namespace

sms_job* sms_job_create(const char* tag, const char* destination, int parts,
                        const sms_job_wish& wish)
{
    void* const memory = memory_for(sizeof(sms_job));
    if (memory == nullptr)
        return nullptr;
    auto* const job = new (memory) sms_job;
    text_set(job->result.tag, tag != nullptr ? tag : "");
    text_set(job->result.destination, destination);
    job->result.number = wish.number;
    job->result.size = sizeof job->result;
    job->result.parts = parts;
    job->wish = wish;
    return job;
}

void sms_job_begins_part(sms_job* job)
{
    job->alive++;
}

void sms_job_without_parts(sms_job* job, bool refused)
{
    if (job == nullptr)
        return;
    sms_job_begins_part(job);
    sms_job_part_ends(job, 1, refused ? part_fate::refused : part_fate::taken_back);
}

const sms_job_wish& sms_job_wishes(const sms_job* job)
{
    static constexpr sms_job_wish none = {};
    return job != nullptr ? job->wish : none;
}

int sms_job_parts(const sms_job* job)
{
    return job->result.parts;
}

bool sms_job_part_ends(sms_job* job, int part, part_fate fate, sms_error error)
{
    const lock_scope<outbox_lock> hold;
    kelo_sms_result& result = job->result;
    job->fates[static_cast<int>(fate)]++;
    if (fate == part_fate::confirmed) {
        result.confirmed++;
        if (part >= 1 && part <= most_parts)
            result.references[part - 1] = static_cast<octet>(error.number);
        note_confirmed(*job, part, error.number);
    } else if (error.kind != KELO_SMS_NO_ERROR && result.error == KELO_SMS_NO_ERROR) {
        result.error = error.kind;
        result.error_number = error.number;
    }
    if (--job->alive > 0)
        return false;
    result.state = state_of(*job);
    if (result.state != 0) {
        results.add(result);
        wake_host();
    }
    std::free(job);
    return true;
}

void sms_report_came(const status_report& report)
{
    kelo_sms_report told = {};
    told.size = sizeof told;
    told.reference = report.reference;
    text_set(told.recipient, report.recipient);
    text_set(told.sent, report.sent.text);
    told.sent_zone = report.sent.zone;
    text_set(told.discharged, report.discharged.text);
    told.discharged_zone = report.discharged.zone;
    told.status = report.status;
    told.state = sms_delivery(report.status);
    const lock_scope<outbox_lock> hold;
    if (confirmed_part* const slot = part_of(report)) {
        told.number = slot->number;
        text_set(told.tag, slot->tag);
        told.part = slot->part;
        if (told.state != KELO_SMS_STILL_TRYING)
            slot->reference = -1;
    }
    reports.add(told);
    wake_host();
}

} // namespace kelo

using namespace kelo;

int kelo_take_sms_result(struct kelo_sms_result* result, size_t size)
{
    if (refused_in_fork(__func__))
        return 0;
    const lock_scope<outbox_lock> hold;
    return results.take(result, size);
}

int kelo_sms_results_lost(void)
{
    const lock_scope<outbox_lock> hold;
    return results.lost;
}

int kelo_take_sms_report(struct kelo_sms_report* report, size_t size)
{
    if (refused_in_fork(__func__))
        return 0;
    const lock_scope<outbox_lock> hold;
    return reports.take(report, size);
}

int kelo_sms_reports_lost(void)
{
    const lock_scope<outbox_lock> hold;
    return reports.lost;
}

const char* kelo_sms_state_name(int state)
{
    static constexpr const char* names[] = {"sent", "failed", "unknown", "not written", "refused"};
    return state >= KELO_SMS_SENT && state <= KELO_SMS_REFUSED ? names[state - KELO_SMS_SENT] : "?";
}
