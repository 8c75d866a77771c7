// SPDX-License-Identifier: MIT
// Messages from the host: cut, encoded and queued on the thread that hands them in.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/owned.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/words.h"

#include <cstdio>

namespace kelo
{

namespace
{

constexpr int longest_text = 64 * 1024; // bytes; 255 parts never hold as many

enum class outcome { queued, no_number, failed };

constexpr char rule[] = "===============================================================";

// References count up from a random start: no two messages in a row share one, and a restart of the
// process does not begin where the last one began.
} // namespace

octet sms_next_reference()
{
    static int reference = 0; // below 0x100 until the first message
    int fresh = 0;
    if (word_get(reference) == 0) {
        const auto now = static_cast<std::uint64_t>(time_of_day_us());
        std::atomic_ref<int>(reference).compare_exchange_strong(
            fresh, 0x100 | static_cast<int>((now * 0x9E3779B97F4A7C15u) >> 56));
    }
    return static_cast<octet>(word_add(reference, 1));
}

// What is no number would break the PDU: the modem's own service centre is taken then.
void sms_centre_of(gsm_mobile* rec, char (&digits)[65])
{
    {
        const lock_scope<record_lock> hold;
        text_set(digits, rec->smscenter[0] == '+' ? rec->smscenter + 1 : rec->smscenter);
    }
    if (digits[0] == '+' || !sms_number_valid(text_of(digits)))
        text_clear(digits);
}

int sms_tpdu_length(std::string_view pdu)
{
    return static_cast<int>(pdu.size() / 2) - 1 - hex_octet(pdu, 0);
}

namespace
{

// Who it goes to and through which service centre, and a reference of its own.
void sms_pdu_msg_init(gsm_mobile* rec, sms_pdu_msg& msg, const char* number, const char* charset)
{
    // A number that has no room would name somebody else when cut: none is refused later.
    if (std::strlen(number) < sizeof msg.da)
        text_set(msg.da, number);
    sms_centre_of(rec, msg.sca);
    text_set(msg.coding_name, charset != nullptr ? charset : "");
    msg.flag = sms_next_reference();
}

void print_part(const sms_pdu_msg& msg, int index, int offset, std::string_view pdu,
                std::string_view part)
{
    const auto length = static_cast<int>(part.size());
    text_block block;
    block.add("%s\nSCA   : (%s)\nDA    : (%s)\n", rule, msg.sca, msg.da);
    block.add("UDHL  : %d\nflag  : 0x%02x\nCoding: (%s)\n", msg.udhl, msg.flag, msg.coding_name);
    block.add("Count : %d-%d\nLength: %d\nOffset: %d\n", index, msg.count, length, offset);
    block.add("PDU   : (%.*s)\nUD    : (%.*s)\t\t\n%s\n", static_cast<int>(pdu.size()), pdu.data(),
              length, part.data(), rule);
    block.print();
}

// Encodes each part onto the list. The whole message is queued afterwards or none of it: half a
// message helps nobody.
outcome sms_send_parts(const sms_pdu_msg& msg, std::string_view text, const char* tag, sms_job* job,
                       list_head& parts)
{
    int offset = 0;
    for (int i = 0; i < msg.count; i++) {
        const int length = msg.offsets[i] - offset;
        const std::string_view part =
            ahead(behind(text, static_cast<std::size_t>(offset)), static_cast<std::size_t>(length));
        const auto encoded = sms_encode_pdu(msg, part, i + 1);
        if (!encoded) {
            diag_plain("[ERROR] Encode pdu error");
            return sms_number_valid(text_of(msg.da)) ? outcome::failed : outcome::no_number;
        }
        const std::string_view pdu = {encoded->items, encoded->count};
        print_part(msg, i + 1, offset, pdu, part);
        sms_part* const item =
            sms_part_create(0, tag, msg.da, sms_tpdu_length(pdu), pdu, job, i + 1);
        if (item == nullptr)
            return outcome::failed;
        list_add_tail(&item->node, &parts);
        offset += length;
    }
    return outcome::queued;
}

outcome too_many_parts()
{
    diag_at(plain, __func__, "refused a message of more than %d parts\n", most_parts);
    return outcome::failed;
}

outcome send_pdu_parts(gsm_mobile* rec, const char* number, const char* text, const char* tag,
                       const char* charset, int n)
{
    if (rec == nullptr || text == nullptr || n < 0)
        return outcome::failed;
    if (n > longest_text) {
        diag_at(plain, __func__, "refused a message of %d bytes\n", n);
        return outcome::failed;
    }
    sms_pdu_msg addressed = {};
    sms_pdu_msg_init(rec, addressed, number != nullptr ? number : "", charset);
    const std::string_view whole = {text, static_cast<std::size_t>(n)};
    const auto msg = sms_detect_coding(addressed, whole);
    if (!msg)
        return too_many_parts();
    sms_job* const job = sms_job_create(tag, addressed.da, msg->count, {});
    list_head parts = LIST_HEAD_INIT(parts);
    const outcome result = sms_send_parts(*msg, whole, tag, job, parts);
    if (list_empty(&parts))
        sms_job_without_parts(job, result == outcome::no_number);
    else if (result == outcome::queued)
        sms_outbox_append(parts);
    sms_parts_take_back(parts);
    return result;
}

// A message in text mode goes out as it is. The outbox keeps texts with an end, so that one with a
// NUL in it would be cut.
outcome send_text(int mode, const char* number, const char* text, const char* tag, int n)
{
    if (text == nullptr || n < 0)
        return outcome::failed;
    const std::string_view whole = {text, static_cast<std::size_t>(n)};
    const std::string_view body = ahead(whole, whole.find('\0'));
    if (whole.find_first_not_of('\0', body.size()) != std::string_view::npos)
        return outcome::failed;
    return sms_queue_one(mode, tag, number, n, body) ? outcome::queued : outcome::failed;
}

file_pointer open_file(const char* path)
{
    if (path == nullptr) {
        diag_plain("Didn`t get SMS File");
        return nullptr;
    }
    file_pointer file(std::fopen(path, "rbe"));
    if (file == nullptr)
        diag_plain("Didn`t open SMS File");
    return file;
}

// Its length, and -1 for none or one that no message can hold.
int file_length(std::FILE* file)
{
    if (file == nullptr) {
        diag_plain("Get SMS File Length Failed for File Describe is NULL");
        return -1;
    }
    long length = -1;
    if (std::fseek(file, 0, SEEK_END) == 0)
        length = std::ftell(file);
    std::rewind(file);
    if (length < 0 || length >= longest_text) {
        diag_at(plain, __func__, "refused a file of %ld bytes\n", length);
        return -1;
    }
    return static_cast<int>(length);
}

} // namespace

} // namespace kelo

