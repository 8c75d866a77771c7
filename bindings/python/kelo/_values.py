# SPDX-License-Identifier: MIT
"""What a modem is, does and says, as plain values."""
from __future__ import annotations

import dataclasses
import datetime
import enum
from typing import Any, Union

from . import _abi
from ._library import KeloError, library, text_of, word

Reason = _abi.kelo_reason
SmsState = _abi.kelo_sms_state
SmsErrorKind = _abi.kelo_sms_error
SmsDelivery = _abi.kelo_sms_delivery
AnswerEnd = _abi.kelo_ask_end
Registration = _abi.kelo_registration
Auth = _abi.kelo_auth
NetMode = _abi.kelo_net_mode
SmsStorage = _abi.kelo_sms_storage


class SimState(enum.Enum):
    NOT_READY = "not ready"  # not asked yet, or busy
    ABSENT = "absent"
    FAILED = "failed"
    PIN_REQUIRED = "PIN required"
    PIN_REFUSED = "PIN refused"
    PUK_REQUIRED = "PUK required"
    READY = "ready"


@dataclasses.dataclass(frozen=True)
class Status:
    """One moment of the modem. Texts are empty and figures None while unknown."""

    online: bool  # the data link is verified
    reason: Reason  # why the device is not online; STOPPED without a keeper
    registration: Registration
    sim: SimState
    model: str
    manufacturer: str
    revision: str
    imei: str
    imsi: str
    iccid: str
    number: str
    operator: str
    plmn: str  # the operator's number, MCC and MNC
    technology: str  # in the modem's words
    band: str
    cell_id: int | None
    signal_dbm: int | None  # received signal, of +CSQ
    rsrp_dbm: int | None  # of the serving cell, where the module tells
    rsrq_db: int | None
    sinr: int | None  # in the module's own scale
    port: str  # the open AT port

    @property
    def registered(self) -> bool:
        return self.registration in (Registration.HOME, Registration.ROAMING)

    @property
    def meaning(self) -> str:
        """The reason in words: "no SIM", "searching", "online" ..."""
        return text_of(library().kelo_reason_name(self.reason))

    def __str__(self) -> str:
        where = f" on {self.operator}" if self.operator else ""
        signal = "" if self.signal_dbm is None else f", {self.signal_dbm} dBm"
        network = f", registration {self.registration.name.lower()}"
        why = f" ({self.meaning})" if self.reason not in (Reason.STOPPED, Reason.ONLINE) else ""
        online = "online" if self.online else "offline"
        return f"{self.model or 'no model yet'}{where}, SIM {self.sim.value}{network}{signal}, {online}{why}"


def read_status() -> Status:
    lib = library()
    record = _abi.gsm_mobile()
    served = lib.kelo_copy_mobile(record) and record.fd >= 0  # the record outlives a port that is gone
    reason = Reason(lib.kelo_get_reason())
    told = record.qeng_net_stem > _abi.kelo_net_stem.STEM_OTHER  # else these are of a cell before
    measured = served and told and record.rsrp != _abi.kelo_unknown_figure.RSRP_UNKNOWN
    return Status(
        online=bool(lib.kelo_get_connect_status()),
        reason=reason,
        registration=Registration(record.reg_status) if served else Registration.NONE,
        sim=_sim_state(lib, reason),
        model=text_of(record.model),
        manufacturer=text_of(record.mfrs),
        revision=text_of(record.revision),
        imei=text_of(record.sn),
        imsi=text_of(record.imsi),
        iccid=text_of(record.iccid),
        number=text_of(record.number),
        operator=text_of(record.oper),
        plmn=text_of(record.plmn),
        technology=text_of(record.act),
        band=text_of(record.band),
        cell_id=lib.libgsm_get_cid64() if served and record.cid != 0 else None,
        signal_dbm=_dbm(record.rssi) if served else None,
        rsrp_dbm=record.rsrp if measured else None,
        rsrq_db=record.rsrq if measured else None,
        sinr=record.sinr if measured else None,
        port=text_of(record.at_dev) if served else "",
    )


def _sim_state(lib: Any, reason: Reason) -> SimState:
    bits = lib.cellular_get_cur_status()
    if word("is_pin_ready").value:
        return SimState.READY
    if bits & _abi.CELL_STATUS_PUK_REQUIRED or reason == Reason.PUK_REQUIRED:
        return SimState.PUK_REQUIRED
    if bits & _abi.CELL_STATUS_PIN_ERROR or reason == Reason.PIN_REFUSED:
        return SimState.PIN_REFUSED
    if bits & _abi.CELL_STATUS_PIN_REQUIRED or reason == Reason.PIN_REQUIRED:
        return SimState.PIN_REQUIRED
    if reason == Reason.NO_SIM:
        return SimState.ABSENT
    return SimState.FAILED if lib.get_sim_status() == _abi.kelo_sim_status.FAILED else SimState.NOT_READY


def _dbm(rssi: int) -> int | None:
    """+CSQ, 3GPP TS 27.007 8.5; from 100 on as some modules write it for LTE. 0 is what stands there at first, too."""
    if 1 <= rssi <= 31:
        return 2 * rssi - 113
    return rssi - 216 if 100 <= rssi <= 191 else None


