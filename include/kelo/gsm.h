/* SPDX-License-Identifier: MIT */
/* kelo/gsm.h: the modem record, events, the status word, and the calls of the modem core.
 *
 * Threads. Unless a call says otherwise it may be made from any thread, from inside a callback of
 * the library too. The exported int words are read and written by the library with atomic accesses;
 * a host that writes one does so before the start, or accepts that the library sees the new value
 * at its next look.
 */
#ifndef KELO_GSM_H
#define KELO_GSM_H

#include <kelo/at.h>
#include <kelo/list.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- What the numbers mean ----------------------------------------------------------------- */

/* Names for numbers of the record and the words below. The fields themselves are plain ints, and a
 * modem may put other numbers into those that it fills. */

/* gsm_mobile.reg_status, and reg_stat where it is one of these (<stat>, 3GPP TS 27.007 7.2). */
enum kelo_registration {
    KELO_REGISTRATION_NONE,      /* not registered, and the modem does not search */
    KELO_REGISTRATION_HOME,      /* registered in the home network */
    KELO_REGISTRATION_SEARCHING, /* not registered yet */
    KELO_REGISTRATION_DENIED,    /* the network has refused it */
    KELO_REGISTRATION_UNKNOWN,   /* the modem does not know, as out of coverage */
    KELO_REGISTRATION_ROAMING    /* registered in another network */
};

/* gsm_mobile.tech: <AcT>, 3GPP TS 27.007 7.2 and 7.3. */
enum kelo_technology {
    KELO_TECHNOLOGY_GSM,
    KELO_TECHNOLOGY_GSM_COMPACT,
    KELO_TECHNOLOGY_UTRAN,      /* UMTS */
    KELO_TECHNOLOGY_EGPRS,      /* GSM */
    KELO_TECHNOLOGY_HSDPA,      /* UMTS */
    KELO_TECHNOLOGY_HSUPA,      /* UMTS */
    KELO_TECHNOLOGY_HSPA,       /* UMTS, HSDPA and HSUPA */
    KELO_TECHNOLOGY_EUTRAN,     /* LTE */
    KELO_TECHNOLOGY_EC_GSM_IOT, /* GSM */
    KELO_TECHNOLOGY_NB_IOT,     /* LTE, NB-S1 */
    KELO_TECHNOLOGY_EUTRA_5GC,  /* LTE cell of a 5G core */
    KELO_TECHNOLOGY_NR_5GC,     /* 5G cell of a 5G core: standalone */
    KELO_TECHNOLOGY_NG_RAN,     /* either of these two */
    KELO_TECHNOLOGY_EN_DC       /* LTE and 5G at once: non-standalone */
};

/* gsm_mobile.is5g: what the serving cell reports of this flow have shown. */
enum kelo_5g {
    KELO_5G_NONE,          /* no 5G */
    KELO_5G_NONSTANDALONE, /* 5G beside an LTE cell (NSA) */
    KELO_5G_STANDALONE     /* SA */
};

/* gsm_mobile.qeng_net_stem: generation of the serving cell. */
enum kelo_net_stem {
    KELO_NET_STEM_NONE = 0, /* no report yet */
    KELO_NET_STEM_OTHER = 1,
    KELO_NET_STEM_UMTS = 2,
    KELO_NET_STEM_LTE = 3,
    KELO_NET_STEM_5G = 9
};

/* Figures that stand for none. */
enum kelo_unknown_figure {
    KELO_CSQ_UNKNOWN = 99,    /* gsm_mobile.rssi and ber */
    KELO_RSRP_UNKNOWN = -120, /* gsm_mobile.rsrp, dBm */
    KELO_AT_PORT_NONE = 128   /* gsm_mobile.at_port */
};

/* get_sim_status. */
enum kelo_sim_status {
    KELO_SIM_FAILED = -1, /* or missing */
    KELO_SIM_DOWN = 0,    /* not registered */
    KELO_SIM_UP = 1       /* registered, or just put in */
};

