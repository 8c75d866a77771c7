# SPDX-License-Identifier: MIT
"""The figures, one row each. To add one is to add a row; what measures it is a function of measures.py, and `kelo` and each of
`peers` name it, what it is called with, and which of its results is the figure."""
from collections import namedtuple

Figure = namedtuple("Figure", "group name what unit better kelo peers of", defaults=((), "median"))
Call = namedtuple("Call", "measure subject key")


def sms(name, what, case):
    return Figure("Messages", name, what, "ns", "lower", Call("benchmark", f"bench_sms {case.format('kelo')}", "cpu"),
                  (("libgammu", Call("benchmark", f"bench_sms {case.format('gammu')}", "cpu")),))


def line(name, what):
    return Figure("Lines of the modem", f"line-{name.lower()}", what, "lines/s", "higher",
                  Call("benchmark", f"bench_lines line/{name}", "per_second"))


def peers(measure, key, *names):
    return tuple((name, Call(measure, name, key)) for name in names)


DAEMONS = ("ModemManager", "oFono")
FIGURES = (
    sms("decode-ucs2-short", "PDU of 10 characters of UCS-2 to text, with the event that a host polls", "decode/{}/ucs2/10"),
    sms("decode-7bit-full", "the same, 160 characters of the 7-bit alphabet", "decode/{}/7bit/160"),
    sms("decode-ucs2-full", "the same, 70 characters of UCS-2", "decode/{}/ucs2/70"),
    sms("encode-ucs2-short", "text of 10 characters of UCS-2 to PDU", "encode/{}/ucs2/10"),
    sms("encode-7bit-full", "the same, 160 characters of the 7-bit alphabet", "encode/{}/7bit/160"),
    sms("join-7bit", "three PDUs to one text of 400 characters of the 7-bit alphabet", "join/{}/7bit/400"),
    sms("join-ucs2", "three PDUs to one text of 180 characters of UCS-2", "join/{}/ucs2/180"),
    Figure("Messages", "allocations-message", "allocations of a received message, from the port to `kelo_take_sms`",
           "", "lower", Call("benchmark", "bench_lines line/CMT", "allocations")),

    line("OK", "`OK`"),
    line("CSQ", "`+CSQ`, signal"),
    line("CREG", "`+CREG`, registration with area and cell"),
    line("CEREG", "`+CEREG`, the same of LTE"),
    line("COPS", "`+COPS`, operator"),
    line("QENG", "`+QENG`, serving cell"),
    line("CMTI", "`+CMTI`, a message is stored"),
    line("CMT", "`+CMT` with its PDU, to the text that `kelo_take_sms` gives"),
    line("QGPSLOC", "`+QGPSLOC`, a position, to the host"),
    line("unknown", "a line that nobody knows"),

    Figure("Latency", "latency-median", "bytes of `+CMTI` in the kernel to the host awake by `kelo_event_fd`, the library at rest; median",
           "us", "lower", Call("latency", "bench_latency", "rest_median")),
    Figure("Latency", "latency-99", "the same, 99th percentile of a run", "us", "lower", Call("latency", "bench_latency", "rest_99")),
    Figure("Latency", "latency-worst", "the same, worst of all runs", "us", "lower",
           Call("latency", "bench_latency", "rest_worst"), (), "max"),
    Figure("Latency", "latency-any-median", "the same at any moment up to a second behind another line; median", "ms", "lower",
           Call("latency", "bench_latency", "any_median_ms")),
    Figure("Latency", "latency-any-99", "the same, 99th percentile of a run", "ms", "lower",
           Call("latency", "bench_latency", "any_99_ms")),

    Figure("Start", "first-command", "start of the process to its first byte on the port", "ms", "lower",
           Call("first_byte", "kelo-host", "ms"), peers("first_byte", "ms", "gammu", *DAEMONS)),
    Figure("Start", "first-command-library", "the same, of a host that is next to nothing but the library", "ms", "lower",
           Call("first_byte", "bench_host", "ms")),
    Figure("Start", "identify", "start of the process to the module's model; of the peer to the end of `gammu identify`", "ms", "lower",
           Call("identify", "bench_host", "ms"), peers("identify", "ms", "gammu")),
    Figure("Start", "load-library", "`dlopen` of the library with all that it needs", "us", "lower",
           Call("load", "libkelo", "us"), peers("load", "us", "libmm-glib")),
    Figure("Start", "ready", "start of the host beside a module that boots, to the network", "s", "lower",
           Call("life", "bench_host", "ready")),
    Figure("Start", "online", "the same, to the link verified by a ping", "s", "lower", Call("life", "bench_host", "online")),
    Figure("Start", "ready-keeper", "to the network, with the keeper", "s", "lower", Call("life", "bench_host keep", "ready")),
    Figure("Start", "online-keeper", "to the link verified, with the keeper", "s", "lower", Call("life", "bench_host keep", "online")),
    Figure("Start", "online-again", "with the keeper: the module restarts, its port is gone for a second, to the link verified again", "s", "lower",
           Call("life", "bench_host keep", "again")),

    *(Figure("Memory", f"memory-{key}", what, "KiB", "lower", Call("rest", "kelo-host", key),
             (*peers("rest", key, *DAEMONS), ("dbus-daemon", Call("rest", "ModemManager", f"bus_{key}"))))
      for key, what in (("rss", "kelo-host, online: resident memory"), ("pss", "the same, its share of what is shared (PSS)"),
                        ("dirty", "the same, private and written to"))),
    *(Figure("Memory", f"memory-minimal-{key}", what, "KiB", "lower", Call("rest", "minimal", key))
      for key, what in (("rss", "examples/minimal.c, online: resident memory"), ("pss", "the same, PSS"),
                        ("dirty", "the same, private and written to"), ("library", "of that, of the library itself"))),

    Figure("Idle", "idle-wakeups", "wake-ups an hour, the library without the keeper, online", "1/h", "lower",
           Call("rest", "bench_host", "wakeups")),
    Figure("Idle", "idle-task-wakeups", "of those, the modem's own thread, with a timer of a second and an answer to read each 5 s", "1/h", "lower",
           Call("rest", "bench_host", "task")),
    Figure("Idle", "idle-cpu", "the same, CPU time an hour, with that of the programs that it runs", "s/h", "lower",
           Call("rest", "bench_host", "cpu")),
    Figure("Idle", "idle-keeper-wakeups", "wake-ups an hour, the library with the keeper, online", "1/h", "lower",
           Call("rest", "bench_host keep", "wakeups")),
    Figure("Idle", "idle-keeper-cpu", "the same, CPU time an hour", "s/h", "lower", Call("rest", "bench_host keep", "cpu")),
    Figure("Idle", "idle-host-wakeups", "wake-ups an hour, kelo-host, online", "1/h", "lower",
           Call("rest", "kelo-host", "wakeups"), peers("rest", "wakeups", *DAEMONS)),
    Figure("Idle", "idle-host-cpu", "the same, CPU time an hour", "s/h", "lower",
           Call("rest", "kelo-host", "cpu"), peers("rest", "cpu", *DAEMONS)),

    Figure("Size", "size-library", "the library, stripped", "KiB", "lower",
           Call("size", "libkelo", "own"), peers("size", "own", "libmm-glib")),
    Figure("Size", "libraries-library", "libraries that it needs, libc and the loader among them", "files", "lower",
           Call("size", "libkelo", "needed"), peers("size", "needed", "libmm-glib")),
    Figure("Size", "total-library", "the library and all of those", "KiB", "lower",
           Call("size", "libkelo", "total"), peers("size", "total", "libmm-glib")),
    Figure("Size", "size-host", "the daemon, stripped, with its plug-ins", "KiB", "lower",
           Call("size", "kelo-host", "own"), peers("size", "own", *DAEMONS)),
    Figure("Size", "libraries-host", "libraries that it needs, libc and the loader among them", "files", "lower",
           Call("size", "kelo-host", "needed"), peers("size", "needed", *DAEMONS)),
    Figure("Size", "total-host", "the daemon and all of those", "KiB", "lower",
           Call("size", "kelo-host", "total"), peers("size", "total", *DAEMONS)),
)
