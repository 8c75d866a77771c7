# SPDX-License-Identifier: MIT
"""The modem: start, stop, status, messages, commands, events."""
from __future__ import annotations

import asyncio
import atexit
import collections
import concurrent.futures
import contextlib
import ctypes
import functools
import os
import select
import threading
import time
import weakref
from typing import Any, Callable, Generic, Iterator, Sequence, TypeVar

from . import _abi
from ._library import KeloError, heard, hide, library, log, why, word
from ._values import (
    Answer, AnswerEnd, Auth, Call, CommandError, Event, Message, Missed, NetMode, SmsError, SmsReport, SmsResult,
    SmsState, SmsStorage, SmsTimeout, Status, StatusChange, read_status,
)

_T = TypeVar("_T")
_LOOK_S = 0.25  # without the library's descriptor: the modem is asked no faster
_LOOK_RARELY_S = 1.0  # with it: some of the status changes without a word
_CALLER_S = 3.0  # a caller's number comes so long behind the ring, or not at all
_EVENTS = 256  # that wait for one reader; then the oldest goes, and Missed says so
_STOP_S = 60.0

_owner: Modem | None = None
_owner_lock = threading.Lock()


class Modem:
    """The one modem of this process, on which libkelo runs from start() to stop():

        with kelo.Modem(apn="internet") as modem:
            modem.wait(lambda status: status.registered, timeout=60)
            modem.send_sms("+4915112345678", "Door 3 open")

    Every method may be called from any thread, and the coroutines from any event loop. Those that wait say so; in a
    coroutine their `_async` brothers belong. A second modem in one process is refused, and so is all of this in a child
    of a fork; one that was stopped may be started again.

    apn, user, password, auth   the access point
    pin                         of the SIM, 4 to 8 digits
    link                        whether the data link is wanted, or messages and commands alone
    ping_target                 address that has to answer before the link counts as up; empty for none
    net_mode                    which networks
    keep                        the library brings the modem back by itself, whatever fails (kelo/keeper.h). Without it
                                that is the program's: see docs/integration.md, and kelo.library()
    port                        the AT port; empty finds it
    family                      the module family code, 0 for most (docs/integration.md)
    low_power                   the modem starts in low power mode
    sms_storage                 what becomes of messages that the modem stores
    questions, ask_every        commands whose answers keep the status fresh, and how often they are asked, in seconds
    dialogue                    what goes over the port is told to the logger as DEBUG, texts and numbers too
    """

    def __init__(
        self,
        *,
        apn: str = "",
        user: str = "",
        password: str = "",
        pin: str = "",
        auth: Auth = Auth.NONE,
        link: bool = True,
        ping_target: str = "",
        net_mode: NetMode = NetMode.AUTOMATIC,
        keep: bool = True,
        port: str = "",
        family: int = 0,
        low_power: bool = False,
        sms_storage: SmsStorage = SmsStorage.EMPTY,
        questions: Sequence[str] = ("AT+CSQ", "AT+COPS?"),
        ask_every: int = 15,
        dialogue: bool = False,
    ) -> None:
        if pin and not (pin.isascii() and pin.isdigit() and 4 <= len(pin) <= 8):
            raise ValueError("pin: not 4 to 8 digits")
        settings = _abi.cellular_setting(enable=link, auth=auth, net_mode=net_mode, ping_enable=bool(ping_target))
        for name, value in dict(apn=apn, user=user, password=password, pin=pin, ping_target=ping_target).items():
            _set_text(settings, name, value)
        self._settings = settings
        self._keep, self._port, self._family, self._low_power = keep, port, family, low_power
        self._storage, self._questions, self._ask_every = SmsStorage(sms_storage), tuple(questions), ask_every
        self._dialogue = dialogue
        self._secrets = (pin, password)
        self._lib = library()
        _stop_at_exit()
        self._pid = 0
        self._running = False
        self._lock = threading.RLock()  # over a hand-over and the note of its number; over what awaits its end
        self._results: dict[int, concurrent.futures.Future[SmsResult]] = {}
        self._answers: dict[int, concurrent.futures.Future[Answer]] = {}
        self._readers: weakref.WeakSet[Events] = weakref.WeakSet()
        self._bells: set[_Bell] = set()
        self._looked = threading.Condition()
        self._last = read_status()
        self._rang_at: float | None = None
        self._watcher: threading.Thread | None = None
        self._ending = threading.Event()
        self._message_reader: Callable[[], Messages | None] = lambda: None

    # ---- Start and stop ------------------------------------------------------------------------------------------

    def start(self) -> None:
        """Starts the library, which brings the modem up on threads of its own. Returns at once as a rule; behind a stop
        it waits for what is left of the run before, mostly two seconds, a minute at most. KeloError when the library,
        or another modem of this process, refuses."""
        global _owner
        lib = self._lib
        with _owner_lock:
            if _owner is not None:
                raise KeloError("this process has its modem already: one process owns one")
            hide(*self._secrets)
            commands = (ctypes.c_char_p * len(self._questions))(*[each.encode() for each in self._questions])
            _done("the port is refused", lib.kelo_set_port, self._port.encode())
            _done("no such storage of messages", lib.kelo_set_sms_storage, self._storage)
            _done("the questions are refused", lib.kelo_set_questions, commands, len(commands), self._ask_every)
            word("is_quectel").value = self._family
            word("needSetApn").value = bool(self._settings.apn)
            word("global_quagga_stop").value = 0
            word("g_mobile").reg_status = 0  # of a run before; no task runs that would write it
            if self._keep:
                _done("no keeper", lib.kelo_keep, None)
            try:
                _done("the library does not start", lib.init5G, self._settings, self._low_power)
            except KeloError:
                lib.kelo_keep_stop()
                raise
            if self._dialogue:
                lib.set_5g_debug(1)
            self._running, self._pid, _owner, self._last = True, os.getpid(), self, read_status()
            self._ending.clear()
            self._watcher = threading.Thread(target=self._watch, name="kelo", daemon=True)
            self._watcher.start()

    def stop(self) -> None:
        """Ends the library's threads and closes the port; the dialer program and wwan0 stay up. Waits: one to three
        seconds, longer while a start is under way. Who still waits for a result or an answer gets a KeloError; a
        message that has not begun to go out is taken back. Does nothing where nothing runs."""
        global _owner
        if os.getpid() != self._pid:  # a fork's child has no part in it
            return
        with _owner_lock:
            if not self._running:
                return
            self._running, _owner = False, None
            lib = self._lib
            with self._lock:
                for number in self._results:
                    lib.kelo_cancel_sms(number)
            if self._keep:
                lib.kelo_keep_stop()
            lib.kelo_deinit_cellular()
            until = time.monotonic() + _STOP_S
            while (stopped := lib.cellular_stop() == 0) is False and time.monotonic() < until:
                time.sleep(0.5)
            self._ending.set()
            if self._watcher is not None:
                self._watcher.join()
            with contextlib.suppress(Exception):
                self._look()  # results of the last moment
            with self._lock:
                waiting: list[concurrent.futures.Future[Any]] = [*self._results.values(), *self._answers.values()]
                self._results.clear()
                self._answers.clear()
            for future in waiting:
                if future.set_running_or_notify_cancel():
                    future.set_exception(KeloError("the modem was stopped"))
            self._wake()
        if not stopped:
            raise KeloError("the modem task did not end within a minute")

    def __enter__(self) -> Modem:
        self.start()
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()

    async def __aenter__(self) -> Modem:
        await asyncio.to_thread(self.start)
        return self

    async def __aexit__(self, *_: object) -> None:
        await asyncio.to_thread(self.stop)

    # ---- Status --------------------------------------------------------------------------------------------------

    @property
    def status(self) -> Status:
        """What is known at this moment. Takes no longer than a copy."""
        return read_status()

    def wait(self, until: Callable[[Status], object], timeout: float | None = None) -> Status:
        """Waits for a status that `until` says yes to, and returns it. TimeoutError, KeloError behind a stop."""
        with self._looked:
            found = self._looked.wait_for(lambda: until(self._last) or not self._running, timeout)
            status = self._last
        if not found:
            raise TimeoutError(f"not within {timeout} s: {status}")
        if not until(status):
            raise KeloError("the modem was stopped")
        return status

    async def wait_async(self, until: Callable[[Status], object], timeout: float | None = None) -> Status:
        """wait() for coroutines."""
        async def look() -> Status:
            with self._bell() as bell:
                while not until(status := read_status()):
                    if not self._running:
                        raise KeloError("the modem was stopped")
                    await bell.wait()
            return status

        try:
            return await asyncio.wait_for(look(), timeout)
        except asyncio.TimeoutError:
            raise TimeoutError(f"not within {timeout} s: {read_status()}") from None

    def events(self) -> Events:
        """`async for event in modem.events()`: StatusChange, Call, SmsResult and SmsReport as they happen, from this
        call on, until the modem is stopped. Each call gives a reader of its own."""
        reader = Events(self)
        self._readers.add(reader)
        return reader

    # ---- Messages ------------------------------------------------------------------------------------------------

    def send_sms(
        self, number: str, text: str, *, timeout: float | None = 300, tag: str = "", report: bool = False,
        flash: bool = False, validity_minutes: int | None = None,
    ) -> SmsResult:
        """Sends a text and waits until the network has confirmed all of it. SmsError when that is not what became of
        it, KeloError or ValueError for what can't be sent. SmsTimeout when it did not begin to go out in `timeout`
        seconds: it is taken back then. Once it has begun this call waits for the end, whatever the timeout: at most two
        minutes a part. With report, an SmsReport follows among the events."""
        message, future = self._hand_over(number, text, tag, report, flash, validity_minutes)
        try:
            return _sent(future.result(timeout))
        except concurrent.futures.TimeoutError:
            if self._take_back(message):
                raise SmsTimeout(f"message {message} had no turn in {timeout} s: {self.status}") from None
            return _sent(future.result())
        except BaseException:
            self._take_back(message)
            raise

    async def send_sms_async(
        self, number: str, text: str, *, timeout: float | None = 300, tag: str = "", report: bool = False,
        flash: bool = False, validity_minutes: int | None = None,
    ) -> SmsResult:
        """send_sms() for coroutines. Cancelled, it takes the message back if that has not begun to go out."""
        message, future = self._hand_over(number, text, tag, report, flash, validity_minutes)
        awaited = asyncio.wrap_future(future)
        try:
            done, _ = await asyncio.wait([awaited], timeout=timeout)
            if not done and self._take_back(message):
                raise SmsTimeout(f"message {message} had no turn in {timeout} s: {self.status}")
            return _sent(await awaited)
        except asyncio.CancelledError:
            self._take_back(message)
            raise

    def take_message(self) -> Message | None:
        """The oldest message that came in and was not taken yet, put together from its parts, or None. Does not wait.
        The call says that the message of the call before is kept, on disk or wherever it belongs: only then is it
        deleted from the modem (SmsStorage.EMPTY)."""
        record = _abi.kelo_message()
        room = 1024
        while True:
            text = ctypes.create_string_buffer(room)
            got = self._lib.kelo_take_message(record, ctypes.sizeof(record), text, room)
            if got >= 0:
                return Message.of(record, text.raw[: record.length]) if got else None
            room = record.length + 1

    def messages(self) -> Messages:
        """`async for message in modem.messages()`: what comes in, until the modem is stopped. A message counts as kept
        once the loop asks for the next one, so what its body writes survives a crash, and a crash in the body loses
        nothing. There is one such loop at a time."""
        if self._message_reader() is not None:
            raise KeloError("messages() has its reader already")
        reader = Messages(self)
        self._message_reader = weakref.ref(reader)
        return reader

    # ---- Commands ------------------------------------------------------------------------------------------------

    def ask(self, command: str, timeout: int = 0) -> Answer:
        """Sends a command of one's own between flows and messages and waits for its answer: `timeout` seconds of the
        modem's silence at most (0: the library's 20), and up to two minutes for its turn. CommandError when it does not
        end with OK; KeloError for what the library does not send (kelo/command.h)."""
        return _ok(command, self._put(command, timeout).result())

    async def ask_async(self, command: str, timeout: int = 0) -> Answer:
        """ask() for coroutines."""
        return _ok(command, await asyncio.wrap_future(self._put(command, timeout)))

    # ---- Inside --------------------------------------------------------------------------------------------------

    def _require_running(self) -> None:
        if not self._running:
            raise KeloError("the modem is not started")

    def _hand_over(
        self, number: str, text: str, tag: str, report: bool, flash: bool, validity_minutes: int | None
    ) -> tuple[int, concurrent.futures.Future[SmsResult]]:
        options = _abi.kelo_sms_options(size=ctypes.sizeof(_abi.kelo_sms_options))
        self._lib.kelo_sms_options_defaults(options)
        options.report, options.flash = report, flash
        if validity_minutes is not None:
            options.validity = validity_minutes
        _set_text(options, "tag", tag)
        with self._lock:  # the result may be there before the number is noted
            self._require_running()
            with heard() as lines:
                message = self._lib.kelo_send_sms(_plain(number, "number"), _plain(text, "text"), options)
            if message == 0:
                raise KeloError(why(lines, "the library does not take the message"))
            future: concurrent.futures.Future[SmsResult] = concurrent.futures.Future()
            self._results[message] = future
        return message, future

    def _take_back(self, message: int) -> bool:
        with self._lock:
            if not self._lib.kelo_cancel_sms(message):
                return False
            self._results.pop(message, None)
        return True

    def _put(self, command: str, timeout: int) -> concurrent.futures.Future[Answer]:
        with self._lock:
            self._require_running()
            number = self._lib.kelo_ask(_plain(command, "command"), timeout)
            if number <= 0:
                raise KeloError(f"{command}: {(self._lib.kelo_ask_fault_text(number) or b'').decode()}")
            future: concurrent.futures.Future[Answer] = concurrent.futures.Future()
            self._answers[number] = future
        return future

    # The one thread that takes what the library has: results, answers, calls, and each change of the status.
    def _watch(self) -> None:
        bell = select.poll()
        descriptor: int = self._lib.kelo_event_fd() if hasattr(self._lib, "kelo_event_fd") else -1
        if descriptor >= 0:
            bell.register(descriptor, select.POLLIN)
        while not self._ending.is_set():
            try:
                self._look()
                self._wake()
            except Exception:  # one bad record must not end it
                log.exception("the modem's news")
            if descriptor < 0:
                self._ending.wait(_LOOK_S)
            elif bell.poll(_LOOK_RARELY_S * 1000):
                with contextlib.suppress(BlockingIOError):
                    os.read(descriptor, 8)

    def _look(self) -> None:
        happened: list[Event] = []
        result = _abi.kelo_sms_result()
        while self._lib.kelo_take_sms_result(result, ctypes.sizeof(result)):
            happened.append(became := SmsResult.of(result))
            with self._lock:
                sms = self._results.pop(became.number, None)
            _settle(sms, became)
        report = _abi.kelo_sms_report()
        while self._lib.kelo_take_sms_report(report, ctypes.sizeof(report)):
            happened.append(SmsReport.of(report))
        answer, lines = _abi.kelo_answer(), ctypes.create_string_buffer(_abi.KELO_ANSWER_LONGEST + 1)
        while self._lib.kelo_take_answer(answer, ctypes.sizeof(answer), lines, len(lines)) == 1:
            with self._lock:
                asked = self._answers.pop(answer.number, None)
            _settle(asked, Answer.of(answer, lines.raw[: answer.length]))
        happened += self._call()
        before, self._last = self._last, read_status()
        if before != self._last:
            happened.append(StatusChange(before, self._last))
        for reader in list(self._readers):
            reader._add(happened)

    def _call(self) -> list[Event]:
        now = time.monotonic()
        if self._lib.kelo_is_call_received():
            self._lib.kelo_clean_call_received()
            self._rang_at = self._rang_at or now
        caller = ctypes.create_string_buffer(128)
        told = self._lib.kelo_take_caller(caller, len(caller))
        if not told and (self._rang_at is None or now - self._rang_at < _CALLER_S):
            return []
        self._rang_at = None
        return [Call(caller.value.decode("utf-8", "replace"))]

    def _wake(self) -> None:
        with self._looked:
            self._looked.notify_all()
        with self._lock:
            bells = list(self._bells)
        for bell in bells:
            bell.ring()

    @contextlib.contextmanager
    def _bell(self) -> Iterator[_Bell]:
        bell = _Bell()
        with self._lock:
            self._bells.add(bell)
        try:
            yield bell
        finally:
            with self._lock:
                self._bells.discard(bell)


