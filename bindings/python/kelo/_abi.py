# SPDX-License-Identifier: MIT
# Made by bindings/python/generate from include/kelo/*.h: change those, and run it again.
"""What the C headers of kelo declare, word for word; the headers are its reference.

Constants and enumerations have their numbers, records their fields; FUNCTIONS and VARIABLES say what the library
exports. The members of an enumeration leave out the beginning that all of them share: KELO_REASON_ONLINE is
kelo_reason.ONLINE."""
from __future__ import annotations

import enum
from ctypes import (
    Array, CFUNCTYPE, POINTER, Structure, c_char, c_char_p, c_int, c_longlong, c_size_t, c_ubyte,
    c_uint, c_ulonglong, c_void_p,
)
from typing import Any


class OpenEnum(enum.IntEnum):
    """A number that the headers do not know yet, of a newer library, is a member of its own."""

    @classmethod
    def _missing_(cls, value: object) -> OpenEnum | None:
        if not isinstance(value, int):
            return None
        member = int.__new__(cls, value)
        member._name_ = f"UNKNOWN_{value}"
        member._value_ = value
        return member


# ---- Constants ------------------------------------------------------------
FLOW_START = 1
FLOW_RELOAD = 2
FLOW_SMS_TEXT = 3
FLOW_SMS_PDU = 4
AT_FLAG_IGNORE = 2
AT_FLAG_CUSTOM = 4
AT_FLAG_SENT = 8
AT_FLAG_ONCE_DONE = 16
AT_FLAG_SKIP = 32
AT_FLAG_VOICE = 64
AT_CODE_CUSTOM = 63
KELO_COMMAND_LONGEST = 511
KELO_ANSWER_LONGEST = 8191
KELO_ASKS = 8
KELO_ASK_TIME = 20
KELO_ASK_MOST_TIME = 600
KELO_GPS_LOCATION_SIZE = 128
GSM_EVENT_SIM_UP = 1
GSM_EVENT_SIM_DOWN = 3
GSM_EVENT_RING = 6
GSM_EVENT_HANGUP = 7
GSM_EVENT_RINGING = 8
GSM_EVENT_SMS_RECEIVED = 21
GSM_EVENT_SIM_FAILED = 22
GSM_EVENT_PIN_REQUIRED = 23
GSM_EVENT_PIN_ERROR = 24
GSM_EVENT_PUK_REQUIRED = 25
GSM_EVENT_SIM_NOT_INSERTED = 26
GSM_EVENT_SIM_INSERTED = 27
GSM_EVENT_SIM_BUSY = 28
GSM_EVENT_SMS_SEND_OK = 29
GSM_EVENT_SMS_SEND_FAILED = 30
GSM_EVENT_USSD_RECEIVED = 31
GSM_EVENT_NO_SIGNAL = 33
GSM_EVENT_RESTART = 4
GSM_EVENT_CONFIG_ERR = 5
GSM_EVENT_MO_RINGING = 9
GSM_EVENT_ANSWER = 10
GSM_EVENT_HANGUP_ACK = 11
GSM_EVENT_RESTART_ACK = 12
GSM_EVENT_FACNAME = 13
GSM_EVENT_INFO_RECEIVED = 14
GSM_EVENT_PROCESSING = 15
GSM_EVENT_SETUP_ACK = 16
GSM_EVENT_HANGUP_REQ = 17
GSM_EVENT_NODIFY = 18
GSM_EVENT_PROCESS = 19
GSM_EVENT_KEYPAD_DIGIT = 20
GSM_EVENT_USSD_SEND_FAILED = 32
GSM_EVENT_POWER_RESTART = 36
GSM_EVENT_SMSCENTER_REQUIRED = 37
GSM_EVENT_SMSCENTER_OK = 38
GSM_EVENT_SIM_REGISTERED = 40
CELL_STATUS_READY = 0x1
CELL_STATUS_UP = 0x100
CELL_STATUS_RINGING = 0x2
CELL_STATUS_NO_SIM = 0x4
CELL_STATUS_SMS_FAILED = 0x400
CELL_STATUS_PIN_ERROR = 0x10
CELL_STATUS_PIN_REQUIRED = 0x20
CELL_STATUS_PUK_REQUIRED = 0x10000
CELL_STATUS_SMSC_REQUIRED = 0x8
CELL_STATUS_NO_SIGNAL = 0x40
CELL_STATUS_USSD_FAILED = 0x80
CELL_STATUS_DIAL_REQUIRED = 0x2000
CELL_STATUS_SIM_ERROR = 0x4000
KELO_SMS_LONGEST_VALIDITY = 0
KELO_SMS_OUTBOX = 1024
KELO_SMS_RESULTS = 64
KELO_SMS_REPORTS = 64
KELO_MESSAGES = 64
KELO_MQTT_FILE_LIMIT = 65536
KELO_QUESTIONS = 8
KELO_QUESTION_SIZE = 128
KELO_SMS_QUEUE = 64
KELO_VERSION_CODE_SIZE = 64
KELO_VERSION_MAJOR = 1
KELO_VERSION_MINOR = 0
KELO_VERSION_PATCH = 0
KELO_VERSION_NUMBER = 10000
KELO_VERSION = '1.0.0'

# ---- Enumerations ---------------------------------------------------------


class kelo_ask_fault(OpenEnum):
    NO_COMMAND = -1
    UNFIT = -2
    FULL = -3
    STOPPED = -4
    NO_MEMORY = -5


