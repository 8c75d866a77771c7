/* kelo/sms.h: messages on their way out.
 *
 * Messages wait in an outbox in memory, first in, first out. The mobile task takes one at a time
 * when the modem is registered and no command waits. The outbox survives a restart of the modem
 * task and ends with the process.
 */
#ifndef KELO_SMS_H
#define KELO_SMS_H

#include <kelo/list.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* One message of the outbox. Texts are the item's own. */
struct sms_outbox_item {
    int sms_mode;          /* 0 PDU, 1 text */
    char* sms_tag;         /* the caller's tag, not empty */
    char* sms_number;      /* destination */
    int sms_length;        /* octets of the TPDU, 3GPP TS 27.005 4.3 */
    char* sms_body;        /* PDU in hexadecimal, or text */
    struct list_head node; /* link in the outbox */
};

/* Queues a message; all three texts are copied. Returns 0; -1 for a NULL or empty text, for one
 * that would break out of its command (a quote or control character in number, a Ctrl-Z or Escape
 * in body), or without memory, and then nothing is queued. */
int sms_outbox_enq(int mode, const char* tag, const char* number, int length, const char* body);

/* Takes the oldest message off, or gives NULL. The caller releases it with sms_outbox_free. */
struct sms_outbox_item* sms_outbox_deq(void);

/* Releases a message and its texts; NULL is fine. */
void sms_outbox_free(struct sms_outbox_item* item);

struct gsm_mobile;
struct gsm_event;

/* Takes a report of a received message, from its "+CMT:" or "+CMTI:" on, and gives the address of
 * gsm_event with code GSM_EVENT_SMS_RECEIVED; NULL for a NULL argument. The library calls it on the
 * mobile task for every report. */
struct gsm_event* libgsm_check_sms(struct gsm_mobile* mobile, const char* report);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