class _Bell:
    """Rung by the watcher, heard in an event loop."""

    def __init__(self) -> None:
        self._loop = asyncio.get_running_loop()
        self._rung = asyncio.Event()

    def ring(self) -> None:
        with contextlib.suppress(RuntimeError):  # a loop that is closed
            self._loop.call_soon_threadsafe(self._rung.set)

    async def wait(self) -> None:
        await self._rung.wait()
        self._rung.clear()


class _Stream(Generic[_T]):
    """An asynchronous iterator, until the modem is stopped."""

    def __init__(self, modem: Modem) -> None:
        self._modem = modem

    def _take(self) -> _T | None:
        raise NotImplementedError

    def __aiter__(self) -> _Stream[_T]:
        return self

    async def __anext__(self) -> _T:
        with self._modem._bell() as bell:
            while True:
                running = self._modem._running  # what the stop has left is given, too
                item = self._take()
                if item is not None:
                    return item
                if not running:
                    raise StopAsyncIteration
                await bell.wait()


class Messages(_Stream[Message]):
    """What comes in, made by Modem.messages()."""

    def _take(self) -> Message | None:
        return self._modem.take_message()


class Events(_Stream[Event]):
    """What happens, made by Modem.events()."""

    def __init__(self, modem: Modem) -> None:
        super().__init__(modem)
        self._lock = threading.Lock()
        self._waiting: collections.deque[Event] = collections.deque()
        self._missed = 0

    def _add(self, happened: list[Event]) -> None:
        with self._lock:
            self._waiting.extend(happened)
            while len(self._waiting) > _EVENTS:
                self._waiting.popleft()
                self._missed += 1

    def _take(self) -> Event | None:
        with self._lock:
            missed, self._missed = self._missed, 0
            if missed:
                return Missed(missed)
            return self._waiting.popleft() if self._waiting else None