class kelo_ask_end(OpenEnum):
    OK = 1
    ERROR = 2
    CME_ERROR = 3
    CMS_ERROR = 4
    DATA = 5
    TIMED_OUT = 6
    NOT_SENT = 7
    PORT_LOST = 8


class kelo_registration(OpenEnum):
    NONE = 0
    HOME = 1
    SEARCHING = 2
    DENIED = 3
    UNKNOWN = 4
    ROAMING = 5


class kelo_technology(OpenEnum):
    GSM = 0
    GSM_COMPACT = 1
    UTRAN = 2
    EGPRS = 3
    HSDPA = 4
    HSUPA = 5
    HSPA = 6
    EUTRAN = 7
    EC_GSM_IOT = 8
    NB_IOT = 9
    EUTRA_5GC = 10
    NR_5GC = 11
    NG_RAN = 12
    EN_DC = 13


class kelo_5g(OpenEnum):
    NONE = 0
    NONSTANDALONE = 1
    STANDALONE = 2


class kelo_net_stem(OpenEnum):
    STEM_NONE = 0
    STEM_OTHER = 1
    STEM_UMTS = 2
    STEM_LTE = 3
    STEM_5G = 9


class kelo_unknown_figure(OpenEnum):
    CSQ_UNKNOWN = 99
    RSRP_UNKNOWN = -120
    AT_PORT_NONE = 128


class kelo_sim_status(OpenEnum):
    FAILED = -1
    DOWN = 0
    UP = 1


class kelo_network_switch(OpenEnum):
    LTE_AND_NR = 0
    NR = 1


class kelo_net_proto(OpenEnum):
    IP = 0
    IPV6 = 1
    IPV4V6 = 2


class kelo_family(OpenEnum):
    PLAIN = 0
    LEFT_ALONE = 7
    CEREG = 8
    SLOW_CEREG = 10
    SLOTS = 11
    PORT_1 = 13
    SLOT_BY_AT = 14
    SIMST = 15


class kelo_reason(OpenEnum):
    STOPPED = 0
    NO_PORT = 1
    NO_PERMISSION = 2
    PORT_IN_USE = 3
    NO_ANSWER = 4
    UNKNOWN_MODULE = 5
    PIN_REQUIRED = 6
    PIN_REFUSED = 7
    PUK_REQUIRED = 8
    NO_SIM = 9
    SIM_FAILED = 10
    SEARCHING = 11
    DENIED = 12
    NO_DIALER = 13
    DIALING = 14
    NO_ADDRESS = 15
    NO_PING = 16
    ONLINE = 17


class kelo_action(OpenEnum):
    NONE = 0
    START = 1
    ASK = 2
    RADIO_RESET = 3
    MODEM_RESTART = 4
    POWER = 5
    DIAL = 6


class kelo_log_level(OpenEnum):
    ERROR = 0
    NOTICE = 1
    DEBUG = 2


class kelo_sms_state(OpenEnum):
    SENT = 1
    FAILED = 2
    UNKNOWN = 3
    NOT_WRITTEN = 4
    REFUSED = 5


class kelo_sms_error(OpenEnum):
    NO_ERROR = 0
    CMS_ERROR = 1
    CME_ERROR = 2
    ERROR = 3


class kelo_sms_delivery(OpenEnum):
    DELIVERED = 1
    STILL_TRYING = 2
    UNDELIVERED = 3


class kelo_sms_storage(OpenEnum):
    LEAVE = 0
    READ = 1
    EMPTY = 2


class kelo_tls(OpenEnum):
    NONE = 0
    OF_MODEM = 1
    FILES = 2


class kelo_auth(OpenEnum):
    NONE = 0
    PAP = 1
    CHAP = 2
    PAP_OR_CHAP = 3
    MSCHAP = 3
    MSCHAPV2 = 4


class kelo_net_mode(OpenEnum):
    AUTOMATIC = 0
    LTE = 1
    UMTS = 2
    MODULE = 3
    LTE_AND_NR = 4
    NR = 5


class kelo_scan_mode(OpenEnum):
    AUTOMATIC = 0
    MODULE = 1
    WCDMA = 2
    LTE = 3
    SWITCHED = 9
    NR = 10


class kelo_scan_code(OpenEnum):
    AUTOMATIC = 0
    LTE = 2
    WCDMA = 4
    MODULE = 6
    SWITCHED = 7
    NR = 8


class kelo_sms_mode(OpenEnum):
    PDU = 0
    TEXT = 1
    UNKNOWN = 2


class kelo_sms_coding(OpenEnum):
    MODEM = -1
    LATIN1 = 0
    UCS2 = 1
    GSM7 = 2


class kelo_pdu_coding(OpenEnum):
    GSM7 = 0
    UTF8 = 1
    UCS2 = 2


class kelo_sim_state(OpenEnum):
    FAILED = 0
    THERE = 1
    READY = 2


class kelo_net_type(OpenEnum):
    TYPE_NONE = 0
    TYPE_5G = 1
    TYPE_4G = 2
    TYPE_3G = 3


class kelo_port_happening(OpenEnum):
    OPENED = 0
    CLOSED = 1
    HUNG_UP = 2
    WRITTEN = 3
    READ = 4


# ---- Records --------------------------------------------------------------


class list_head(Structure):
    next: Any
    prev: Any


