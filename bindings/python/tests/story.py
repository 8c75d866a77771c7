#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""story.py KELO_EMULATOR talk|life: the package on the emulator, as a program uses it. KELO_LIBRARY: the library."""
import asyncio, atexit, faulthandler, logging, os, pathlib, subprocess, sys, threading, time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import kelo

EMULATOR, STORY = sys.argv[1:3]
faulthandler.dump_traceback_later(60, exit=True)


class Lines(logging.Handler):
    """What the library says, kept."""

    def __init__(self):
        super().__init__()
        self.said = []

    def emit(self, record):
        self.said.append(record.getMessage())


lines = Lines()
logging.getLogger("kelo").addHandler(lines)
logging.getLogger("kelo").setLevel(logging.DEBUG)


def check(holds, what):
    if not holds:
        print(f"FAILED: {what}", *lines.said[-25:], sep="\n")
        os._exit(1)


def raises(error, part, call, *arguments, **options):
    try:
        result = call(*arguments, **options)
    except error as raised:
        check(part in str(raised), f"{raised!r} has no '{part}'")
    else:
        check(False, f"{call} is not refused: {result}")


emulator = subprocess.Popen([EMULATOR, "--model", "EC25", "--port", "/dev/ttyUSB2", "--order", "sim pin 1234"],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
atexit.register(emulator.terminate)
check(" at /dev/ttyUSB2" in emulator.stdout.readline(), "no emulator")


def order(text):
    emulator.stdin.write(text + "\n")
    emulator.stdin.flush()


def what_is_refused(modem):
    raises(ValueError, "room for 31", kelo.Modem, apn="a" * 32)
    raises(ValueError, "quote", kelo.Modem, password='"')
    raises(ValueError, "4 to 8", kelo.Modem, pin="12a4")
    raises(kelo.KeloError, "one process owns one", kelo.Modem().start)
    raises(kelo.KeloError, "AT+CMGS=12", modem.ask, "AT+CMGS=12")
    raises(kelo.CommandError, "AT+WHAT?: ", modem.ask, "AT+WHAT?")
    raises(kelo.KeloError, "", modem.send_sms, "no number", "text")
    raises(ValueError, "NUL", modem.send_sms, "+4915112345678", "a\0b")
    raises(TimeoutError, "EC25", modem.wait, lambda status: False, timeout=0.1)


def sent_and_refused(modem):
    status = modem.wait(lambda status: status.registered and status.model and status.signal_dbm, timeout=60)
    check("EC25" in status.model and status.sim == kelo.SimState.READY and status.operator, f"status: {status!r}")
    check(-113 < status.signal_dbm < -50 and status.port == "/dev/ttyUSB2", f"status: {status!r}")
    modem.wait(lambda status: status.reason == kelo.Reason.ONLINE, timeout=10)
    what_is_refused(modem)
    result = modem.send_sms("+4915112345678", "Größe", tag="door")
    check(result.tag == "door" and result.confirmed == result.parts == len(result.references) == 1, f"{result!r}")
    order("cmgs error 38")
    raises(kelo.SmsError, "+CMS ERROR: 38", modem.send_sms, "+4915112345678", "no")
    order("cmgs ok")
    modem.ask("AT+CLIP=1")
    answer = modem.ask("AT+CSQ")
    check(answer.lines[0].startswith("+CSQ: ") and answer.last == "OK", f"{answer!r}")


async def heard_and_answered(modem):
    events = modem.events()
    both = [asyncio.create_task(modem.ask_async("AT+CSQ")), asyncio.create_task(modem.ask_async("AT+COPS?"))]
    order("sms text +4917612345 Hello; a ü")
    order("call +491761")
    async for message in modem.messages():
        break
    check(message.sender == "+4917612345" and message.text == "Hello; a ü", f"{message!r}")
    check(message.time is not None and message.time.tzinfo is not None, f"{message!r}")
    result = await modem.send_sms_async(message.sender, "heard")
    check([(await each).last for each in both] == ["OK", "OK"], "two commands at once")
    order("csq 7")
    seen = []
    async for event in events:
        seen.append(event)
        if isinstance(event, kelo.StatusChange) and event.now.signal_dbm == -99:
            check("signal_dbm" in event.changed, f"{event!r}")
            break
    check(result in seen and kelo.Call("+491761") in seen, f"{seen}")
    await modem.wait_async(lambda status: status.signal_dbm == -99, timeout=1)


def talk():
    modem = kelo.Modem(pin="1234", password="geheim", apn="internet", link=False, ask_every=2, dialogue=True)
    with modem:
        sent_and_refused(modem)
        asyncio.run(heard_and_answered(modem))
    check(any("AT+CPIN=" in line for line in lines.said), "no dialogue")
    check(not any("1234" in line and "CPIN" in line or "geheim" in line for line in lines.said), "a secret in the log")


def has_sim(status):
    return status.port and status.sim == kelo.SimState.READY


# A stop ends who waits, and nothing of it is left; then it starts again, as another one, which the end of the program
# ends.
def life():
    first = kelo.Modem(pin="1234", link=False)
    first.start()
    raises(kelo.SmsTimeout, "had no turn in 1 s", first.send_sms, "+4915112345678", "never", timeout=1)
    first.wait(has_sim, timeout=30)
    waiting = [
        threading.Thread(target=raises, args=(kelo.KeloError, "stopped", *call))
        for call in [(first.wait, lambda status: False), (first.send_sms, "+4915112345678", "on its way")]
    ]
    for each in waiting:
        each.start()
    time.sleep(0.5)
    started_at = time.monotonic()
    first.stop()
    for each in waiting:
        each.join(5)
    check(not any(each.is_alive() for each in waiting), "somebody waits still")
    check(time.monotonic() - started_at < 8, f"the stop took {time.monotonic() - started_at} s")
    check(not first.status.registered and first.status.port == "", f"{first.status!r}")
    check(not any(thread.name == "kelo" for thread in threading.enumerate()), "a thread is left")
    raises(kelo.KeloError, "not started", first.ask, "AT")

    second = kelo.Modem(pin="1234", link=False, keep=False)
    second.start()
    check(not second.status.registered, "what was so in the run before is told of this one")
    second.wait(has_sim, timeout=30)
    faulthandler.cancel_dump_traceback_later()  # its thread would be waited for in the child
    if os.fork() == 0:
        atexit.unregister(emulator.terminate)
        raises(kelo.KeloError, "forked", second.send_sms, "+4915112345678", "child", timeout=1)
        sys.exit(0)
    check(os.wait()[1] == 0, "the child of a fork")
    faulthandler.dump_traceback_later(30, exit=True)


{"talk": talk, "life": life}[STORY]()
print(f"{STORY}: told")