def _settle(future: concurrent.futures.Future[_T] | None, value: _T) -> None:
    if future is not None and future.set_running_or_notify_cancel():
        future.set_result(value)


def _sent(result: SmsResult) -> SmsResult:
    if result.state != SmsState.SENT:
        raise SmsError(result)
    return result


def _ok(command: str, answer: Answer) -> Answer:
    if answer.end != AnswerEnd.OK:
        raise CommandError(command, answer)
    return answer


def _plain(text: str, name: str) -> bytes:
    if "\0" in text:
        raise ValueError(f"{name}: holds a NUL")
    try:
        return text.encode()
    except UnicodeEncodeError as error:
        raise ValueError(f"{name}: {error.reason}") from None


def _set_text(record: ctypes.Structure, name: str, text: str) -> None:
    """The library would cut a text that is too wide, and refuse a bad character when it is too late to say so."""
    octets = _plain(text, name)
    most = getattr(type(record), name).size - 1
    if len(octets) > most:
        raise ValueError(f"{name}: {len(octets)} bytes, and there is room for {most}")
    if any(c == '"' or not c.isprintable() for c in text):
        raise ValueError(f"{name}: holds a quote or a control character")
    setattr(record, name, octets)


@functools.lru_cache(maxsize=None)
def _stop_at_exit() -> None:
    """Once, behind library(): what is registered last is called first."""
    atexit.register(_stop_owner)


def _stop_owner() -> None:
    owner = _owner
    if owner is not None:
        with contextlib.suppress(KeloError):
            owner.stop()


def _done(otherwise: str, call: Callable[..., int], *arguments: object) -> None:
    """A call that returns 0, or else a KeloError with what the library says about it."""
    with heard() as lines:
        result = call(*arguments)
    if result != 0:
        raise KeloError(why(lines, otherwise))