class at_info(Structure):
    id: int
    name: bytes | None
    cmd: bytes | None
    timeout: int
    code: int
    flags: int
    handler: Any
    seq: int
    pre_treat: Any
    retries: int
    countdown: int
    retries_left: int
    cmd_template: bytes | None
    custom_cmd: bytes | None
    custom_seq: int
    node: list_head


class at_config_item(Structure):
    sim: int
    flow: int
    id: int
    ignore: int
    timeout: int
    seq: int
    cmd: bytes | None
    node: list_head


class kelo_answer(Structure):
    size: int
    number: int
    end: int
    error_number: int
    cut: int
    length: int
    last: bytes


class gsm_mobile(Structure):
    simslot: int
    flow: int
    custom_cfg: int
    at_port: int
    baud: int
    flow_ctrl: int
    data_bits: int
    stop_bits: int
    parity: bytes
    fd: int
    at_dev: bytes
    last_event: int
    reg_seen: int
    at_done: int
    cur_at: Any
    model: bytes
    mfrs: bytes
    revision: bytes
    sn: bytes
    imsi: bytes
    iccid: bytes
    gps_on: int
    gps_ready: int
    gps_loc: bytes
    version_code_new: int
    version_code: bytes
    qmbn_code_new: int
    qmbn_code: bytes
    number: bytes
    smscenter: bytes
    act: bytes
    plmn: bytes
    band: bytes
    channel: int
    reg_n: int
    reg_stat: int
    lac: bytes
    cid: int
    tech: int
    rac: int
    reg_status: int
    oper: bytes
    rssi: int
    ber: int
    currscanmode: int
    scanmode: int
    band_gsm: bytes
    band_lte: bytes
    band_tds: bytes
    apn: bytes
    user: bytes
    password: bytes
    auth: int
    pincode: bytes
    smsmode: int
    sms_tag: bytes
    sms_len: int
    sms_dest: bytes
    sms_text: bytes
    volte: int
    is5g: int
    pending_at: bytes | None
    mcc: int
    mnc: int
    cqi: int
    sinr: int
    ul_bandwidth: int
    dl_bandwidth: int
    pcid: int
    rsrp: int
    rsrq: int
    earfcn: int
    enodebid: int
    cellid: int
    qeng_net_stem: int


class long_sms_info(Structure):
    present: int
    flag: int
    total: int
    now: int


class gsm_event(Structure):
    code: int
    callingnum: bytes
    mode: int
    pdu: bytes
    sender: bytes
    smsc: bytes
    sms_time: bytes
    time_zone: bytes
    length: int
    text: bytes
    coding: int
    long_sms: Any


class kelo_keeper(Structure):
    size: int
    search_s: int
    search_most_s: int
    ask_s: int
    dial_s: int
    redial_s: int
    redial_most_s: int
    spread_percent: int
    pin_tries_least: int
    silent_s: int
    first_restart_s: int
    second_restart_s: int
    power_s: int
    second_ping_target: bytes
    stuck: Any
    context: Any
    dial_spread_s: int


class kelo_figures(Structure):
    size: int
    starts: int
    reloads: int
    radio_resets: int
    dials: int
    link_losses: int
    port_losses: int
    modem_restarts: int
    online_s: int
    offline_s: int
    last_outage_s: int
    longest_outage_s: int
    registered_at: int
    pin_tries: int
    action: int
    action_in_s: int


class kelo_sms_options(Structure):
    size: int
    tag: bytes
    validity: int
    report: int
    flash: int
    going_out: Any
    context: Any


class kelo_sms_result(Structure):
    size: int
    number: int
    tag: bytes
    destination: bytes
    state: int
    parts: int
    confirmed: int
    error: int
    error_number: int
    references: Array[c_ubyte]


class kelo_sms_report(Structure):
    size: int
    number: int
    tag: bytes
    part: int
    reference: int
    recipient: bytes
    sent: bytes
    sent_zone: int
    discharged: bytes
    discharged_zone: int
    status: int
    state: int


class kelo_message(Structure):
    size: int
    sender: bytes
    smsc: bytes
    time: bytes
    zone: int
    message_class: int
    coding: int
    data: int
    port_to: int
    port_from: int
    parts: int
    missing: int
    stored: int
    digest: int
    length: int


class mqtt_config(Structure):
    update_pending: int
    tls_mode: int
    host: bytes
    port: bytes
    client_id: bytes
    user: bytes
    password: bytes
    topic: bytes
    ca_file: bytes
    cert_file: bytes
    key_file: bytes
    keepalive: int
    mqtt_done_callback: Any


class cellular_setting(Structure):
    enable: int
    apn: bytes
    user: bytes
    password: bytes
    pin: bytes
    auth: int
    net_mode: int
    attach_timeout: int
    ping_enable: int
    ping_target: bytes


class cell_sim_cfg(Structure):
    scan_code: int
    apn: bytes | None
    auth: bytes | None
    user: bytes | None
    password: bytes | None
    pin: bytes | None
    smsc: bytes | None


class sms_outbox_item(Structure):
    sms_mode: int
    sms_tag: bytes | None
    sms_number: bytes | None
    sms_length: int
    sms_body: bytes | None
    node: list_head


class kelo_sms(Structure):
    mode: int
    sender: bytes
    smsc: bytes
    time: bytes
    zone: bytes
    text: bytes
    length: int
    coding: int
    reference: int
    total: int
    number: int
    pdu: bytes