/* cell_network_switch: what KELO_SCAN_SWITCHED asks for. */
enum kelo_network_switch {
    KELO_NETWORK_LTE_AND_NR, /* LTE and 5G */
    KELO_NETWORK_NR          /* 5G alone */
};

/* cell_net_proto: protocol of the data context, <PDP_type> of 3GPP TS 27.007 10.1.1. */
enum kelo_net_proto {
    KELO_NET_PROTO_IP,    /* IPv4 */
    KELO_NET_PROTO_IPV6,  /* IPv6 */
    KELO_NET_PROTO_IPV4V6 /* both */
};

/* is_quectel: habits of a module family. docs/integration.md tells how to find the one to choose;
 * a code that is not listed is as KELO_FAMILY_PLAIN. */
enum kelo_family {
    KELO_FAMILY_PLAIN = 0,       /* none of the habits below: most modules */
    KELO_FAMILY_LEFT_ALONE = 7,  /* the port belongs to another program */
    KELO_FAMILY_CEREG = 8,       /* +CEREG reports count as registration; 9 is the same */
    KELO_FAMILY_SLOW_CEREG = 10, /* the same on a module that is slow with its SIM */
    KELO_FAMILY_SLOTS = 11,      /* SIM slots whose command ends on OK; 16 and 17 are the same */
    KELO_FAMILY_PORT_1 = 13,     /* AT port with index 1, a SIM that fails now and then */
    KELO_FAMILY_SLOT_BY_AT = 14, /* SIM selection by AT command; +CREG reports count */
    KELO_FAMILY_SIMST = 15       /* ^SIMST reports; +CEREG with its report number in front */
};

/* ---- The modem record ---------------------------------------------------------------------- */

/* What is known of the one modem. Texts are terminated and zero-filled when cleared. The mobile
 * task rewrites the record while it runs: a host thread takes a copy with kelo_copy_mobile, and
 * reads g_mobile itself only while no mobile task runs. */
