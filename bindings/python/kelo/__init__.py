# SPDX-License-Identifier: MIT
"""kelo: one cellular modem, from Python.

    import kelo

    with kelo.Modem(apn="internet") as modem:
        print(modem.wait(lambda status: status.registered, timeout=60).operator)
        modem.send_sms("+4915112345678", "Door 3 open")

It stands on libkelo.so and nothing else. Modem has all that a program needs as a rule; library() gives every exported
call, word() every exported word, and kelo.abi the records and numbers, as the C headers declare them."""
from . import _abi as abi
from ._library import KeloError, library, word
from ._modem import Events, Messages, Modem
from ._values import (
    Answer, AnswerEnd, Auth, Call, CommandError, Event, Message, Missed, NetMode, Reason, Registration, SimState,
    SmsDelivery, SmsError, SmsErrorKind, SmsReport, SmsResult, SmsState, SmsStorage, SmsTimeout, Status, StatusChange,
)

__version__ = abi.KELO_VERSION
__all__ = [
    "Answer", "AnswerEnd", "Auth", "Call", "CommandError", "Event", "Events", "KeloError", "Message", "Messages", "Missed",
    "Modem", "NetMode", "Reason", "Registration", "SimState", "SmsDelivery", "SmsError", "SmsErrorKind", "SmsReport",
    "SmsResult", "SmsState", "SmsStorage", "SmsTimeout", "Status", "StatusChange", "abi", "library", "word",
]