class pdu_fields(Structure):
    smsc_length: int
    smsc_type: int
    smsc_number: bytes
    first_octet: int
    sender_length: int
    sender_type: int
    sender_number: bytes
    tp_pid: int
    tp_dcs: int
    timestamp: bytes
    ud_length: int
    user_data: bytes
    udh_chain: Any


class sms_pdu_msg(Structure):
    sca: bytes
    da: bytes
    coding_name: bytes
    flag: int
    udhl: int
    count: int
    part_size: int
    length: int
    offsets: Array[c_int]
    coding: int


class cellular_status(Structure):
    oper: bytes
    sim_state: int
    signal: int
    reserved: int
    net_type: int
    sn: bytes
    imsi: bytes
    iccid: bytes


class kelo_port_event(Structure):
    size: int
    what: int
    monotonic_ns: int
    realtime_ns: int
    bytes: bytes | None
    length: int
    lost: int


# ---- Callbacks ------------------------------------------------------------
at_handler = CFUNCTYPE(POINTER(gsm_event), POINTER(gsm_mobile), c_char_p)
at_pre_treat = CFUNCTYPE(c_int, POINTER(gsm_mobile), POINTER(at_info))
kelo_log_handler = CFUNCTYPE(None, c_uint, c_char_p, c_void_p)
mqtt_done_handler = CFUNCTYPE(None, c_int)
mqtt_urc_handler = CFUNCTYPE(None, c_char_p)
kelo_port_trace = CFUNCTYPE(None, POINTER(kelo_port_event), c_void_p)

