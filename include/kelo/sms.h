/* SPDX-License-Identifier: MIT */
/* kelo/sms.h: short messages, 3GPP TS 23.038, 23.040 and 27.005.
 *
 * Out: a text is cut into parts, each part becomes a PDU and waits in an outbox in memory, first
 * in, first out. The mobile task takes one at a time when the modem is registered and no command
 * waits. The outbox survives a restart of the modem task and ends with the process.
 *
 * A part asks the network to try for five minutes and for a status report. EG25, EG95 and EP06 have
 * no flow for messages: there the task says so and drops them. kelo/messages.h tells what became of
 * each message, has calls without these limits, and puts the parts of what comes together.
 *
 * In: every message goes into a queue of KELO_SMS_QUEUE, from which kelo_take_sms takes it, and the
 * first of each read into gsm_event as well. Parts of a long message come apart and in any order;
 * reference, total and number tell how to join them.
 *
 * All calls may be made from any thread. Those that take a gsm_event lock the library's records
 * while they write it.
 */
#ifndef KELO_SMS_H
#define KELO_SMS_H

#include <kelo/list.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct gsm_mobile;
struct gsm_event;

/* ---- What the numbers mean ----------------------------------------------------------------- */

/* How a message is handed to the modem or reported by it, 3GPP TS 27.005. */
enum kelo_sms_mode {
    KELO_SMS_MODE_PDU,
    KELO_SMS_MODE_TEXT,
    KELO_SMS_MODE_UNKNOWN /* of gsm_event alone: a report that is neither */
};

/* What the bytes of a received text are: kelo_sms.coding and gsm_event.coding. */
enum kelo_sms_coding {
    KELO_SMS_CODING_MODEM = -1, /* text mode: whatever character set the modem is set to */
    KELO_SMS_CODING_LATIN1 = 0, /* ISO 8859-1 */
    KELO_SMS_CODING_UCS2 = 1,   /* UTF-8, made of UCS-2 */
    KELO_SMS_CODING_GSM7 = 2    /* UTF-8, made of the 7-bit alphabet */
};

/* What a text to be sent is: sms_pdu_msg.coding. */
enum kelo_pdu_coding {
    KELO_PDU_CODING_GSM7, /* goes out in the 7-bit alphabet */
    KELO_PDU_CODING_UTF8, /* goes out in UCS-2 */
    KELO_PDU_CODING_UCS2  /* is UCS-2 already, big endian */
};

/* ---- Sending ------------------------------------------------------------------------------- */

/* Sends a message of n bytes, which need no terminator (one at the end is not sent).
 * mode KELO_SMS_MODE_PDU: in PDUs, as many as the text needs, at most 255. ASCII (but for the grave
 * accent) and the Greek capitals that GSM has go out in the 7-bit alphabet, other UTF-8 in UCS-2,
 * and bytes with a NUL in them are taken for UCS-2, big endian. Any other mode: untouched in text
 * mode, to be sent with KELO_SMS_MODE_TEXT; the modem gets 1023 bytes at most. tag: the caller's
 * own name for the message, not empty. number: digits, with "+" ahead when international. Returns 0
 * when the whole message is queued, and also for a PDU to what is no number, of which nothing is
 * queued. -1, and nothing queued, without a modem record, for a NULL text, an empty tag, more than
 * 255 parts, in text mode a NUL, Ctrl-Z or Escape in the text or a quote or control character in
 * the number, or without memory. How it went: GSM_EVENT_SMS_SEND_OK and CELL_STATUS_SMS_FAILED. */
int libgsm_send_sms_from_buffer(const char* tag, const char* number, int mode, const char* text,
                                int n);

/* The same in PDUs alone. charset is a name for the debug lines; the bytes alone decide. Returns 0
 * also for what is no number; -1 as above. */
int corvel_mobile_send_pdu(struct gsm_mobile* mobile, const char* number, const char* text,
                           const char* tag, const char* charset, int n);

/* The same with the whole content of a file of at most 64 KiB. Returns 0 once the file is read; -1
 * for a NULL mobile or a file that can't be read. */
