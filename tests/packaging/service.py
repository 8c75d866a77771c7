# SPDX-License-Identifier: MIT
"""kelo-host of a package as its unit starts it, and what a service manager hears of it. Arguments: where it is installed,
a folder to write to. Runs in a device root, with a socket of the abstract kind in the place of systemd's."""
import configparser
import os
import signal
import socket
import subprocess
import sys
import time

root, work = sys.argv[1:]
watchdog_s = 2.0


def fail(why):
    sys.exit(f"FAILED: {why}")


unit = configparser.RawConfigParser(strict=False)
unit.optionxform = str
unit.read(f"{root}/lib/systemd/system/kelo-host.service")
command = unit["Service"]["ExecStart"].replace("/usr/", f"{root}/usr/").replace("/etc/", f"{root}/etc/").split()

runtime = f"{work}/kelo"
os.mkdir(runtime)


def started(*arguments):
    return subprocess.Popen([*command, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env={
        **os.environ, "NOTIFY_SOCKET": "@kelo-test", "WATCHDOG_USEC": str(int(watchdog_s * 1e6)),
        "RUNTIME_DIRECTORY": runtime})


def order(text):
    emulator.stdin.write(text + "\n")
    emulator.stdin.flush()


def hear(wanted):
    """What is told, up to a line that begins so."""
    deadline = time.monotonic() + 40
    heard = []  # (when, line)
    while not any(line.startswith(wanted) for _, line in heard):
        manager.settimeout(max(0.01, deadline - time.monotonic()))
        try:
            text = manager.recv(4096).decode()
        except TimeoutError:
            host.kill()
            fail(f"no {wanted}: heard {heard}, said {host.stdout.read()}")
        heard.extend((time.monotonic(), line) for line in text.splitlines())
    return heard


trace = open(f"{work}/trace", "w+")
emulator = subprocess.Popen([f"{root}/usr/bin/kelo-emulator", "--model", "EC25", "--trace", "--order", "sim pin 1234"],
                            stdin=subprocess.PIPE, stdout=trace, text=True)
for _ in range(50):
    if os.path.exists("/dev/ttyUSB2"):
        break
    time.sleep(0.1)
manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
manager.bind("\0kelo-test")

# To online, alive all the time, and to its end.
host = started()
hear("READY=1")
heard = hear("STATUS=online")
while sum("WATCHDOG=1" in line for _, line in heard) < 3:
    heard += hear("WATCHDOG=1")
alive = [when for when, line in heard if "WATCHDOG=1" in line]
gaps = [after - before for before, after in zip(alive, alive[1:])]
if max(gaps) >= watchdog_s or min(gaps) < watchdog_s / 4:
    fail(f"signs of life {gaps} s apart, for a watchdog of {watchdog_s} s")
host.send_signal(signal.SIGTERM)
hear("STOPPING=1")
if host.wait(timeout=30) != 0:
    fail(f"it ended with {host.returncode}: {host.stdout.read()}")

# A PIN that was refused is not sent again by the start behind a crash, whatever the tries would allow.
order("sim pin 4711")
host = started("--pin-tries", "1")
hear("STATUS=PIN refused")
hear("WATCHDOG=1")
host.kill()
host.wait()
host = started("--pin-tries", "1")
hear("STATUS=PIN required")
hear("WATCHDOG=1")
host.kill()
host.wait()
emulator.terminate()
emulator.wait()
trace.seek(0)
sent = [line for line in trace if ">> AT+CPIN=" in line]
if len(sent) != 2:
    fail(f"PINs that were sent, one right and one wrong: {sent}")