struct gsm_mobile {
    int simslot;            /* SIM slot asked for; 0 none, 1 or 2 a switch that waits for its row */
    int flow;               /* FLOW_* last selected */
    int custom_cfg;         /* 1 once the model's commands are in the flow lists */
    int at_port;            /* index of the AT port, 1 to 127, or KELO_AT_PORT_NONE */
    int baud;               /* bit/s, 115200 */
    int flow_ctrl;          /* 0, none */
    int data_bits;          /* 8 */
    int stop_bits;          /* 1 */
    char parity;            /* 'N' */
    int fd;                 /* descriptor of the open AT port, -1 while none is open */
    char at_dev[32];        /* path of the AT port */
    int last_event;         /* GSM_EVENT_* of the last read that gave one */
    int reg_seen;           /* the running command has seen the line that it asks for */
    int at_done;            /* the running command is finished */
    struct at_info* cur_at; /* command last taken from a list */
    char model[16];         /* AT+CGMM */
    char mfrs[32];          /* AT+CGMI */
    char revision[64];      /* AT+CGMR */
    char sn[64];            /* AT+CGSN: IMEI digits */
    char imsi[64];          /* AT+CIMI */
    char iccid[32];         /* SIM serial number */
    int gps_on;             /* 1 while a position is wanted */
    int gps_ready;          /* 1 while gps_loc holds a position not yet fetched */
    char gps_loc[128];      /* columns of +QGPSLOC as the modem wrote them */
    int version_code_new;   /* 1 while version_code was not yet fetched */
    char version_code[64];  /* version text of the ATI answer */
    int qmbn_code_new;      /* 1 while qmbn_code was not yet used */
    char qmbn_code[64];     /* carrier profile to select */
    char number[32];        /* own number, AT+CNUM */
    char smscenter[32];     /* service centre number */
    char act[16];           /* access technology, in the modem's words */
    char plmn[16];          /* numeric operator, MCC and MNC */
    char band[16];          /* of the serving cell, in the modem's words */
    int channel;            /* of the serving cell, as the modem names it */
    int reg_n;              /* <n> of the last registration line, 3GPP TS 27.007 7.2 */
    int reg_stat;           /* <stat> of the same, enum kelo_registration and more */
    char lac[16];           /* location or tracking area, hexadecimal as printed */
    int cid;                /* cell id, its low 32 bits */
    int tech;               /* <AcT> of the last registration line, enum kelo_technology */
    int rac;                /* routing area */
    int reg_status;         /* enum kelo_registration */
    char oper[64];          /* operator name */
    int rssi;               /* +CSQ: 0 to 31 for -113 to -51 dBm, 99 unknown, 3GPP TS 27.007 8.5 */
    int ber;                /* +CSQ: 0 to 7, 99 unknown */
    int currscanmode;       /* scan mode that the modem reports, mostly an enum kelo_scan_mode */
    int scanmode;           /* scan mode wanted, enum kelo_scan_mode (kelo/settings.h) */
    char band_gsm[16];      /* band masks as reported, hexadecimal without 0x */
    char band_lte[64];      /* the same of LTE */
    char band_tds[16];      /* the same of TD-SCDMA */
    char apn[128];          /* access point name */
    char user[128];         /* its user name */
    char password[128];     /* its password */
    int auth;               /* enum kelo_auth (kelo/settings.h) */
    char pincode[64];       /* SIM PIN */
    int smsmode;            /* non-zero: AT_UCS2 is passed over */
    char sms_tag[64];       /* message in flight: the caller's tag */
    int sms_len;            /* message in flight: octets of the TPDU */
    char sms_dest[64];      /* message in flight: destination */
    char sms_text[1024];    /* message in flight: text, or PDU in hexadecimal */
    int volte;              /* VoLTE setting wanted, see libgsm_set_volte */
    int is5g;               /* enum kelo_5g */
    char* pending_at;       /* one command for the next idle second; the library's own */
    int mcc;                /* serving cell, as are all that follow */
    int mnc;                /* of the network */
    int cqi;                /* channel quality, as the modem prints it */
    int sinr;               /* as the modem prints it, mostly dB */
    int ul_bandwidth;       /* the modem's code, see its serving cell report */
    int dl_bandwidth;       /* the same */
    int pcid;               /* physical cell id */
    int rsrp;               /* dBm; KELO_RSRP_UNKNOWN after every reset */
    int rsrq;               /* dB */
    int earfcn;             /* channel number */
    int enodebid;           /* cid shifted right by 8 */
    int cellid;             /* low 8 bits of cid */
    int qeng_net_stem;      /* enum kelo_net_stem */
};

extern struct gsm_mobile g_mobile; /* the one modem record */

/* Copies the whole record of one moment into *out; its pointers (cur_at, pending_at) are NULL in
 * the copy. Returns 1, or 0 for a NULL out or while there is no record. */
int kelo_copy_mobile(struct gsm_mobile* out);

/* ---- Events -------------------------------------------------------------------------------- */

/* Raised by the library; each is one line of the modem's, and what the library makes of it. */

#define GSM_EVENT_SIM_UP           1  /* registered */
#define GSM_EVENT_SIM_DOWN         3  /* not registered; the third in a row raises a flag */
#define GSM_EVENT_RING             6  /* "+CLIP": who calls; the call is hung up */
#define GSM_EVENT_HANGUP           7  /* "NO CARRIER" */
#define GSM_EVENT_RINGING          8  /* "RING": a call; raises its flag */
#define GSM_EVENT_SMS_RECEIVED     21 /* a message, or the report that one is stored */
#define GSM_EVENT_SIM_FAILED       22 /* the SIM is not ready, or fails */
#define GSM_EVENT_PIN_REQUIRED     23 /* the SIM asks for its PIN */
#define GSM_EVENT_PIN_ERROR        24 /* the SIM's answer was an error, as to a wrong PIN */
#define GSM_EVENT_PUK_REQUIRED     25 /* the SIM is locked */
#define GSM_EVENT_SIM_NOT_INSERTED 26 /* acts as GSM_EVENT_SIM_FAILED does */
#define GSM_EVENT_SIM_INSERTED     27 /* "+CPIN: READY" outside any flow; restarts the task */
#define GSM_EVENT_SIM_BUSY         28 /* the SIM is still starting */
#define GSM_EVENT_SMS_SEND_OK      29 /* the network has taken a message */
#define GSM_EVENT_SMS_SEND_FAILED  30 /* a message was refused */
#define GSM_EVENT_USSD_RECEIVED    31 /* "+CUSD" */
#define GSM_EVENT_NO_SIGNAL        33 /* a signal report without a figure */