int corvel_mobile_send_pdu_from_file(struct gsm_mobile* mobile, const char* number,
                                     const char* path, const char* tag, const char* charset);

/* Queues one ready PDU, in hexadecimal and with its service centre field. ud is its text and may be
 * NULL. Returns 0, or -1 when it could not be queued. */
int gsm_send_pdu(struct gsm_mobile* mobile, const char* number, const char* pdu, const char* ud,
                 const char* tag);

/* One message of the outbox. Texts are the item's own. */
struct sms_outbox_item {
    int sms_mode;               /* enum kelo_sms_mode */
    char* sms_tag;              /* the caller's tag, not empty */
    char* sms_number;           /* destination */
    int sms_length;             /* octets of the TPDU, 3GPP TS 27.005 4.3 */
    char* sms_body;             /* PDU in hexadecimal, or text */
    struct KELO_LIST_HEAD node; /* link in the outbox */
};

/* Queues a message; all three texts are copied. Returns 0; -1 for a NULL or empty text, for one
 * that would break out of its command (a quote or control character in number, a Ctrl-Z or Escape
 * in body), or without memory, and then nothing is queued. */
int sms_outbox_enq(int mode, const char* tag, const char* number, int length, const char* body);

/* Takes the oldest message off, or gives NULL. The caller releases it with sms_outbox_free. */
struct sms_outbox_item* sms_outbox_deq(void);

/* Releases a message and its texts; NULL is fine. */
void sms_outbox_free(struct sms_outbox_item* item);

/* ---- Receiving ----------------------------------------------------------------------------- */

#define KELO_SMS_QUEUE 64 /* received messages that wait for the host; then the oldest goes */

/* A received message. Texts are terminated. The record stays as it is; what there is beyond it is
 * in struct kelo_message. */
struct kelo_sms {
    int mode;        /* how it was reported: enum kelo_sms_mode */
    char sender[64]; /* number or name */
    char smsc[64];   /* service centre number, empty when the report does not say */
    char time[32];   /* "2024-05-17 09:30:12", the sender's service centre's local time */
    char zone[16];   /* of time: "GMT+2", whole hours, or "unknow" */
    char text[1024]; /* what it says, see coding */
    int length;      /* bytes of text */
    int coding;      /* of text: enum kelo_sms_coding */
    int reference;   /* of a long message: the same for all its parts, 0 to 65535 */
    int total;       /* parts of the message; 0 for one in one part, and in text mode */
    int number;      /* of this part, from 1 */
    char pdu[512];   /* as received, in hexadecimal; empty in text mode. A PDU that can't be read
                      * comes with this and mode alone */
};

/* Takes the oldest received message. Returns 1; 0 when there is none, or for a NULL out. */
int kelo_take_sms(struct kelo_sms* out);

/* How many messages a full queue has dropped since the library was loaded. */
int kelo_sms_lost(void);

/* Takes a report of a received message, from its "+CMT:" or "+CMTI:" on, and gives the address of
 * gsm_event with code GSM_EVENT_SMS_RECEIVED; NULL for a NULL argument. The library calls it on the
 * mobile task for every report. */
struct gsm_event* libgsm_check_sms(struct gsm_mobile* mobile, const char* report);

/* Reads the PDU of one received message (SMS-DELIVER behind its service centre, hexadecimal) into
 * the SMS fields of event. mobile is not looked at. Returns 0; -1, and event untouched, for a NULL
 * argument or a PDU that ends early or whose numbers are too long. Also 0 for a user data header
 * longer than the message: then the fields from the text on keep what they held. */
int libgsm_pdu_decode(struct gsm_mobile* mobile, struct gsm_event* event, const char* pdu);

/* ---- The codec ------------------------------------------------------------------------------ */

/* ISO 8859-1 code of each septet of the 7-bit default alphabet, TS 23.038 6.2.1; 0xFF where there
 * is none (the Greek capitals and the escape). */
extern const unsigned char GSM7BITtoASCII8BIT[128];

/* Value of n hexadecimal digits, either case; any other character counts as 0. */
int gsm_hex2int(const char* text, int n);

