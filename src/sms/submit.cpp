// Messages from the host: cut, encoded and queued on the thread that hands them in.
#include "sms/sms.h"

#include "support/diag.h"
#include "support/text.h"

#include <cstdio>
#include <cstdlib>

namespace kelo
{

namespace
{

constexpr int longest_text = 64 * 1024; // bytes; 255 parts never hold as many

enum class outcome { queued, no_number, failed };

constexpr char rule[] = "===============================================================";

// The octets that the modem counts: all but the service centre field.
int tpdu_length(const char* pdu)
{
    return static_cast<int>(std::strlen(pdu) / 2) - 1 - gsm_hex2int(pdu, pdu[0] != '\0' ? 2 : 0);
}

void print_part(const sms_pdu_msg& msg, int index, int length, int offset, const char* pdu,
                const char* text)
{
    text_block block;
    block.add("%s\nSCA   : (%s)\nDA    : (%s)\n", rule, msg.sca, msg.da);
    block.add("UDHL  : %d\nflag  : 0x%02x\nCoding: (%s)\n", msg.udhl, msg.flag, msg.coding_name);
    block.add("Count : %d-%d\nLength: %d\nOffset: %d\n", index, msg.count, length, offset);
    block.add("PDU   : (%s)\nUD    : (%s)\t\t\n%s\n", pdu, text, rule);
    block.print();
}

// Encodes each part onto the list. The whole message is queued afterwards or none of it: half a
// message helps nobody.
outcome sms_send_parts(gsm_mobile* rec, sms_pdu_msg* msg, const char* work, const char* tag,
                       list_head& items)
{
    int offset = 0;
    for (int i = 0; i < msg->count; i++) {
        char text[1024] = "";
        char pdu[1024] = "";
        const int length = msg->offsets[i] - offset;
        if (length >= static_cast<int>(sizeof text))
            return outcome::failed;
        std::memcpy(text, work + offset, static_cast<std::size_t>(length));
        if (corvel_mobile_encode_pdu_sms(rec, msg, text, pdu, length, i + 1) < 1) {
            diag_plain("[ERROR] Encode pdu error");
            return sms_number_valid(msg->da) == 0 ? outcome::no_number : outcome::failed;
        }
        print_part(*msg, i + 1, length, offset, pdu, text);
        sms_outbox_item* const item =
            sms_outbox_item_create(0, tag, msg->da, tpdu_length(pdu), pdu);
        if (item == nullptr)
            return outcome::failed;
        list_add_tail(&item->node, &items);
        offset += length;
    }
    return outcome::queued;
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
    auto* const work = static_cast<char*>(std::calloc(1, static_cast<std::size_t>(n) + 1));
    auto* const msg = static_cast<sms_pdu_msg*>(std::calloc(1, sizeof(sms_pdu_msg)));
    list_head items = LIST_HEAD_INIT(items);
    outcome result = outcome::failed;
    if (work != nullptr && msg != nullptr) {
        sms_pdu_msg_init(rec, msg, number != nullptr ? number : "", charset, n);
        if (sms_detect_coding(rec, msg, text, work) == 0)
            result = sms_send_parts(rec, msg, work, tag, items);
    }
    if (result == outcome::queued)
        sms_outbox_append(items);
    while (!list_empty(&items)) {
        list_head* const first = items.next;
        list_del(first);
        sms_outbox_free(list_entry(first, sms_outbox_item, node));
    }
    std::free(work);
    std::free(msg);
    return result;
}

// A message in text mode goes out as it is. The outbox keeps texts with an end, so that one with a
// NUL in it would be cut.
outcome send_text(int mode, const char* number, const char* text, const char* tag, int n)
{
    if (text == nullptr || n < 0)
        return outcome::failed;
    const auto length = static_cast<std::size_t>(n);
    const std::size_t used = strnlen(text, length);
    for (std::size_t i = used; i < length; i++)
        if (text[i] != '\0')
            return outcome::failed;
    auto* const body = static_cast<char*>(std::malloc(used + 1));
    if (body == nullptr)
        return outcome::failed;
    std::memcpy(body, text, used);
    body[used] = '\0';
    const int result = sms_outbox_enq(mode, tag, number, n, body);
    std::free(body);
    return result == 0 ? outcome::queued : outcome::failed;
}

std::FILE* open_file(const char* path)
{
    if (path == nullptr) {
        diag_plain("Didn`t get SMS File");
        return nullptr;
    }
    std::FILE* const file = std::fopen(path, "rbe");
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
    std::FILE* const file = open_file(path);
    if (file == nullptr)
        return -1;
    const int length = file_length(file);
    char* buffer = nullptr;
    if (length >= 0)
        buffer = static_cast<char*>(std::calloc(1, static_cast<std::size_t>(length) + 1));
    const bool whole = buffer != nullptr && std::fread(buffer, 1, static_cast<std::size_t>(length),
                                                       file) == static_cast<std::size_t>(length);
    std::fclose(file);
    // With the NUL behind it, which is not sent.
    if (whole)
        corvel_mobile_send_pdu(rec, number, buffer, tag, charset, length + 1);
    std::free(buffer);
    return whole ? 0 : -1;
}

int gsm_send_pdu(struct gsm_mobile* rec, const char* number, const char* pdu, const char*,
                 const char* tag)
{
    if (rec == nullptr || pdu == nullptr)
        return -1;
    return sms_outbox_enq(0, tag, number, tpdu_length(pdu), pdu);
}