/* Never raised by the library: numbers that a host may use for events of its own. */

#define GSM_EVENT_RESTART            4  /* restart */
#define GSM_EVENT_CONFIG_ERR         5  /* configuration error */
#define GSM_EVENT_MO_RINGING         9  /* the host's own call rings */
#define GSM_EVENT_ANSWER             10 /* a call was answered */
#define GSM_EVENT_HANGUP_ACK         11 /* the end of a call is confirmed */
#define GSM_EVENT_RESTART_ACK        12 /* a restart is confirmed */
#define GSM_EVENT_FACNAME            13 /* name of a facility */
#define GSM_EVENT_INFO_RECEIVED      14 /* information */
#define GSM_EVENT_PROCESSING         15 /* being processed */
#define GSM_EVENT_SETUP_ACK          16 /* the setup of a call is confirmed */
#define GSM_EVENT_HANGUP_REQ         17 /* the end of a call is wanted */
#define GSM_EVENT_NODIFY             18 /* notification */
#define GSM_EVENT_PROCESS            19 /* processed */
#define GSM_EVENT_KEYPAD_DIGIT       20 /* a digit of the keypad */
#define GSM_EVENT_USSD_SEND_FAILED   32 /* a USSD was refused */
#define GSM_EVENT_POWER_RESTART      36 /* the modem's power was cut */
#define GSM_EVENT_SMSCENTER_REQUIRED 37 /* no service centre number */
#define GSM_EVENT_SMSCENTER_OK       38 /* the service centre number is set */
#define GSM_EVENT_SIM_REGISTERED     40 /* the SIM is registered */

/* A few words for people for any of these, "SIM up"; "?" for other numbers. The text is static. */
const char* kelo_event_name(int code);

/* Concatenation numbers of a received message, 3GPP TS 23.040 9.2.3.24.1. */
struct long_sms_info {
    int present; /* always 1 */
    int flag;    /* reference number */
    int total;   /* parts of the message */
    int now;     /* number of this part, from 1 */
};

/* The one event record. Every event overwrites it, and fields that an event does not speak of keep
 * what they held. Written on the mobile task. */
struct gsm_event {
    int code;                       /* GSM_EVENT_* */
    char callingnum[128];           /* caller of the last +CLIP, at most 64 characters */
    int mode;                       /* received message: enum kelo_sms_mode (kelo/sms.h) */
    char pdu[512];                  /* PDU in hexadecimal; empty for a text mode report */
    char sender[64];                /* number or name */
    char smsc[64];                  /* service centre number */
    char sms_time[32];              /* when it was sent */
    char time_zone[16];             /* "GMT+8", or "unknow" */
    int length;                     /* bytes of text */
    char text[1024];                /* what it says, see coding */
    int coding;                     /* of text: enum kelo_sms_coding (kelo/sms.h) */
    struct long_sms_info* long_sms; /* NULL for a message in one part */
};

extern struct gsm_event gsm_event; /* the one event record */

/* ---- The status word ----------------------------------------------------------------------- */

/* Set and cleared by the library. */

#define CELL_STATUS_READY      0x1u   /* registered since the last stop or reload */
#define CELL_STATUS_UP         0x100u /* the same */
#define CELL_STATUS_RINGING    0x2u   /* a call is being hung up */
#define CELL_STATUS_NO_SIM     0x4u   /* not registered since the last stop or reload */
#define CELL_STATUS_SMS_FAILED 0x400u /* the last message was refused */

/* Set by a keeper alone (kelo/keeper.h); without one they are the host's own, and a registration
 * clears them. */