# ---- Fields ---------------------------------------------------------------
list_head._fields_ = [
    ("next", POINTER(list_head)),
    ("prev", POINTER(list_head)),
]
at_info._fields_ = [
    ("id", c_int),
    ("name", c_char_p),
    ("cmd", c_char_p),
    ("timeout", c_int),
    ("code", c_int),
    ("flags", c_uint),
    ("handler", CFUNCTYPE(POINTER(gsm_event), POINTER(gsm_mobile), c_char_p)),
    ("seq", c_int),
    ("pre_treat", CFUNCTYPE(c_int, POINTER(gsm_mobile), POINTER(at_info))),
    ("retries", c_int),
    ("countdown", c_int),
    ("retries_left", c_int),
    ("cmd_template", c_char_p),
    ("custom_cmd", c_char_p),
    ("custom_seq", c_int),
    ("node", list_head),
]
at_config_item._fields_ = [
    ("sim", c_int),
    ("flow", c_int),
    ("id", c_int),
    ("ignore", c_int),
    ("timeout", c_int),
    ("seq", c_int),
    ("cmd", c_char_p),
    ("node", list_head),
]
kelo_answer._fields_ = [
    ("size", c_size_t),
    ("number", c_int),
    ("end", c_int),
    ("error_number", c_int),
    ("cut", c_int),
    ("length", c_int),
    ("last", c_char * 80),
]
gsm_mobile._fields_ = [
    ("simslot", c_int),
    ("flow", c_int),
    ("custom_cfg", c_int),
    ("at_port", c_int),
    ("baud", c_int),
    ("flow_ctrl", c_int),
    ("data_bits", c_int),
    ("stop_bits", c_int),
    ("parity", c_char),
    ("fd", c_int),
    ("at_dev", c_char * 32),
    ("last_event", c_int),
    ("reg_seen", c_int),
    ("at_done", c_int),
    ("cur_at", POINTER(at_info)),
    ("model", c_char * 16),
    ("mfrs", c_char * 32),
    ("revision", c_char * 64),
    ("sn", c_char * 64),
    ("imsi", c_char * 64),
    ("iccid", c_char * 32),
    ("gps_on", c_int),
    ("gps_ready", c_int),
    ("gps_loc", c_char * 128),
    ("version_code_new", c_int),
    ("version_code", c_char * 64),
    ("qmbn_code_new", c_int),
    ("qmbn_code", c_char * 64),
    ("number", c_char * 32),
    ("smscenter", c_char * 32),
    ("act", c_char * 16),
    ("plmn", c_char * 16),
    ("band", c_char * 16),
    ("channel", c_int),
    ("reg_n", c_int),
    ("reg_stat", c_int),
    ("lac", c_char * 16),
    ("cid", c_int),
    ("tech", c_int),
    ("rac", c_int),
    ("reg_status", c_int),
    ("oper", c_char * 64),
    ("rssi", c_int),
    ("ber", c_int),
    ("currscanmode", c_int),
    ("scanmode", c_int),
    ("band_gsm", c_char * 16),
    ("band_lte", c_char * 64),
    ("band_tds", c_char * 16),
    ("apn", c_char * 128),
    ("user", c_char * 128),
    ("password", c_char * 128),
    ("auth", c_int),
    ("pincode", c_char * 64),
    ("smsmode", c_int),
    ("sms_tag", c_char * 64),
    ("sms_len", c_int),
    ("sms_dest", c_char * 64),
    ("sms_text", c_char * 1024),
    ("volte", c_int),
    ("is5g", c_int),
    ("pending_at", c_char_p),
    ("mcc", c_int),
    ("mnc", c_int),
    ("cqi", c_int),
    ("sinr", c_int),
    ("ul_bandwidth", c_int),
    ("dl_bandwidth", c_int),
    ("pcid", c_int),
    ("rsrp", c_int),
    ("rsrq", c_int),
    ("earfcn", c_int),
    ("enodebid", c_int),
    ("cellid", c_int),
    ("qeng_net_stem", c_int),
]
long_sms_info._fields_ = [
    ("present", c_int),
    ("flag", c_int),
    ("total", c_int),
    ("now", c_int),
]
gsm_event._fields_ = [
    ("code", c_int),
    ("callingnum", c_char * 128),
    ("mode", c_int),
    ("pdu", c_char * 512),
    ("sender", c_char * 64),
    ("smsc", c_char * 64),
    ("sms_time", c_char * 32),
    ("time_zone", c_char * 16),
    ("length", c_int),
    ("text", c_char * 1024),
    ("coding", c_int),
    ("long_sms", POINTER(long_sms_info)),
]
kelo_keeper._fields_ = [
    ("size", c_size_t),
    ("search_s", c_uint),
    ("search_most_s", c_uint),
    ("ask_s", c_uint),
    ("dial_s", c_uint),
    ("redial_s", c_uint),
    ("redial_most_s", c_uint),
    ("spread_percent", c_uint),
    ("pin_tries_least", c_uint),
    ("silent_s", c_uint),
    ("first_restart_s", c_uint),
    ("second_restart_s", c_uint),
    ("power_s", c_uint),
    ("second_ping_target", c_char * 64),
    ("stuck", CFUNCTYPE(None, c_int, c_void_p)),
    ("context", c_void_p),
    ("dial_spread_s", c_uint),
]
kelo_figures._fields_ = [
    ("size", c_size_t),
    ("starts", c_uint),
    ("reloads", c_uint),
    ("radio_resets", c_uint),
    ("dials", c_uint),
    ("link_losses", c_uint),
    ("port_losses", c_uint),
    ("modem_restarts", c_uint),
    ("online_s", c_uint),
    ("offline_s", c_uint),
    ("last_outage_s", c_uint),
    ("longest_outage_s", c_uint),
    ("registered_at", c_longlong),
    ("pin_tries", c_int),
    ("action", c_int),
    ("action_in_s", c_uint),
]
kelo_sms_options._fields_ = [
    ("size", c_size_t),
    ("tag", c_char * 64),
    ("validity", c_uint),
    ("report", c_int),
    ("flash", c_int),
    ("going_out", CFUNCTYPE(None, c_int, c_int, c_void_p)),
    ("context", c_void_p),
]
kelo_sms_result._fields_ = [
    ("size", c_size_t),
    ("number", c_int),
    ("tag", c_char * 64),
    ("destination", c_char * 32),
    ("state", c_int),
    ("parts", c_int),
    ("confirmed", c_int),
    ("error", c_int),
    ("error_number", c_int),
    ("references", c_ubyte * 255),
]
kelo_sms_report._fields_ = [
    ("size", c_size_t),
    ("number", c_int),
    ("tag", c_char * 64),
    ("part", c_int),
    ("reference", c_int),
    ("recipient", c_char * 32),
    ("sent", c_char * 20),
    ("sent_zone", c_int),
    ("discharged", c_char * 20),
    ("discharged_zone", c_int),
    ("status", c_int),
    ("state", c_int),
]
kelo_message._fields_ = [
    ("size", c_size_t),
    ("sender", c_char * 64),
    ("smsc", c_char * 32),
    ("time", c_char * 20),
    ("zone", c_int),
    ("message_class", c_int),
    ("coding", c_int),
    ("data", c_int),
    ("port_to", c_int),
    ("port_from", c_int),
    ("parts", c_int),
    ("missing", c_int),
    ("stored", c_int),
    ("digest", c_ulonglong),
    ("length", c_int),
]
mqtt_config._fields_ = [
    ("update_pending", c_int),
    ("tls_mode", c_int),
    ("host", c_char * 64),
    ("port", c_char * 16),
    ("client_id", c_char * 64),
    ("user", c_char * 256),
    ("password", c_char * 256),
    ("topic", c_char * 64),
    ("ca_file", c_char * 64),
    ("cert_file", c_char * 64),
    ("key_file", c_char * 64),
    ("keepalive", c_int),
    ("mqtt_done_callback", CFUNCTYPE(None, c_int)),
]
cellular_setting._fields_ = [
    ("enable", c_int),
    ("apn", c_char * 32),
    ("user", c_char * 256),
    ("password", c_char * 32),
    ("pin", c_char * 64),
    ("auth", c_int),
    ("net_mode", c_int),
    ("attach_timeout", c_int),
    ("ping_enable", c_int),
    ("ping_target", c_char * 32),
]
cell_sim_cfg._fields_ = [
    ("scan_code", c_int),
    ("apn", c_char_p),
    ("auth", c_char_p),
    ("user", c_char_p),
    ("password", c_char_p),
    ("pin", c_char_p),
    ("smsc", c_char_p),
]
sms_outbox_item._fields_ = [
    ("sms_mode", c_int),
    ("sms_tag", c_char_p),
    ("sms_number", c_char_p),
    ("sms_length", c_int),
    ("sms_body", c_char_p),
    ("node", list_head),
]
kelo_sms._fields_ = [
    ("mode", c_int),
    ("sender", c_char * 64),
    ("smsc", c_char * 64),
    ("time", c_char * 32),
    ("zone", c_char * 16),
    ("text", c_char * 1024),
    ("length", c_int),
    ("coding", c_int),
    ("reference", c_int),
    ("total", c_int),
    ("number", c_int),
    ("pdu", c_char * 512),
]
pdu_fields._fields_ = [
    ("smsc_length", c_ubyte),
    ("smsc_type", c_ubyte),
    ("smsc_number", c_char * 32),
    ("first_octet", c_ubyte),
    ("sender_length", c_ubyte),
    ("sender_type", c_ubyte),
    ("sender_number", c_char * 32),
    ("tp_pid", c_ubyte),
    ("tp_dcs", c_ubyte),
    ("timestamp", c_char * 16),
    ("ud_length", c_ubyte),
    ("user_data", c_char * 320),
    ("udh_chain", c_void_p),
]
sms_pdu_msg._fields_ = [
    ("sca", c_char * 65),
    ("da", c_char * 128),
    ("coding_name", c_char * 256),
    ("flag", c_ubyte),
    ("udhl", c_int),
    ("count", c_int),
    ("part_size", c_int),
    ("length", c_int),
    ("offsets", c_int * 256),
    ("coding", c_int),
]
cellular_status._fields_ = [
    ("oper", c_char * 32),
    ("sim_state", c_int),
    ("signal", c_int),
    ("reserved", c_int),
    ("net_type", c_int),
    ("sn", c_char * 32),
    ("imsi", c_char * 32),
    ("iccid", c_char * 32),
]
kelo_port_event._fields_ = [
    ("size", c_uint),
    ("what", c_uint),
    ("monotonic_ns", c_longlong),
    ("realtime_ns", c_longlong),
    ("bytes", c_char_p),
    ("length", c_size_t),
    ("lost", c_uint),
]

