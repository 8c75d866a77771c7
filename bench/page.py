# SPDX-License-Identifier: MIT
"""The page and its figures as JSON, from the same records; and what has changed since an earlier run."""
import os, platform, re, shutil, statistics, subprocess, time


def summary(values, of="median"):
    return {"value": max(values) if of == "max" else statistics.median(values), "low": min(values), "high": max(values),
            "values": values}


def number(value):
    """Three digits that count."""
    if value >= 1000:
        return f"{round(value, 3 - len(str(int(value)))):,.0f}".replace(",", " ")
    return f"{value:.3g}"


def spread(side):
    return "" if len(side["values"]) < 2 else f"{number(side['low'])} to {number(side['high'])}"


def shown(side, unit):
    return f"{number(side['value'])} {unit}".strip()


def one_line(record):
    sides = [record["kelo"], *record["peers"]]
    return f"{record['figure']}: " + ", ".join(
        f"{side['name']} " + (f"not here ({side['missing']})" if "missing" in side else
                              shown(side, record["unit"]) + (f" ({spread(side)})" if spread(side) else "")) for side in sides)


def about(options, tree):
    """Machine, compiler, and how."""
    def run(*command):
        return subprocess.run(command, capture_output=True, text=True, cwd=tree).stdout.strip() if shutil.which(command[0]) else ""
    cpu = re.search(r"model name\s*: (.*)", open("/proc/cpuinfo").read())
    cache = os.path.join(options.programs, "CMakeCache.txt")
    cached = lambda name: (re.search(rf"^{name}:\w+=(.*)$", open(cache).read(), re.M) or [None, ""])[1] if os.path.exists(cache) else ""
    release = re.search(r'PRETTY_NAME="(.*)"', open("/usr/lib/os-release").read()) if os.path.exists("/usr/lib/os-release") else None
    changed = " with changes" if run("git", "status", "--porcelain", "--untracked-files=no") else ""
    return {"date": time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()),
            "commit": run("git", "rev-parse", "--short=12", "HEAD") + changed,
            "cpu": cpu.group(1) if cpu else platform.machine(), "cores": os.cpu_count(),
            "memory_mib": os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") >> 20,
            "load": round(os.getloadavg()[0], 2), "kernel": platform.release(),
            "system": release.group(1) if release else platform.system(),
            "compiler": (run(cached("CMAKE_CXX_COMPILER") or "c++", "--version").splitlines() or ["unknown"])[0],
            "build_type": cached("CMAKE_BUILD_TYPE"), "runs": 3 if options.quick else 5, "quick": options.quick,
            "peers": {name: options.peers.version(name) for name in ("libgammu", "gammu", "ModemManager", "oFono", "libmm-glib")
                      if not options.peers.lack(name)}}


HOW = """# What it costs

Written by `bench/run`, from the records that build/bench has as performance.json. A figure is the median of
{runs} runs and stands beside its smallest and largest; a size has no spread. A peer is Debian's own package, and was measured
in the same run: in turn with kelo what is timed, side by side what mostly waits (memory and idle). `bench/run --only NAME`
makes a row again, `bench/run --compare FILE` tells what differs from an earlier performance.json by more than its spread.

| | |
|---|---|
| Date | {date}, commit {commit} |
| Machine | {cpu}, {cores} cores, {memory_mib} MiB, load {load} at the start |
| System | {system}, Linux {kernel} |
| Compiler | {compiler}, {build_type} with the hardening of the packages |
| Peers | {peer_list} |
| How long it took | {took_s} s |
"""

NOTES = {
    "Messages": "In process, by Google benchmark, CPU time. Both sides go the whole way from hexadecimal to UTF-8 or back. kelo's "
                "first three print what they read as well, which goes to /dev/null.",
    "Lines of the modem": "One line a read, on a socket in the place of the port: the read, the cut, the handler, and the host's "
                          "call where one fetches it. Wall time, what the library prints goes to /dev/null.",
    "Latency": "Many hosts at once, each with a modem of its own on a pseudo-terminal; the write is part of it. The library hears a "
               "line at once when half a second has passed since it last did something, and at the end of that half second else.",
    "Start": "On the emulated EC25, with a stand-in for the dialer; a real module adds its own time. ModemManager comes by its test "
             "interface, oFono by its driver for a simulated phone, both over a socket and with a message bus of their own: until they "
             "are told of the module, they wait for nobody. kelo sends its commands in pairs, two in half a second.",
    "Memory": "On the emulated EC25, each with all that it asks at its start behind it, and a process of its own for each run; several "
              "of them stand side by side, which tells in PSS. The peers want a "
              "message bus beside them, which has a row of its own; kelo does not.",
    "Idle": "An hour scaled from {runs} times 15 s, each of a process of its own. Wake-ups are the voluntary context switches of all "
            "threads, without those of programs that are run (ping, ifconfig), whose CPU time counts. The peers do less meanwhile: "
            "they watch no link and ping nobody, and ModemManager has closed the port, since to enable the module it wants a "
            "daemon that has it allowed.",
    "Size": "Files on disk, without debug information.",
}


def rows(record, with_peers):
    """One for kelo by itself, or one for each peer."""
    kelo = record["kelo"]
    own = f"not here: {kelo['missing']}" if "missing" in kelo else shown(kelo, record["unit"])
    for peer in record["peers"] or [None]:
        other, its_spread, ratio = "", "", ""
        if peer and "missing" in peer:
            other = f"{peer['name']}: not here, {peer['missing']}"
        elif peer:
            other, its_spread = f"{peer['name']} {shown(peer, record['unit'])}", spread(peer)
            ratio = number(kelo["value"] / peer["value"]) if "value" in kelo and peer["value"] else ""
        yield [record["what"], own, spread(kelo) if "value" in kelo else "", *([other, its_spread, ratio] if with_peers else []),
               f"`{record['command']}`"]


def table(heads, body):
    clean = lambda cell: str(cell).replace("|", "\\|").replace("\n", " ")
    return "\n".join(["| " + " | ".join(heads) + " |", "|" + "---|" * len(heads),
                      *("| " + " | ".join(map(clean, cells)) + " |" for cells in body)]) + "\n"


def page(whole):
    facts = whole["about"]
    listed = ", ".join(f"{name} {version}" for name, version in facts["peers"].items()) or "none"
    text = HOW.format(peer_list=listed, **facts)
    for group in dict.fromkeys(record["group"] for record in whole["figures"]):
        mine = [record for record in whole["figures"] if record["group"] == group]
        text += f"\n## {group}\n\n" + NOTES[group].format(**facts) + "\n"
        with_peers = any(record["peers"] for record in mine)
        heads = ["What", "kelo", "from, to", *(["peer", "from, to", "kelo / peer"] if with_peers else []), "again"]
        text += "\n" + table(heads, [row for record in mine for row in rows(record, with_peers)])
    return text


def compare(earlier, now):
    """Figures whose spreads do not touch."""
    before = {record["figure"]: record for record in earlier["figures"]}
    told, same = [], 0
    for record in now["figures"]:
        old, new = before.get(record["figure"], {"kelo": {}})["kelo"], record["kelo"]
        if "value" not in old or "value" not in new:
            told.append(f"{record['figure']}: in one of the two runs alone")
        elif old["high"] < new["low"] or new["high"] < old["low"]:
            better = (new["value"] < old["value"]) == (record["better"] == "lower")
            told.append(f"{record['figure']}: {shown(old, record['unit'])} -> {shown(new, record['unit'])}, "
                        f"{'better' if better else 'worse'}")
        else:
            same += 1
    return "\n".join([*told, f"{same} figures as they were, within their spread"])
