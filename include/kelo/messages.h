/* SPDX-License-Identifier: MIT */
/* kelo/messages.h: messages of which the host learns what became of them, and whole messages.
 *
 *     int number = kelo_send_sms("+4915112345678", "Door 3 open", NULL);
 *     ... kelo_take_sms_result() tells, once, what became of it ...
 *
 *     kelo_set_sms_storage(KELO_SMS_STORAGE_EMPTY);   ahead of the init
 *     ... kelo_take_message() gives what came, also while the device was off ...
 *
 * Beside the calls of kelo/sms.h, which go on as they are: a message that comes goes into the
 * queues of both, and one that goes out by a call of kelo/sms.h gives a result here as well.
 *
 * Every call may be made from any thread. None blocks. After a fork, the child's are refused.
 * 3GPP TS 23.038, 23.040, 27.005.
 */
#ifndef KELO_MESSAGES_H
#define KELO_MESSAGES_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Out ----------------------------------------------------------------------------------- */

#define KELO_SMS_LONGEST_VALIDITY 0 /* as long as the network keeps it at most: 63 weeks */

/* How a message is sent. */
struct kelo_sms_options {
    size_t size;           /* of this record as the host knows it: set it ahead of everything */
    char tag[64];          /* the caller's own name for it, given back; may be empty */
    unsigned int validity; /* minutes for which the network tries, 5 to 635040; rounded up to what
                            * TS 23.040 9.2.3.12.1 can say; or the longest */
    int report;            /* 1: ask for a status report, which kelo_take_sms_report gives */
    int flash;             /* 1: class 0, shown at once and not kept by the phone */

    /* Ahead of each part's body (from 1), on the thread of the modem task, which waits: be quick.
     * From then on nobody can tell whether the network has the part until it has answered. What a
     * host notes here survives its own crash. NULL for none. */
    void (*going_out)(int number, int part, void* context);
    void* context; /* given to it */
};

/* Fills the record as far as its `size` goes. Returns 0; -1 for NULL or a size below that of the
 * field itself. */
int kelo_sms_options_defaults(struct kelo_sms_options* options);

/* Sends a text in UTF-8. number: digits, at most 20, with "+" ahead when international. options:
 * NULL for the defaults. The text goes out in the 7-bit alphabet (TS 23.038 6.2.1, with its
 * extension) where that has all of its characters, in UTF-16 otherwise; in at most 255 parts.
 * Returns the number of the message, above 0. 0, and a line said, for what is no number or no
 * UTF-8, an empty text, one too long, options out of range, an outbox of KELO_SMS_OUTBOX parts, no
 * memory. It waits without a modem record, too.
 * Parts go out one behind the other, each once the network has answered the one before. */
int kelo_send_sms(const char* number, const char* text, const struct kelo_sms_options* options);

#define KELO_SMS_OUTBOX 1024 /* parts that may wait */

/* Forgets a message none of whose parts has begun to go out. Returns 1, and no result follows; 0
 * when it is too late or there is none. */
int kelo_cancel_sms(int number);

/* What became of a message. */
enum kelo_sms_state {
    KELO_SMS_SENT = 1,    /* the network has confirmed every part */
    KELO_SMS_FAILED,      /* it, or the modem, has refused a part; the parts behind are not sent */
    KELO_SMS_UNKNOWN,     /* a part went out and no answer came: the port was lost, or 120 s over */
    KELO_SMS_NOT_WRITTEN, /* the modem asked for none of it, in several tries of 30 s */
    KELO_SMS_REFUSED      /* the module's flow has no commands for messages */
};
const char*
kelo_sms_state_name(int state); /* "sent", "failed", "unknown", "not written", "refused";
                                 * "?" for others */

/* What the modem has said of a part that was refused. */
enum kelo_sms_error {
    KELO_SMS_NO_ERROR,  /* no part was refused */
    KELO_SMS_CMS_ERROR, /* "+CMS ERROR: n", TS 27.005 3.2.5 */
    KELO_SMS_CME_ERROR, /* "+CME ERROR: n", TS 27.007 9.2 */
    KELO_SMS_ERROR      /* "ERROR", or an error without a number: error_number is -1 */
};

/* What became of a message. */
struct kelo_sms_result {
    size_t size;          /* of this record as the library knows it */
    int number;           /* of kelo_send_sms; 0 for a message of the calls of kelo/sms.h */
    char tag[64];         /* the caller's, cut to this */
    char destination[32]; /* cut to this */
    int state;            /* enum kelo_sms_state */
    int parts;            /* of the message */
    int confirmed;        /* parts that the network has confirmed */
    int error;            /* enum kelo_sms_error, of the first part that was refused */
    int error_number;     /* n of that error; -1 for one without */
    unsigned char references[255]; /* "+CMGS: n" of each part, in order; 0 where there is none */
};

#define KELO_SMS_RESULTS 64 /* results that wait for the host; then the oldest goes */

/* Takes the oldest result; size is that of the record as the host knows it. Returns 1; 0 when there
 * is none, or for NULL. */
