/* SPDX-License-Identifier: MIT */
/* kelo/status.h: what a host asks: the polls, the report of kelo_get_cellular, and the fields of
 * the modem record one by one.
 *
 * Every call may be made from any thread, and from inside a callback of the library. Unless a call
 * says otherwise it takes no longer than a lock that is held for moments, and sends nothing.
 */
#ifndef KELO_STATUS_H
#define KELO_STATUS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Polls --------------------------------------------------------------------------------- */

int kelo_get_connect_status(void);  /* 1: the SIM is ready and the data link verified up; else 0 */
int kelo_at_is_ready(void);         /* 1 once a start got as far as its task; never 0 again */
int kelo_is_sms_received(void);     /* 1 since an SMS came, until cleaned */
int kelo_clean_sms_received(void);  /* returns 0 */
int kelo_is_call_received(void);    /* 1 since a call came, until cleaned */
int kelo_clean_call_received(void); /* returns 0 */

/* Fetches the number of the last call that told one (+CLIP, 3GPP TS 27.007 7.6), once each; empty
 * where it is withheld. It comes a moment behind the call itself, or not at all. The first `size`
 * bytes, with a terminator. Returns 1 when one was copied, else 0, also for NULL or a size of 0. */
int kelo_take_caller(char* buffer, size_t size);

int kelo_is_sim_insert(void); /* 0: the SIM has failed or is missing; else 1, also when down */

/* ---- The report ---------------------------------------------------------------------------- */

/* cellular_status.sim_state. */
enum kelo_sim_state {
    KELO_SIM_STATE_FAILED, /* or missing */
    KELO_SIM_STATE_THERE,  /* not yet identified */
    KELO_SIM_STATE_READY   /* with an ICCID */
};

/* cellular_status.net_type. */
enum kelo_net_type {
    KELO_NET_TYPE_NONE, /* no service */
    KELO_NET_TYPE_5G,
    KELO_NET_TYPE_4G,
    KELO_NET_TYPE_3G
};

/* What kelo_get_cellular tells. */
struct cellular_status {
    char oper[32]; /* operator name; empty while unknown, as are all texts here */
    int sim_state; /* enum kelo_sim_state */
    int signal; /* while currscanmode is KELO_SCAN_WCDMA: +CSQ figure, 0 to 31 for -113 to -51 dBm,
                 * KELO_CSQ_UNKNOWN (3GPP TS 27.007 8.5); else RSRP in dBm, KELO_RSRP_UNKNOWN; 0
                 * without service */
    int reserved;   /* the host's own: never written */
    int net_type;   /* enum kelo_net_type */
    char sn[32];    /* IMEI digits */
    char imsi[32];  /* subscriber identity, 15 digits at most (3GPP TS 23.003 2.2) */
    char iccid[32]; /* SIM serial number, 20 digits at most (ITU-T E.118) */
};

/* Fills the report; what comes from the modem record is of one moment. Texts that are wider in the
 * modem record are cut. net_type is KELO_NET_TYPE_NONE unless the link is up and sim_state
 * KELO_SIM_STATE_READY. While the settings ask for UMTS (KELO_NET_UMTS) and the operator can't
 * serve it, signal and net_type are 0, and every call takes wwan0 and wwan0.1 down and empties
 * /tmp/network5Gmess.txt, through the host's kelo_system where there is one, and takes as long as
 * these lines do. Without a record the texts are empty and the figures those of a cleared record.
 * Returns 1, or 0 for NULL. */
int kelo_get_cellular(struct cellular_status* record);

/* ---- The modem record, field by field ------------------------------------------------------ */

/* Texts are references into the modem record: they stay valid for the life of the process, belong
 * to the library, and may change while they are read. A host thread that wants texts that stand
 * still takes a copy of the record with kelo_copy_mobile (kelo/gsm.h). Empty while unknown; NULL
 * while there is no record (libgsm_mobile_free). */