using namespace kelo;

int libgsm_send_sms_from_buffer(const char* tag, const char* number, int mode, const char* text,
                                int n)
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr)
        return -1;
    // Ahead of the queueing: the answer may come before this call is over.
    word_add(sms_pending_count, 1);
    const outcome result = mode == 0 ? send_pdu_parts(rec, number, text, tag, "UTF-8", n)
                                     : send_text(mode, number, text, tag, n);
    if (result != outcome::failed)
        return 0;
    word_count_down(sms_pending_count);
    return -1;
}

int corvel_mobile_encode_pdu_sms(struct gsm_mobile* rec, struct sms_pdu_msg* msg, const char* part,
                                 char* out, int n, int index)
{
    if (rec == nullptr || msg == nullptr || part == nullptr || out == nullptr)
        return -1;
    if (msg->coding == KELO_PDU_CODING_GSM7)
        n = static_cast<int>(strnlen(part, 1024));
    if (n < 0)
        return -1;
    const auto pdu = sms_encode_pdu(*msg, {part, static_cast<std::size_t>(n)}, index);
    if (!pdu)
        return -1;
    std::memcpy(out, pdu->items, pdu->count);
    out[pdu->count] = '\0';
    return static_cast<int>(pdu->count);
}

int corvel_mobile_send_pdu(struct gsm_mobile* rec, const char* number, const char* text,
                           const char* tag, const char* charset, int n)
{
    return send_pdu_parts(rec, number, text, tag, charset, n) == outcome::failed ? -1 : 0;
}

int corvel_mobile_send_pdu_from_file(struct gsm_mobile* rec, const char* number, const char* path,
                                     const char* tag, const char* charset)
{
    if (rec == nullptr)
        return -1;
    if (path == nullptr) {
        diag_plain("Mobile send SMS File is NULL");
        return -1;
    }
    const file_pointer file = open_file(path);
    if (file == nullptr)
        return -1;
    const int length = file_length(file.get());
    if (length < 0)
        return -1;
    const auto size = static_cast<std::size_t>(length);
    const text_pointer buffer = text_room(size);
    if (buffer == nullptr || std::fread(buffer.get(), 1, size, file.get()) != size)
        return -1;
    // With the NUL behind it, which is not sent.
    corvel_mobile_send_pdu(rec, number, buffer.get(), tag, charset, length + 1);
    return 0;
}

int gsm_send_pdu(struct gsm_mobile* rec, const char* number, const char* pdu, const char*,
                 const char* tag)
{
    if (rec == nullptr || pdu == nullptr)
        return -1;
    return sms_outbox_enq(0, tag, number, sms_tpdu_length(pdu), pdu);
}