int kelo_take_sms_result(struct kelo_sms_result* result, size_t size);
int kelo_sms_results_lost(void); /* since the library was loaded */

/* A status report, TS 23.040 9.2.2.3. */
struct kelo_sms_report {
    size_t size;         /* of this record as the library knows it */
    int number;          /* of the message that it answers, 0 for none of the last 256 parts */
    char tag[64];        /* of that message */
    int part;            /* from 1 */
    int reference;       /* TP-MR */
    char recipient[32];  /* as the network writes it */
    char sent[20];       /* "2024-05-17 09:30:12", local to the service centre */
    int sent_zone;       /* quarters of an hour east of UTC */
    char discharged[20]; /* when it was delivered, or given up, or last tried */
    int discharged_zone; /* quarters of an hour east of UTC */
    int status;          /* TP-ST, 9.2.3.15 */
    int state;           /* enum kelo_sms_delivery */
};
/* What a report says of its part. */
enum kelo_sms_delivery {
    KELO_SMS_DELIVERED = 1,
    KELO_SMS_STILL_TRYING, /* another report may follow */
    KELO_SMS_UNDELIVERED   /* given up */
};

#define KELO_SMS_REPORTS 64 /* reports that wait for the host; then the oldest goes */

/* Takes the oldest report, as kelo_take_sms_result. */
int kelo_take_sms_report(struct kelo_sms_report* report, size_t size);
int kelo_sms_reports_lost(void); /* since the library was loaded */

/* ---- In ------------------------------------------------------------------------------------ */

/* What is done with messages that the modem stores. */
enum kelo_sms_storage {
    KELO_SMS_STORAGE_LEAVE, /* nothing, the default: "+CMTI" is told of, and that is all */
    KELO_SMS_STORAGE_READ, /* they are read, after each start and reload and on "+CMTI", and stay */
    KELO_SMS_STORAGE_EMPTY /* they are read, and deleted once the host has kept them (see
                            * kelo_take_message) */
};

/* mode: enum kelo_sms_storage. Other than with KELO_SMS_STORAGE_LEAVE the modem is told to store
 * what comes (AT+CNMI=2,1) instead of handing it over, so that the network's copy is not let go
 * before there is another. Returns 0; -1 out of range. */
int kelo_set_sms_storage(int mode);

/* A message whose next part does not come for so long is given as far as it is there; 60 to begin
 * with, 1 to 86400. Returns 0; -1 out of range. */
int kelo_set_sms_patience(int seconds);

/* A whole message. Its text is handed out beside it. */
struct kelo_message {
    size_t size;     /* of this record as the library knows it */
    char sender[64]; /* UTF-8: a number, or a name (TS 23.040 9.1.2.5) */
    char smsc[32];   /* empty when the report does not say */
    char time[20]; /* "2024-05-17 09:30:12", local to the service centre; of the first part there */
    int zone;      /* of time: quarters of an hour east of UTC */
    int message_class; /* 0 to 3, TS 23.038 4; -1 for none */
    int coding;        /* TP-DCS of the first part there; -1 for one reported in text mode */
    int data;          /* 1: the text is octets (eight-bit data); 0: UTF-8 */
    int port_to;       /* of an application, TS 23.040 9.2.3.24.3; -1 for none */
    int port_from;     /* the same of the sender */
    int parts;         /* of the message, 1 for a short one */
    int missing; /* parts that did not come: "[part 2 missing]" stands in their place; of data,
                    nothing */
    int stored;  /* 1: it lay in the modem's storage when this process first looked there, so that a
                  * process before  may have kept it already */
    unsigned long long digest; /* of all that came, the same in every process */
    int length;                /* bytes of the text */
};

#define KELO_MESSAGES                                                                              \
    64 /* whole messages that wait for the host; then the oldest goes, but none that the modem     \
          still stores */

/* Takes the oldest message; size is that of the record, text_size that of the buffer for its text,
 * which is terminated behind its length. Returns 1. 0 when there is none, or for NULL. -1 when the
 * buffer is too small: message->length tells what is needed beside the terminator, and the message
 * stays. The next call says that the host has kept the message of the one before: only then is it
 * deleted from the modem's storage. Messages are put together from the first call on, or from the
 * first kelo_set_sms_storage other than KELO_SMS_STORAGE_LEAVE. */
int kelo_take_message(struct kelo_message* message, size_t size, char* text, size_t text_size);

/* Digests of the parts that the message taken last came in; most: room in digests. Returns how many
 * there are; 0 when none was taken, or the host has said since that it has kept it. The modem
 * deletes parts one by one: a process that was killed in between finds the rest of a message that
 * the one before has kept, and knows it by these. */
int kelo_get_message_parts(unsigned long long* digests, int most);

int kelo_messages_lost(void); /* since the library was loaded */

/* The modem's storage, as it last told. Returns 1; 0, and nothing written, while it has not. */
int kelo_get_sms_storage(int* used, int* total);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