const char* libgsm_get_model(void);           /* AT+CGMM */
const char* libgsm_get_mfrs(void);            /* manufacturer, AT+CGMI */
const char* libgsm_get_revision(void);        /* AT+CGMR */
const char* kelo_get_cellular_revision(void); /* the same */
const char* libgsm_get_sn(void);              /* IMEI digits */
const char* libgsm_get_imsi(void);            /* subscriber identity */
const char* libgsm_get_iccid(void);           /* SIM serial number */
const char* libgsm_get_number(void);          /* own number */
const char* libgsm_get_smscenter(void);       /* service centre number */
const char* libgsm_get_act(void);             /* access technology, in the modem's words */
const char* libgsm_get_oper(void);            /* operator name */
const char* libgsm_get_band(void);            /* in the modem's words */
const char* libgsm_get_plmn(void);            /* numeric operator */
const char* libgsm_get_lac(void);             /* location or tracking area, hexadecimal */
const char* libgsm_get_pincode(void); /* an empty text, not NULL, while there is no record */

/* Figures, with units and ranges as in struct gsm_mobile. -1 while there is no record, which some
 * of them can be otherwise, too. */

int libgsm_get_currscanmode(
    void);                    /* 0 while there is no record; scan mode that the modem reports */
int libgsm_get_cid(void);     /* low 32 bits; libgsm_get_cid64 has them all */
int libgsm_get_tech(void);    /* enum kelo_technology */
int libgsm_get_rssi(void);    /* +CSQ */
int libgsm_get_at_port(void); /* index of the AT port */
int libgsm_get_mcc(void);     /* of the network */
int libgsm_get_mnc(void);     /* of the network */
int libgsm_get_cqi(void);     /* channel quality */
int libgsm_get_is5g(void);    /* enum kelo_5g */
int libgsm_get_sinr(void);    /* mostly dB */
int libgsm_get_ul_bandwidth(void); /* the modem's code */
int libgsm_get_dl_bandwidth(void); /* the modem's code */
int libgsm_get_pcid(void);         /* physical cell id */
int libgsm_get_rsrp(void);         /* dBm */
int libgsm_get_rsrq(void);         /* dB */
int libgsm_get_earfcn(void);       /* channel number */
int libgsm_get_enodebid(void);     /* cid shifted right by 8 */
int libgsm_get_cellid(void);       /* low 8 bits of cid */

/* ---- Codes and commands -------------------------------------------------------------------- */

/* Bytes that a version code takes at most, with its terminator. */
#define KELO_VERSION_CODE_SIZE 64

/* Fetches the version code of the ATI answer, once each. buffer must hold KELO_VERSION_CODE_SIZE
 * bytes. Returns 1 when one was copied, else 0, also for a NULL buffer. */
int kelo_check_version_code(char* buffer);
int libgsm_check_version_code(char* buffer); /* the same */

/* What a module that the library does not know calls itself (AT+CGMM): its model then stays empty,
 * and only what every module understands is asked. Fills up to `size` bytes, terminated. Returns 1,
 * or 0 and an empty text while there is none. */
int kelo_get_unknown_model(char* buffer, size_t size);

/* Selects the carrier profile that the modem has named (AT+QMBNCFG="SELECT"), once each, and
 * switches its IMS on. Blocks for two seconds then. A name with a quote or a control character is
 * dropped with a message. Returns 0. */
int libgsm_check_qmbncfg_code(void);

/* Sends APN, user, password and auth of the modem record to the modem (AT+QICSGP), on the caller's
 * thread. A command of more than 63 characters is cut to 63. Blocks up to two seconds when the port
 * refuses the write. Returns 0 after the write attempts; -1 without a record or an open port. */
int kelo_update_apn(void);
int libgsm_update_apn(void); /* the same */

/* Thread bodies that do nothing; the first returns NULL. No thread runs them. */
void* brindle_led_control_thread(void* argument);
void sms_monitor_thread(void* argument); /* nothing, too */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
