// SPDX-License-Identifier: MIT
// The SMS codec beside Gammu's: hexadecimal PDU to UTF-8 text, and UTF-8 text to hexadecimal PDU.
// Both sides do the whole way, and every case is checked once before it is timed.
#include "quietly.h"
#include "sms/sms.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <benchmark/benchmark.h>
#include <gammu-debug.h>
#include <gammu-message.h>
#include <gammu-misc.h>
#include <gammu-unicode.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <kelo/messages.h>
#include <string>
#include <vector>

using namespace kelo;

namespace
{

constexpr char number[] = "+4915112345678";

// A message that fills one part, and a short one, of each alphabet.
struct sample {
    const char* name;
    std::string text;
    bool ucs2;
};

std::string repeat(const char* piece, int times)
{
    std::string all;
    while (times-- > 0)
        all += piece;
    return all;
}

const sample samples[] = {{"7bit/10", "The door i", false},
                          {"7bit/160", repeat("The door is open", 10), false},
                          {"ucs2/10", repeat("告白", 5), true},
                          {"ucs2/70", repeat("告白", 35), true}};

// ---- Encoding

struct kelo_encoder {
    sms_pdu_msg msg = {};
    char pdu[1024] = {};

    explicit kelo_encoder(const sample& s)
    {
        text_set(msg.da, number);
        msg.count = 1;
        msg.coding = s.ucs2 ? 1 : 0;
    }
    bool encode(const sample& s)
    {
        const auto n = static_cast<int>(s.text.size());
        return corvel_mobile_encode_pdu_sms(&g_mobile, &msg, s.text.c_str(), pdu, n, 1) > 0;
    }
};

// As Gammu's own AT driver makes a PDU: the frame has its fields at fixed places, and those of the
// message are put behind each other.
struct gammu_encoder {
    GSM_SMSMessage message = {};
    octet frame[1024] = {};
    octet packed[256] = {};
    char pdu[1024] = {};

    explicit gammu_encoder(const sample& s)
    {
        GSM_SetDefaultSMSData(&message);
        message.PDU = SMS_Submit;
        message.Class = GSM_SMS_None; // TP-DCS as ours
        message.Coding =
            s.ucs2 ? SMS_Coding_Unicode_No_Compression : SMS_Coding_Default_No_Compression;
        EncodeUnicode(message.Number, number, sizeof number - 1);
    }
    bool encode(const sample& s)
    {
        const GSM_SMSMessageLayout& at = PHONE_SMSSubmit;
        DecodeUTF8(message.Text, s.text.c_str(), s.text.size());
        message.Length = static_cast<int>(UnicodeLength(message.Text));
        int end = 0;
        if (GSM_EncodeSMSFrame(GSM_GetGlobalDebug(), &message, frame, at, &end, TRUE) != ERR_NONE)
            return false;
        octet* out = packed;
        const auto put = [&](octet where, int octets) {
            std::memcpy(out, frame + where, static_cast<std::size_t>(octets));
            out += octets;
        };
        put(at.SMSCNumber, frame[at.SMSCNumber] + 1);
        put(at.firstbyte, 1);
        put(at.TPMR, 1);
        put(at.Number, (frame[at.Number] + 1) / 2 + 2);
        put(at.TPPID, 1);
        put(at.TPDCS, 1);
        put(at.TPVP, 1);
        put(at.TPUDL, 1);
        put(at.Text, end - at.Text);
        EncodeHexBin(pdu, packed, static_cast<std::size_t>(out - packed));
        return true;
    }
};

// ---- Decoding

struct kelo_decoder {
    event what = {};

    explicit kelo_decoder(const sample&) {}
    bool decode(const std::string& pdu)
    {
        return libgsm_pdu_decode(&g_mobile, &what, pdu.c_str()) == 0;
    }
    std::string text() const // without the mark ahead of UTF-8
    {
        const std::string_view all(what.text, static_cast<std::size_t>(what.length));
        return std::string(what.coding == 0 ? all : all.substr(3));
    }
};

// What the queue of received messages gets: the same message, without the prints.
struct kelo_queue_decoder {
    kelo_sms message = {};

    explicit kelo_queue_decoder(const sample&) {}
    bool decode(const std::string& pdu)
    {
        const pdu_message read = sms_read_pdu(pdu);
        message = read.message;
        return read.readable && read.complete;
    }
    std::string text() const { return message.text; }
};

struct gammu_decoder {
    GSM_SMSMessage message = {};
    octet octets[256] = {};
    char utf8[1024] = {};