#define CELL_STATUS_PIN_ERROR    0x10u    /* it was refused */
#define CELL_STATUS_PIN_REQUIRED 0x20u    /* the SIM asks for its PIN */
#define CELL_STATUS_PUK_REQUIRED 0x10000u /* the SIM is locked */

/* Never set by the library: for hosts. */

#define CELL_STATUS_SMSC_REQUIRED 0x8u    /* no service centre number */
#define CELL_STATUS_NO_SIGNAL     0x40u   /* no signal */
#define CELL_STATUS_USSD_FAILED   0x80u   /* a USSD was refused; a registration clears it */
#define CELL_STATUS_DIAL_REQUIRED 0x2000u /* no number to dial */
#define CELL_STATUS_SIM_ERROR     0x4000u /* the SIM fails */

extern unsigned int gsm_dchan_status; /* CELL_STATUS_* bits */

unsigned int cellular_set_status(unsigned int bits);   /* the word after the change */
unsigned int cellular_clear_status(unsigned int bits); /* the word after the change */
unsigned int cellular_reset_status(void);              /* CELL_STATUS_NO_SIM alone */
unsigned int cellular_get_status(unsigned int mask);   /* the word under the mask */
unsigned int cellular_get_cur_status(void);            /* the whole word */
unsigned int mobile_is_ready(void);                    /* CELL_STATUS_READY or 0 */

/* Writes the text of a status value into buf, cut to size bytes with its terminator. Returns the
 * length of the whole text; -1 for a NULL buf or a size below 1. */
int libgsm_get_modem_status(char* buf, int size, unsigned int status);

/* Text of the registration status; NULL while there is no record. The text is static. */
const char* libgsm_get_network_info(void);

/* ---- Flags that a host polls --------------------------------------------------------------- */

int cellular_at_is_ready(void);           /* 1 once a start got as far as its task; never 0 again */
int cellular_is_sms_received(void);       /* 1 since a message came, until cleared */
int cellular_is_call_received(void);      /* 1 since a call came, until cleared */
int cellular_is_mqtt_received(void);      /* 1 since an MQTT message came, until cleared */
int cellular_set_sms_received(int value); /* 0; a host clears the flag with a value of 0 */
int cellular_set_call_received(int value); /* the same for calls */
int cellular_set_mqtt_received(int value); /* the same for MQTT messages */

int get_sim_status(void);           /* enum kelo_sim_status */
int set_sim_status(int value);      /* returns value */
int get_start_status(void);         /* 1 once an init has begun */
int set_start_status(int value);    /* returns value */
int get_5g_debug(void);             /* non-zero: debug lines are written */
int set_5g_debug(int value);        /* returns value */
int get_cell_pdpdeact(void);        /* the word cell_pdpdeact */
int set_cell_pdpdeact(int value);   /* returns 0 */
int get_net_status_flag(void);      /* the word g_NetStaFlag */
int set_net_status_flag(int value); /* returns 0 */
void sim_failed_count_reset(void);  /* forgets losses of registration in a row */
void sim_cpin_count_reset(void);    /* forgets SIM failures in a row */

/* A reload (cellular_reload) is wanted. The library raises the flag, its host acts on it. */
extern int cell_reload_flag;
void cell_reload_flag_set(void);   /* raises it */
void cell_reload_flag_unset(void); /* takes it down, as cellular_reload does */

/* A fresh start (cellular_stop, then cellular_start) is wanted. The library raises the flag, its
 * host acts on it and takes it down. */
void cell_start_flag_set(void);
void cell_start_flag_unset(void); /* takes it down */
int cell_start_flag_get(void);    /* 1 while it is up, else 0 */

/* ---- Exported words ------------------------------------------------------------------------ */