# ---- Exports --------------------------------------------------------------

# Each call: what it returns, and what it takes.
FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "kelo_ask_fault_text": (c_char_p, [c_int]),
    "kelo_ask": (c_int, [c_char_p, c_uint]),
    "kelo_ask_end_name": (c_char_p, [c_int]),
    "kelo_take_answer": (c_int, [POINTER(kelo_answer), c_size_t, c_char_p, c_size_t]),
    "kelo_event_fd": (c_int, []),
    "kelo_set_gps_on": (c_int, []),
    "kelo_start_gps_location": (c_int, []),
    "kelo_stop_gps_location": (c_int, []),
    "kelo_get_gps_location": (c_int, [c_char_p]),
    "gps_set_flag_file": (None, []),
    "gps_clear_flag_file": (None, []),
    "kelo_copy_mobile": (c_int, [POINTER(gsm_mobile)]),
    "kelo_event_name": (c_char_p, [c_int]),
    "cellular_set_status": (c_uint, [c_uint]),
    "cellular_clear_status": (c_uint, [c_uint]),
    "cellular_reset_status": (c_uint, []),
    "cellular_get_status": (c_uint, [c_uint]),
    "cellular_get_cur_status": (c_uint, []),
    "mobile_is_ready": (c_uint, []),
    "libgsm_get_modem_status": (c_int, [c_char_p, c_int, c_uint]),
    "libgsm_get_network_info": (c_char_p, []),
    "cellular_at_is_ready": (c_int, []),
    "cellular_is_sms_received": (c_int, []),
    "cellular_is_call_received": (c_int, []),
    "cellular_is_mqtt_received": (c_int, []),
    "cellular_set_sms_received": (c_int, [c_int]),
    "cellular_set_call_received": (c_int, [c_int]),
    "cellular_set_mqtt_received": (c_int, [c_int]),
    "get_sim_status": (c_int, []),
    "set_sim_status": (c_int, [c_int]),
    "get_start_status": (c_int, []),
    "set_start_status": (c_int, [c_int]),
    "get_5g_debug": (c_int, []),
    "set_5g_debug": (c_int, [c_int]),
    "get_cell_pdpdeact": (c_int, []),
    "set_cell_pdpdeact": (c_int, [c_int]),
    "get_net_status_flag": (c_int, []),
    "set_net_status_flag": (c_int, [c_int]),
    "sim_failed_count_reset": (None, []),
    "sim_cpin_count_reset": (None, []),
    "cell_reload_flag_set": (None, []),
    "cell_reload_flag_unset": (None, []),
    "cell_start_flag_set": (None, []),
    "cell_start_flag_unset": (None, []),
    "cell_start_flag_get": (c_int, []),
    "cellular_gsm_init": (c_int, [c_ubyte]),
    "cellular_start": (c_int, [c_int]),
    "cellular_stop": (c_int, []),
    "cellular_reload": (c_int, []),
    "cellular_module_restart_extern": (c_int, []),
    "mobile_power_control": (c_int, []),
    "libgsm_mobile_free": (None, [POINTER(POINTER(gsm_mobile))]),
    "libgsm_set_low_power": (c_int, [c_int]),
    "libgsm_is_low_power": (c_int, []),
    "libgsm_set_init_flag": (c_int, [c_int]),
    "libgsm_send_at": (c_int, [c_char_p]),
    "libgsm_hangup": (c_int, [POINTER(gsm_mobile)]),
    "libgsm_get_modem_network_type": (c_char_p, []),
    "cops_handler": (POINTER(gsm_event), [POINTER(gsm_mobile), c_char_p]),
    "nwinfo_handler": (POINTER(gsm_event), [POINTER(gsm_mobile), c_char_p]),
    "libgsm_get_verizon_flag": (c_int, []),
    "libgsm_get_qeng_net_stem": (c_int, []),
    "libgsm_get_cid64": (c_longlong, []),
    "kelo_get_reason": (c_uint, []),
    "kelo_reason_name": (c_char_p, [c_uint]),
    "kelo_keeper_defaults": (c_int, [POINTER(kelo_keeper)]),
    "kelo_keep": (c_int, [POINTER(kelo_keeper)]),
    "kelo_keep_stop": (c_int, []),
    "kelo_get_figures": (c_int, [POINTER(kelo_figures), c_size_t]),
    "kelo_set_port": (c_int, [c_char_p]),
    "get_cell_network_up": (c_int, []),
    "ip_net_is_up": (c_int, [c_char_p]),
    "ipv6_is_up": (c_int, [c_char_p]),
    "kelo_set_log": (None, [CFUNCTYPE(None, c_uint, c_char_p, c_void_p), c_void_p]),
    "kelo_sms_options_defaults": (c_int, [POINTER(kelo_sms_options)]),
    "kelo_send_sms": (c_int, [c_char_p, c_char_p, POINTER(kelo_sms_options)]),
    "kelo_cancel_sms": (c_int, [c_int]),
    "kelo_sms_state_name": (c_char_p, [c_int]),
    "kelo_take_sms_result": (c_int, [POINTER(kelo_sms_result), c_size_t]),
    "kelo_sms_results_lost": (c_int, []),
    "kelo_take_sms_report": (c_int, [POINTER(kelo_sms_report), c_size_t]),
    "kelo_sms_reports_lost": (c_int, []),
    "kelo_set_sms_storage": (c_int, [c_int]),
    "kelo_set_sms_patience": (c_int, [c_int]),
    "kelo_take_message": (c_int, [POINTER(kelo_message), c_size_t, c_char_p, c_size_t]),
    "kelo_get_message_parts": (c_int, [POINTER(c_ulonglong), c_int]),
    "kelo_messages_lost": (c_int, []),
    "kelo_get_sms_storage": (c_int, [POINTER(c_int), POINTER(c_int)]),
    "kelo_set_cellular_wake": (c_int, [POINTER(mqtt_config)]),
    "kelo_set_mqtt_backoff": (c_int, [c_int]),
    "kelo_check_mqtt_update": (c_int, []),
    "kelo_set_urc_callback": (c_int, [CFUNCTYPE(None, c_char_p)]),
    "kelo_is_mqtt_received": (c_int, []),
    "kelo_clean_mqtt_received": (c_int, []),
    "ReadFile2String": (c_int, [c_char_p, POINTER(c_char_p)]),
    "kelo_set_questions": (c_int, [POINTER(c_char_p), c_int, c_int]),
    "kelo_init_cellular": (None, [POINTER(cellular_setting), c_ubyte]),
    "kelo_set_cellular": (c_int, [POINTER(cellular_setting)]),
    "kelo_set_cellular_but_mode": (c_int, [POINTER(cellular_setting)]),
    "kelo_cellular_restart": (None, [POINTER(cellular_setting)]),
    "kelo_deinit_cellular": (None, []),
    "init5G": (c_int, [POINTER(cellular_setting), c_ubyte]),
    "deinit5G": (c_int, []),
    "cellular_restart": (None, [POINTER(cellular_setting)]),
    "set_5G_para": (None, [POINTER(cellular_setting), c_int]),
    "set_network_card_flag": (None, [c_int]),
    "set_attach_timeout": (None, [c_int]),
    "get_start_cellular_status": (POINTER(cellular_setting), []),
    "cell_sim_config": (POINTER(cell_sim_cfg), [c_int]),
    "mobile_select_simcard": (c_int, [c_int]),
    "cellular_switch_simcard": (c_int, []),
    "sim_switch_flag_set": (None, [c_int]),
    "libgsm_set_apn": (c_int, [c_char_p, c_char_p, c_char_p, c_int]),
    "libgsm_set_pincode": (c_int, [c_char_p]),
    "libgsm_set_smscenter": (c_int, [c_char_p]),
    "libgsm_set_scanmode": (c_int, [c_int]),
    "libgsm_set_smsmode": (c_int, [c_int]),
    "libgsm_set_volte": (c_int, [c_int]),
    "libgsm_set_simslot": (c_int, [c_int]),
    "libgsm_send_sms_from_buffer": (c_int, [c_char_p, c_char_p, c_int, c_char_p, c_int]),
    "corvel_mobile_send_pdu": (c_int, [POINTER(gsm_mobile), c_char_p, c_char_p, c_char_p, c_char_p, c_int]),
    "corvel_mobile_send_pdu_from_file": (c_int, [POINTER(gsm_mobile), c_char_p, c_char_p, c_char_p, c_char_p]),
    "gsm_send_pdu": (c_int, [POINTER(gsm_mobile), c_char_p, c_char_p, c_char_p, c_char_p]),
    "sms_outbox_enq": (c_int, [c_int, c_char_p, c_char_p, c_int, c_char_p]),
    "sms_outbox_deq": (POINTER(sms_outbox_item), []),
    "sms_outbox_free": (None, [POINTER(sms_outbox_item)]),
    "kelo_take_sms": (c_int, [POINTER(kelo_sms)]),
    "kelo_sms_lost": (c_int, []),
    "libgsm_check_sms": (POINTER(gsm_event), [POINTER(gsm_mobile), c_char_p]),
    "libgsm_pdu_decode": (c_int, [POINTER(gsm_mobile), POINTER(gsm_event), c_char_p]),
    "gsm_hex2int": (c_int, [c_char_p, c_int]),
    "corvel_mobile_sms_ascii_to_gsm7bit": (c_int, [c_int, c_int]),
    "corvel_mobile_sms_encode_gsm7bit": (c_int, [c_char_p, POINTER(c_ubyte), c_int, POINTER(c_ubyte)]),
    "corvel_mobile_sms_gsm7bit_to_8bit": (c_int, [POINTER(gsm_event), POINTER(c_ubyte), c_char_p, c_int, c_int]),
    "sms_get_str": (c_int, [POINTER(c_ubyte), c_int, c_char_p, c_int]),
    "corvel_handle_user_data_header": (c_int, [POINTER(gsm_event), POINTER(pdu_fields)]),
    "corvel_mobile_encode_pdu_sms": (c_int, [POINTER(gsm_mobile), POINTER(sms_pdu_msg), c_char_p, c_char_p, c_int, c_int]),
    "kelo_get_connect_status": (c_int, []),
    "kelo_at_is_ready": (c_int, []),
    "kelo_is_sms_received": (c_int, []),
    "kelo_clean_sms_received": (c_int, []),
    "kelo_is_call_received": (c_int, []),
    "kelo_clean_call_received": (c_int, []),
    "kelo_take_caller": (c_int, [c_char_p, c_size_t]),
    "kelo_is_sim_insert": (c_int, []),
    "kelo_get_cellular": (c_int, [POINTER(cellular_status)]),
    "libgsm_get_model": (c_char_p, []),
    "libgsm_get_mfrs": (c_char_p, []),
    "libgsm_get_revision": (c_char_p, []),
    "kelo_get_cellular_revision": (c_char_p, []),
    "libgsm_get_sn": (c_char_p, []),
    "libgsm_get_imsi": (c_char_p, []),
    "libgsm_get_iccid": (c_char_p, []),
    "libgsm_get_number": (c_char_p, []),
    "libgsm_get_smscenter": (c_char_p, []),
    "libgsm_get_act": (c_char_p, []),
    "libgsm_get_oper": (c_char_p, []),
    "libgsm_get_band": (c_char_p, []),
    "libgsm_get_plmn": (c_char_p, []),
    "libgsm_get_lac": (c_char_p, []),
    "libgsm_get_pincode": (c_char_p, []),
    "libgsm_get_currscanmode": (c_int, []),
    "libgsm_get_cid": (c_int, []),
    "libgsm_get_tech": (c_int, []),
    "libgsm_get_rssi": (c_int, []),
    "libgsm_get_at_port": (c_int, []),
    "libgsm_get_mcc": (c_int, []),
    "libgsm_get_mnc": (c_int, []),
    "libgsm_get_cqi": (c_int, []),
    "libgsm_get_is5g": (c_int, []),
    "libgsm_get_sinr": (c_int, []),
    "libgsm_get_ul_bandwidth": (c_int, []),
    "libgsm_get_dl_bandwidth": (c_int, []),
    "libgsm_get_pcid": (c_int, []),
    "libgsm_get_rsrp": (c_int, []),
    "libgsm_get_rsrq": (c_int, []),
    "libgsm_get_earfcn": (c_int, []),
    "libgsm_get_enodebid": (c_int, []),
    "libgsm_get_cellid": (c_int, []),
    "kelo_check_version_code": (c_int, [c_char_p]),
    "libgsm_check_version_code": (c_int, [c_char_p]),
    "kelo_get_unknown_model": (c_int, [c_char_p, c_size_t]),
    "libgsm_check_qmbncfg_code": (c_int, []),
    "kelo_update_apn": (c_int, []),
    "libgsm_update_apn": (c_int, []),
    "brindle_led_control_thread": (c_void_p, [c_void_p]),
    "sms_monitor_thread": (None, [c_void_p]),
    "kelo_set_port_trace": (None, [CFUNCTYPE(None, POINTER(kelo_port_event), c_void_p), c_void_p]),
    "kelo_version": (c_char_p, []),
}

# Each word.
VARIABLES: dict[str, Any] = {
    "cell_at_config_h": list_head,
    "g_mobile": gsm_mobile,
    "gsm_event": gsm_event,
    "gsm_dchan_status": c_uint,
    "cell_reload_flag": c_int,
    "is_quectel": c_int,
    "selected_card": c_int,
    "isLowPower": c_int,
    "is_pin_ready": c_int,
    "needSetApn": c_int,
    "conn_mode_flag": c_int,
    "global_quagga_stop": c_int,
    "cell_first_boot": c_int,
    "cell_repower_lock": c_int,
    "cell_pdpdeact": c_int,
    "cell_ccinfo_recv": c_int,
    "g_NetStaFlag": c_int,
    "cell_network_switch": c_int,
    "cell_net_proto": c_int,
    "cell_network_up": c_int,
    "g_cellSet": cellular_setting,
    "g_netWorkCardFlag": c_int,
    "g_stability5GCount": c_int,
    "g_Apn": c_char * 32,
    "g_Usr": c_char * 32,
    "g_passWard": c_char * 32,
    "g_Pin": c_char * 32,
    "g_Auth": c_char * 32,
    "GSM7BITtoASCII8BIT": c_ubyte * 128,
}