    explicit gammu_decoder(const sample&) { GSM_SetDefaultReceivedSMSData(&message); }
    bool decode(const std::string& pdu)
    {
        std::size_t end = 0;
        const std::size_t n = pdu.size() / 2;
        if (DecodeHexBin(octets, reinterpret_cast<const octet*>(pdu.data()), pdu.size()) != TRUE ||
            GSM_DecodePDUFrame(GSM_GetGlobalDebug(), &message, octets, n, &end, TRUE) != ERR_NONE)
            return false;
        EncodeUTF8(utf8, message.Text);
        return end == n;
    }
    std::string text() const { return utf8; }
};

// ---- Timing

// The SMS-DELIVER that the network makes of an SMS-SUBMIT to a number of 13 digits.
std::string delivered(const std::string& submit, bool is_part)
{
    return std::string("0791947101670000") + (is_part ? "44" : "04") + submit.substr(6, 18) +
           submit.substr(24, 4) + "42507190032180" + submit.substr(30);
}

std::string delivered(const sample& s)
{
    kelo_encoder encoder(s);
    return encoder.encode(s) ? delivered(encoder.pdu, false) : "";
}

template <class encoder_type> void encode(benchmark::State& state, const sample& s)
{
    encoder_type encoder(s);
    gammu_decoder check(s);
    if (!encoder.encode(s) || !check.decode(encoder.pdu) || check.text() != s.text)
        return state.SkipWithError("the PDU does not hold the text");
    for (auto _ : state)
        benchmark::DoNotOptimize(encoder.encode(s));
}

template <class decoder_type> void decode(benchmark::State& state, const sample& s)
{
    decoder_type decoder(s);
    const std::string pdu = delivered(s);
    if (!decoder.decode(pdu) || decoder.text() != s.text)
        return state.SkipWithError("another text came out");
    for (auto _ : state)
        benchmark::DoNotOptimize(decoder.decode(pdu));
}

// A message of three parts, as a host gets it: PDUs to one text in UTF-8.
struct kelo_joiner {
    char text[1024] = {};

    bool join(const std::vector<std::string>& pdus)
    {
        for (const std::string& pdu : pdus)
            if (const auto part = sms_read_deliver(pdu))
                sms_message_part(*part, {}, false, monotonic_ms());
        kelo_message message = {};
        return kelo_take_message(&message, sizeof message, text, sizeof text) == 1 &&
               message.missing == 0;
    }
};

struct gammu_joiner {
    std::vector<GSM_MultiSMSMessage> parts = std::vector<GSM_MultiSMSMessage>(3);
    char text[1024] = {};

    bool join(const std::vector<std::string>& pdus)
    {
        GSM_MultiSMSMessage* in[4] = {};
        GSM_MultiSMSMessage* out[4] = {};
        octet octets[256];
        for (std::size_t i = 0; i < pdus.size(); i++) {
            std::size_t end = 0;
            parts[i].Number = 1;
            GSM_SetDefaultReceivedSMSData(&parts[i].SMS[0]);
            if (DecodeHexBin(octets, reinterpret_cast<const octet*>(pdus[i].data()),
                             pdus[i].size()) != TRUE ||
                GSM_DecodePDUFrame(GSM_GetGlobalDebug(), &parts[i].SMS[0], octets,
                                   pdus[i].size() / 2, &end, TRUE) != ERR_NONE)
                return false;
            in[i] = &parts[i];
        }
        if (GSM_LinkSMS(GSM_GetGlobalDebug(), in, out, FALSE) != ERR_NONE || out[0] == nullptr)
            return false;
        std::size_t length = 0;
        for (int i = 0; i < out[0]->Number; i++) {
            EncodeUTF8(text + length, out[0]->SMS[i].Text);
            length += std::strlen(text + length);
        }
        for (GSM_MultiSMSMessage* one : out)
            std::free(one);
        return true;
    }
};

const sample long_samples[] = {{"7bit/400", repeat("The door is open", 25), false},
                               {"ucs2/180", repeat("告白", 90), true}};

template <class joiner_type> void join(benchmark::State& state, const sample& s)
{
    std::vector<std::string> pdus;
    libgsm_send_sms_from_buffer("t", number, 0, s.text.data(), static_cast<int>(s.text.size()));
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        pdus.push_back(delivered(item->sms_body, true));
        sms_outbox_free(item);
    }
    joiner_type joiner;
    if (pdus.size() != 3)
        return state.SkipWithError("not three parts");
    joiner.join(pdus); // the library puts parts together from the first call on
    if (!joiner.join(pdus) || joiner.text != s.text)
        return state.SkipWithError("another text came out");
    for (auto _ : state)
        benchmark::DoNotOptimize(joiner.join(pdus));
}

// From the host's call to the outbox and out of it again, with all that is printed on the way.
void send(benchmark::State& state, const sample& s)
{
    for (auto _ : state) {
        if (libgsm_send_sms_from_buffer("t", number, 0, s.text.data(),
                                        static_cast<int>(s.text.size())) != 0)
            return state.SkipWithError("refused");
        sms_outbox_free(sms_outbox_deq());
    }
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    for (const sample& s : samples) {
        const auto add = [&](const char* what, void (*run)(benchmark::State&, const sample&)) {
            benchmark::RegisterBenchmark((std::string(what) + "/" + s.name).c_str(), run, s);
        };
        add("decode/kelo", decode<kelo_decoder>);
        add("decode/kelo_queue", decode<kelo_queue_decoder>);
        add("decode/gammu", decode<gammu_decoder>);
        add("encode/kelo", encode<kelo_encoder>);
        add("encode/gammu", encode<gammu_encoder>);
        add("send/kelo", send);
    }
    for (const sample& s : long_samples) {
        benchmark::RegisterBenchmark((std::string("join/kelo/") + s.name).c_str(),
                                     join<kelo_joiner>, s);
        benchmark::RegisterBenchmark((std::string("join/gammu/") + s.name).c_str(),
                                     join<gammu_joiner>, s);
    }
    return run_quietly();
}