extern int is_quectel;          /* enum kelo_family, set by the host before the start */
extern int selected_card;       /* active SIM, 1 or 2 */
extern int isLowPower;          /* low power mode, 0 to 255 */
extern int is_pin_ready;        /* SIM unlocked and ready */
extern int needSetApn;          /* 1: the flow sends the APN to the modem */
extern int conn_mode_flag;      /* non-zero ends the dialer thread */
extern int global_quagga_stop;  /* process-wide stop request */
extern int cell_first_boot;     /* 1 until a mobile task has started */
extern int cell_repower_lock;   /* 1 while a restart is under way */
extern int cell_pdpdeact;       /* 1: the data context was lost; the host clears it */
extern int cell_ccinfo_recv;    /* cell lines still expected behind a "service cell:" header */
extern int g_NetStaFlag;        /* non-zero: swallow the next SIM up of an NR5G-SA line */
extern int cell_network_switch; /* enum kelo_network_switch */
extern int cell_net_proto;      /* enum kelo_net_proto */

/* ---- Start and stop ------------------------------------------------------------------------ */

/* Reads the profile files and sets up the first commands. Once per process; a further call changes
 * nothing but conn_mode_flag. low_power non-zero takes the low power rows. Returns 0. */
int cellular_gsm_init(unsigned char low_power);

/* Stops stale dialers, finds and opens the AT port, starts the mobile task. Takes as long as the
 * shell commands do. Returns 0, also when no port was found or could not be opened (no task runs
 * then); -1 while another start, stop or reload is under way or a mobile task still runs. */
int cellular_start(int low_power);

/* Ends the mobile task and closes the port. Waits for the task, one to three seconds. Returns 0;
 * -1 while another start, stop or reload is under way, or when called on the mobile task itself,
 * that is from a callback. */
int cellular_stop(void);

/* Walks FLOW_RELOAD on the open port. Returns 0; -1 without a record, or while a start, stop,
 * reload or restart is under way. */
int cellular_reload(void);

/* Stops and starts on a thread of its own. Returns 0, also when a restart is under way already. */
int cellular_module_restart_extern(void);

/* Does nothing and returns 0: the library never cuts the modem's power. */
int mobile_power_control(void);

/* Forgets the modem record: *place becomes NULL, and calls that need a record refuse until the next
 * cellular_gsm_init. The record itself is static and stays. */
void libgsm_mobile_free(struct gsm_mobile** place);

/* Low power mode, the low 8 bits of value; to be set before cellular_gsm_init. Returns 0. */
int libgsm_set_low_power(int value);
int libgsm_is_low_power(void); /* the mode that is set */

/* 1 (low 8 bits of value): the modem has finished its own start. Returns 0. */
int libgsm_set_init_flag(int value);

/* ---- Talking to the modem ------------------------------------------------------------------ */

/* Writes one command and CR LF to the AT port at once. No reply is awaited: it is read by whatever
 * command runs. Blocks up to two seconds when the port refuses the write. Returns 0 after the write
 * attempts; -1 without a record. */
int libgsm_send_at(const char* text);

/* Hangs up (ATH). Returns 0, or -1 for a NULL record or a closed port. */
int libgsm_hangup(struct gsm_mobile* mobile);

/* "GSM", "CDMA", "UMTS" or "LTE", by the model; "LTE" for an unknown one. The text is static. */
const char* libgsm_get_modem_network_type(void);

/* ---- What the answers said ----------------------------------------------------------------- */

/* Reads one line of an operator report (+COPS) or of an access technology report (+QNWINFO, +PSRAT,
 * +ZPAS, ^HCSQ) into the record, see at_handler. The line is cut in place. cops_handler returns an
 * event with GSM_EVENT_SIM_UP or GSM_EVENT_SIM_DOWN, or NULL; nwinfo_handler returns NULL. NULL for
 * a NULL argument. */
struct gsm_event* cops_handler(struct gsm_mobile* mobile, char* line);
struct gsm_event* nwinfo_handler(struct gsm_mobile* mobile, char* line); /* see cops_handler */

/* Non-zero: the Verizon carrier profile is selected and active. */
int libgsm_get_verizon_flag(void);

/* Generation of the serving cell, as g_mobile.qeng_net_stem; -1 while there is no record. */
int libgsm_get_qeng_net_stem(void);

/* The whole cell id, of which g_mobile.cid holds the low 32 bits: 28 bits in LTE, 36 in standalone
 * 5G. -1 while there is no record. */
long long libgsm_get_cid64(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