def _moment(time: bytes, zone_quarters: int) -> datetime.datetime | None:
    try:
        zone = datetime.timezone(datetime.timedelta(minutes=15 * zone_quarters))
        return datetime.datetime.strptime(text_of(time), "%Y-%m-%d %H:%M:%S").replace(tzinfo=zone)
    except ValueError:  # the sender's network may write anything
        return None


@dataclasses.dataclass(frozen=True)
class Message:
    """A whole message that came in."""

    sender: str
    text: str  # empty for one of octets
    data: bytes | None  # its octets, of an application
    time: datetime.datetime | None  # of the service centre
    smsc: str
    message_class: int | None
    port_to: int | None
    port_from: int | None
    parts: int
    missing: int  # parts that did not come: "[part 2 missing]" stands in their place
    stored: bool  # it lay in the modem's storage already: a process before this one may have kept it
    digest: int  # of all that came, the same in every process

    @classmethod
    def of(cls, record: _abi.kelo_message, octets: bytes) -> Message:
        def known(value: int) -> int | None:
            return value if value >= 0 else None

        return cls(
            sender=text_of(record.sender),
            text="" if record.data else text_of(octets),
            data=octets if record.data else None,
            time=_moment(record.time, record.zone),
            smsc=text_of(record.smsc),
            message_class=known(record.message_class),
            port_to=known(record.port_to),
            port_from=known(record.port_from),
            parts=record.parts,
            missing=record.missing,
            stored=bool(record.stored),
            digest=record.digest,
        )


@dataclasses.dataclass(frozen=True)
class SmsResult:
    """What became of a message that was sent."""

    number: int  # the message's, as the library counts them
    tag: str
    destination: str
    state: SmsState
    parts: int
    confirmed: int  # parts that the network has confirmed
    error: SmsErrorKind
    error_number: int
    references: tuple[int, ...]

    @classmethod
    def of(cls, record: _abi.kelo_sms_result) -> SmsResult:
        return cls(
            number=record.number,
            tag=text_of(record.tag),
            destination=text_of(record.destination),
            state=SmsState(record.state),
            parts=record.parts,
            confirmed=record.confirmed,
            error=SmsErrorKind(record.error),
            error_number=record.error_number,
            references=tuple(record.references[: record.parts]),
        )

    def __str__(self) -> str:
        error = {
            SmsErrorKind.NO_ERROR: "",
            SmsErrorKind.CMS_ERROR: f", +CMS ERROR: {self.error_number}",
            SmsErrorKind.CME_ERROR: f", +CME ERROR: {self.error_number}",
        }.get(self.error, ", ERROR")
        state = text_of(library().kelo_sms_state_name(self.state))
        return f"message {self.number}: {state}, {self.confirmed} of {self.parts} parts confirmed{error}"


@dataclasses.dataclass(frozen=True)
class SmsReport:
    """A status report: whether a message has reached its recipient."""

    number: int
    tag: str
    part: int
    recipient: str
    sent: datetime.datetime | None
    discharged: datetime.datetime | None  # delivered, given up, or last tried
    status: int  # TP-ST, 3GPP TS 23.040 9.2.3.15
    state: SmsDelivery

    @classmethod
    def of(cls, record: _abi.kelo_sms_report) -> SmsReport:
        return cls(
            number=record.number,
            tag=text_of(record.tag),
            part=record.part,
            recipient=text_of(record.recipient),
            sent=_moment(record.sent, record.sent_zone),
            discharged=_moment(record.discharged, record.discharged_zone),
            status=record.status,
            state=SmsDelivery(record.state),
        )


@dataclasses.dataclass(frozen=True)
class Answer:
    """What the modem said to a command."""

    lines: tuple[str, ...]  # without the last one
    last: str  # the line that ended it: "OK"
    end: AnswerEnd
    error_number: int | None
    cut: bool  # lines are missing: they were too many or too long

    @classmethod
    def of(cls, record: _abi.kelo_answer, octets: bytes) -> Answer:
        return cls(
            lines=tuple(text_of(octets).split("\n")) if octets else (),
            last=text_of(record.last),
            end=AnswerEnd(record.end),
            error_number=record.error_number if record.error_number >= 0 else None,
            cut=bool(record.cut),
        )


@dataclasses.dataclass(frozen=True)
class StatusChange:
    before: Status
    now: Status

    @property
    def changed(self) -> frozenset[str]:
        """The names of the fields that have changed."""
        names = (field.name for field in dataclasses.fields(Status))
        return frozenset(name for name in names if getattr(self.before, name) != getattr(self.now, name))


@dataclasses.dataclass(frozen=True)
class Call:
    """It rang; the library hangs up by itself."""

    caller: str  # empty when withheld


@dataclasses.dataclass(frozen=True)
class Missed:
    """So many events went by while nobody took them."""

    events: int


Event = Union[StatusChange, Call, SmsResult, SmsReport, Missed]


class SmsError(KeloError):
    """A message that was not sent, or of which nobody knows: `result.state` is UNKNOWN then, and to send it once more
    is the caller's choice."""

    def __init__(self, result: SmsResult):
        super().__init__(str(result))
        self.result = result


class SmsTimeout(KeloError, TimeoutError):
    """A message that had no turn in time. It was taken back, and never goes out."""


class CommandError(KeloError):
    """A command that did not end with OK."""

    def __init__(self, command: str, answer: Answer):
        end = text_of(library().kelo_ask_end_name(answer.end))
        super().__init__(f"{command}: {answer.last if answer.last.strip() else end}")
        self.answer = answer