/* Septet of a Greek capital given as its UTF-8 pair of bytes; 0x1B for 0xCE and 0; 0 for others. */
int corvel_mobile_sms_ascii_to_gsm7bit(int c1, int c2);

/* Packs a text into septets, TS 23.038 6.1.2.1. n counts the terminator, *udl receives the number
 * of septets without it. Returns the octets written, at most 280; -1, and nothing written, for a
 * NULL argument, an n below 1 or a text of more than 320 septets with its terminator. */
int corvel_mobile_sms_encode_gsm7bit(const char* text, unsigned char* out, int n,
                                     unsigned char* udl);

/* Unpacks n octets (at most 320) of user data whose first u are its header. Without a Greek or
 * escape septet: coding of event is KELO_SMS_CODING_LATIN1, and out receives one ISO 8859-1 byte a
 * septet and no terminator. Otherwise coding is KELO_SMS_CODING_GSM7, octets is overwritten with
 * UCS-2, big endian, and length of event is its bytes. So each of octets and out needs room for 2 *
 * (n + n / 7) bytes: 364 for 160. Returns 0; -1 for a NULL argument or n out of range. */
int corvel_mobile_sms_gsm7bit_to_8bit(struct gsm_event* event, unsigned char* octets, char* out,
                                      int n, int u);

/* Turns n bytes (at most 510) of UCS-2, big endian, into UTF-8 behind EF BB BF. Returns the bytes
 * written without the terminator; -1 for a NULL argument, n out of range, a surrogate, or a size
 * too small, and then out holds what was written up to there, terminated. */
int sms_get_str(const unsigned char* data, int n, char* out, int size);

struct udh_element;

/* What the walk through one received PDU has found. */
struct pdu_fields {
    unsigned char smsc_length;     /* octets of the service centre, its type included */
    unsigned char smsc_type;       /* type of address, TS 23.040 9.1.2.5 */
    char smsc_number[32];          /* digits of the service centre */
    unsigned char first_octet;     /* of the TPDU */
    unsigned char sender_length;   /* useful semi-octets */
    unsigned char sender_type;     /* type of address */
    char sender_number[32];        /* digits of the sender, or its name */
    unsigned char tp_pid;          /* protocol identifier */
    unsigned char tp_dcs;          /* data coding scheme, TS 23.038 4 */
    char timestamp[16];            /* 14 digits, YYMMDDhhmmss and the zone */
    unsigned char ud_length;       /* TP-UDL */
    char user_data[320];           /* hexadecimal; terminated when shorter than this */
    struct udh_element* udh_chain; /* NULL; a header is read with this alone */
};

/* Reads the user data header, TS 23.040 9.2.3.24, at the head of user_data, and leaves its
 * concatenation numbers in a new long_sms of event. Returns 0; -1 for a NULL argument, an empty
 * user_data or a header longer than it. The long_sms of gsm_event is the library's; that of an
 * event of the caller's is allocated and for the caller to free. */
int corvel_handle_user_data_header(struct gsm_event* event, struct pdu_fields* fields);

/* One message on its way out. */
struct sms_pdu_msg {
    char sca[65];          /* service centre digits */
    char da[128];          /* destination, with its "+" */
    char coding_name[256]; /* for the debug lines */
    unsigned char flag;    /* reference number */
    int udhl;              /* 1: the parts carry a header */
    int count;             /* parts */
    int part_size;         /* limit of a part, in septets, characters or bytes by coding */
    int length;            /* bytes of the text */
    int offsets[256];      /* end of each part in the text, in bytes */
    int coding;            /* enum kelo_pdu_coding */
};

/* Writes the PDU (SMS-SUBMIT behind its service centre) of one part in hexadecimal to out, a buffer
 * of 1024. part: n bytes, for KELO_PDU_CODING_GSM7 up to its terminator. index: the part's number,
 * from 1. Returns the characters written; -1 for a NULL argument, a da that is no number, or a part
 * of more than the 140 octets, header included, that a message has room for. */
int corvel_mobile_encode_pdu_sms(struct gsm_mobile* mobile, struct sms_pdu_msg* msg,
                                 const char* part, char* out, int n, int index);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
