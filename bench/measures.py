# SPDX-License-Identifier: MIT
"""What measures: each function is one run of one program, and gives what it found by name. All of it happens inside scripts/device-root."""
import contextlib, glob, json, os, pty, re, select, socket, statistics, subprocess, tempfile, time, tty

ALONE, PARALLEL, ONCE = "alone", "parallel", "once"  # how a measure stands the company of others; ONCE: nothing in it varies
PORT, TARGET = "/dev/ttyUSB2", "10.64.0.1"
MEASURES = {}
REST_S = 15


class Failed(Exception):
    pass


def measure(company):
    def keep(function):
        MEASURES[function.__name__] = function
        function.company = company
        return function
    return keep


class Bench:
    """Where things are, and how long to look."""

    def __init__(self, programs, peers, quick):
        self.programs, self.peers, self.quick = programs, peers, quick
        self.runs = 3 if quick else 5

    def program(self, name):
        return f"{self.programs}/{name}"


# ---- Programs and what they say

class Program:
    """A program that runs for as long as a `with`; its lines come with the time of their arrival."""

    def __init__(self, *command, env=None, quiet=False, keep=()):
        self.command, self.env, self.quiet, self.keep, self.rest, self.lines = command, env, quiet, keep, b"", []

    def __enter__(self):
        self.began = time.monotonic()
        self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE, env=self.env, start_new_session=True, pass_fds=self.keep,
                                        stdout=subprocess.DEVNULL if self.quiet else subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.pid = self.process.pid
        return self

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdin.close()
        if self.process.stdout:
            self.process.stdout.close()

    def order(self, text):
        self.process.stdin.write(text.encode() + b"\n")
        self.process.stdin.flush()

    def wait(self, pattern, limit=60):
        """The time at which a line came that matches, and the line; lines ahead of it are passed over."""
        end = time.monotonic() + limit
        while True:
            while self.lines:
                when, text = self.lines.pop(0)
                if re.search(pattern, text):
                    return when, text
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.process.stdout], [], [], left)[0]:
                raise Failed(f"{os.path.basename(self.command[0])} did not say '{pattern}' within {limit} s")
            got = os.read(self.process.stdout.fileno(), 65536)
            if not got:
                raise Failed(f"{os.path.basename(self.command[0])} ended by itself, status {self.process.wait()}")
            *lines, self.rest = (self.rest + got).split(b"\n")
            now = time.monotonic()
            self.lines += [(now, text.decode(errors="replace")) for text in lines]


@contextlib.contextmanager
def emulator(bench, *options):
    with Program(bench.program("kelo-emulator"), "--model", "EC25", "--port", PORT, "--order", "wwan wwan0", *options) as modem:
        modem.wait(" at ")
        yield modem


def run(command, limit=60, **more):
    done = subprocess.run(command, capture_output=True, text=True, timeout=limit, **more)
    if done.returncode != 0:
        last = (done.stderr or done.stdout).strip().splitlines()[-1:] or [""]
        raise Failed(f"{os.path.basename(command[0])} ended with {done.returncode}: {last[0]}")
    return done.stdout


# ---- In process, by Google benchmark

@measure(ALONE)
def benchmark(bench, subject):
    program, case = subject.split()
    if not os.path.exists(bench.program(program)):
        raise Failed(f"{program} is not built here")
    with tempfile.NamedTemporaryFile() as out:
        manual = "/manual_time" if program == "bench_lines" else ""
        run([bench.program(program), f"--benchmark_filter=^{case}{manual}$", f"--benchmark_out={out.name}",
             "--benchmark_out_format=json", f"--benchmark_min_time={0.1 if bench.quick else 0.3}"])
        found = json.load(open(out.name))["benchmarks"]
    if len(found) != 1 or found[0].get("error_occurred"):
        raise Failed(f"{case}: {found[0].get('error_message') if found else 'there is no such case'}")
    return {"cpu": found[0]["cpu_time"], "per_second": 1e9 / found[0]["real_time"], "allocations": found[0].get("allocations", 0)}


# ---- From the port to the host

@measure(ALONE)
def latency(bench, subject):
    hosts, lines = (40, 5) if bench.quick else (100, 20)
    found, kinds = {}, {"rest": [], "any": []}
    for row in run([bench.program(subject), str(hosts), str(lines)], 200).splitlines():
        kinds[row.split()[0]].append(float(row.split()[1]))
    for kind, values in kinds.items():
        if len(values) != hosts * lines:
            raise Failed(f"{len(values)} of {hosts * lines} lines came through")
        values.sort()
        found |= {f"{kind}_median": statistics.median(values), f"{kind}_99": values[int(len(values) * 0.99)],
                  f"{kind}_worst": values[-1]}
    return {**found, "any_median_ms": found["any_median"] / 1000, "any_99_ms": found["any_99"] / 1000}


# ---- The hosts, ours and others

BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><listen>unix:path=/run/dbus/system_bus_socket</listen><auth>EXTERNAL</auth><policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>"""


class Bus:
    """A message bus of its own, and word of the names that are taken on it."""

    def __init__(self, bench):
        self.bench, self.stack = bench, contextlib.ExitStack()

    def __enter__(self):
        find, env = self.bench.peers.find, self.bench.peers.environment
        os.makedirs("/run/dbus", exist_ok=True)
        config = self.stack.enter_context(tempfile.NamedTemporaryFile("w", suffix=".conf"))
        config.write(BUS)
        config.flush()
        self.daemon = self.stack.enter_context(
            Program(find("dbus-daemon"), f"--config-file={config.name}", "--nofork", "--print-address=1", env=env))
        self.daemon.wait("unix:path")
        self.monitor = self.stack.enter_context(
            Program(find("dbus-monitor"), "--system", "type='signal',member='NameOwnerChanged'", env=env))
        self.monitor.wait("NameAcquired")
        return self

    def __exit__(self, *error):
        return self.stack.__exit__(*error)

    def taken(self, name):
        return self.monitor.wait(f'string "{name}"', 30)[0]

    def call(self, name, path, method, *arguments):
        return run([self.bench.peers.find("dbus-send"), "--system", "--print-reply", f"--dest={name}", path, method, *arguments],
            30, env=self.bench.peers.environment)


# What each peer wants of the world to own the emulated module: a socket where others have a serial port.
class ModemManager:
    bus_name = "org.freedesktop.ModemManager1"

    def __init__(self, bench):
        self.command = [bench.peers.find("ModemManager"), "--test-no-udev", "--test-enable",
                        f"--test-plugin-dir={bench.peers.plugins()}"]
        self.env = bench.peers.environment
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind("\0abstract:bench")

    def take(self, bus):
        path = "/org/freedesktop/ModemManager1"
        bus.call(self.bus_name, path, "org.freedesktop.ModemManager1.Test.SetProfile", "string:bench", "string:generic",
                 "array:string:abstract:bench")

    def use(self, bus):
        """It stays as it is once it knows the module: to enable it wants a daemon that has it allowed."""

    def told(self, bus):
        return bus.call(self.bus_name, "/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager.GetManagedObjects")


class oFono:
    bus_name = "org.ofono"

    def __init__(self, bench):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=False)
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.config = tempfile.NamedTemporaryFile("w")
        self.config.write(f"[phonesim]\nDriver=phonesim\nAddress=127.0.0.1\nPort={self.listener.getsockname()[1]}\n")
        self.config.flush()
        self.command = [bench.peers.find("oFono"), "--nodetach"]
        self.env = {**bench.peers.environment, "OFONO_PHONESIM_CONFIG": self.config.name}

    def take(self, bus):
        bus.call(self.bus_name, "/phonesim", "org.ofono.Modem.SetProperty", "string:Powered", "variant:boolean:true")

    def use(self, bus):
        bus.call(self.bus_name, "/phonesim", "org.ofono.Modem.SetProperty", "string:Online", "variant:boolean:true")

    def told(self, bus):
        return bus.call(self.bus_name, "/", "org.ofono.Manager.GetModems")


PEERS = {"ModemManager": ModemManager, "oFono": oFono}


@contextlib.contextmanager
def peer_started(bench, name):
    """The peer with its name on the bus, told of the module; itself, its program and its bus."""
    peer = PEERS[name](bench)
    with peer.listener, Bus(bench) as bus:
        peer.listener.listen()
        peer.listener.settimeout(30)
        with Program(*peer.command, env=peer.env, quiet=True) as program:
            bus.taken(peer.bus_name)
            peer.take(bus)
            yield peer, program, bus


# From the socket to the port. A peer may close it when it has asked what it wanted, and come back.
BRIDGE = """
import os, select, socket, sys, tty
listener = socket.socket(fileno=int(sys.argv[1]))
listener.setblocking(True)
port = os.open(sys.argv[2], os.O_RDWR | os.O_NOCTTY)
tty.setraw(port)
while True:
    far, open_still = listener.accept()[0], True
    while open_still:
        for end in select.select([far, port], [], [])[0]:
            got = os.read(port, 4096) if end == port else far.recv(4096)
            if end == far:
                open_still = len(got) > 0
                os.write(port, got)
            else:
                far.sendall(got)
"""


@contextlib.contextmanager
def peer_at_work(bench, name):
    """The peer on the emulated module, once it has asked all that it asks at first."""
    with emulator(bench), peer_started(bench, name) as (peer, program, bus):
        handle = peer.listener.fileno()
        with Program("python3", "-c", BRIDGE, str(handle), PORT, quiet=True, keep=[handle]):
            time.sleep(3)
            peer.use(bus)
            time.sleep(3)
            if "EC25" not in peer.told(bus):
                raise Failed(f"{name} does not know the module")
            yield program, bus


def host_command(bench, subject):
    name, *more = subject.split()
    arguments = {"bench_host": [*more, TARGET], "minimal": ["internet"],
                 "kelo-host": ["--json", "--apn", "internet", "--ping-target", TARGET, "--no-control"]}[name]
    return [bench.program(name), *arguments]


ONLINE = {"bench_host": "^[0-9.]+ online", "minimal": "link up, online", "kelo-host": '"reason": ?"online"'}


def need_link():
    if not os.path.exists("/sys/class/net/wwan0") and subprocess.run(["ip", "link", "show", "wwan0"], capture_output=True).returncode:
        raise Failed("no network of its own here, so no link")
    # minimal.c pings a server of the wide world; here the far end of the link answers for it.
    run(["nsenter", "--net=/run/netns/modem", "ip", "addr", "replace", "8.8.8.8/32", "dev", "modem0"])


@contextlib.contextmanager
def host_online(bench, subject):
    need_link()
    with emulator(bench), Program(*host_command(bench, subject)) as host:
        host.wait(ONLINE[subject.split()[0]], 90)
        yield host, None
    leave_link()


def leave_link():
    """The library leaves the dialer at work: it goes, so that the next host starts from nothing."""
    subprocess.run(["killall", "-q", "-9", "quectel-CM"], check=False)
    subprocess.run(["ip", "addr", "flush", "dev", "wwan0"], capture_output=True)
    subprocess.run(["ifconfig", "wwan0", "down"], capture_output=True)
    with contextlib.suppress(FileNotFoundError):
        os.remove("/tmp/quectel-CM.pid")


def at_work(bench, subject):
    return peer_at_work(bench, subject) if subject in PEERS else host_online(bench, subject)


# ---- Starts

@measure(ALONE)
def first_byte(bench, subject):
    """By a port that says nothing: who comes, and when."""
    if subject in ("ModemManager", "oFono"):
        with peer_started(bench, subject) as (peer, program, _):
            connection = peer.listener.accept()[0]
            with connection:
                connection.settimeout(30)
                if not connection.recv(1):
                    raise Failed(f"{subject} said nothing")
                return {"ms": (time.monotonic() - program.began) * 1000}
    master, slave = pty.openpty()
    tty.setraw(slave)
    os.symlink(os.ttyname(slave), PORT)
    try:
        with tempfile.NamedTemporaryFile("w") as config:
            command = gammu_command(bench, config) if subject == "gammu" else host_command(bench, subject)
            with Program(*command, env=bench.peers.environment if subject == "gammu" else None, quiet=True) as program:
                if not select.select([master], [], [], 30)[0]:
                    raise Failed(f"{subject} wrote nothing to the port")
                return {"ms": (time.monotonic() - program.began) * 1000}
    finally:
        os.unlink(PORT)
        os.close(master)
        os.close(slave)


def gammu_command(bench, config):
    config.write(f"[gammu]\ndevice = {PORT}\nconnection = at115200\n")
    config.flush()
    return [bench.peers.find("gammu"), "-c", config.name, "identify"]


@measure(ALONE)
def identify(bench, subject):
    with emulator(bench):
        if subject == "gammu":
            with tempfile.NamedTemporaryFile("w") as config:
                began = time.monotonic()
                said = run(gammu_command(bench, config), env=bench.peers.environment)
                took = time.monotonic() - began
            if "EC25" not in said:
                raise Failed("gammu did not say the model")
            return {"ms": took * 1000}
        with Program(*host_command(bench, subject)) as host:
            return {"ms": (float(host.wait("^[0-9.]+ model$")[1].split()[0]) - host.began) * 1000}


@measure(ALONE)
def load(bench, subject):
    path = bench.program("libkelo.so") if subject == "libkelo" else bench.peers.find(subject)
    env = bench.peers.environment if subject != "libkelo" else None
    return {"us": statistics.median(float(run([bench.program("bench_load"), path], env=env)) for _ in range(11))}


# ---- A life: it comes up, and comes back

@measure(PARALLEL)
def life(bench, subject):
    need_link()
    with emulator(bench, "--boot") as modem, Program(*host_command(bench, subject)) as host:
        when = lambda what: float(host.wait(f"^[0-9.]+ {what}$", 90)[1].split()[0])
        found = {"ready": when("ready") - host.began, "online": when("online") - host.began}
        if "keep" in subject:  # else it is for the host to bring it back
            time.sleep(3)
            modem.order("reset 1000")
            reset = time.monotonic()
            when("not online")
            found["again"] = when("online") - reset
    leave_link()
    return found


# ---- At rest

def spent(pid):
    """Times that each thread has gone to sleep, and CPU seconds, those of the programs that it has run with them."""
    sleeps = {}
    for status in glob.glob(f"/proc/{pid}/task/*/status"):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # a thread that has just ended
            name, count = re.search(r"^Name:\s*(\S+).*^voluntary_ctxt_switches:\s*(\d+)", open(status).read(), re.M | re.S).groups()
            sleeps[status, name] = int(count)
    fields = open(f"/proc/{pid}/stat").read().rpartition(")")[2].split()
    children = (int(fields[13]) + int(fields[14])) / os.sysconf("SC_CLK_TCK")
    return sleeps, children + time.clock_gettime(~pid << 3 | 2)  # the clock of a process, as Linux numbers it


def memory(pid):
    fields = dict(re.findall(r"^(\w+): +(\d+) kB", open(f"/proc/{pid}/smaps_rollup").read(), re.M))
    found = {"rss": int(fields["Rss"]), "pss": int(fields["Pss"]), "dirty": int(fields["Private_Dirty"])}
    own, in_library = 0, False
    for row in open(f"/proc/{pid}/smaps"):
        head = re.match(r"[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ (\d+) *(.*)", row)
        if head:  # what it has cleared at its start lies behind it, without a name
            in_library = "libkelo.so" in head.group(2) or (in_library and head.group(1) == "0" and not head.group(2))
        elif in_library and row.startswith("Private_Dirty:"):
            own += int(row.split()[1])
    return {**found, "library": own}


@measure(PARALLEL)
def rest(bench, subject):
    """What it has of memory once it is at rest, and what it does in a quarter of a minute; an hour is so many times as long."""
    with at_work(bench, subject) as (program, bus):
        time.sleep(3)
        found = memory(program.pid) | ({f"bus_{name}": value for name, value in memory(bus.daemon.pid).items()} if bus else {})
        before, began = spent(program.pid), time.monotonic()
        time.sleep(REST_S)
        after, hours = spent(program.pid), (time.monotonic() - began) / 3600
    woken = {thread: count - before[0].get(thread, 0) for thread, count in after[0].items()}
    task = sum(count for (_, name), count in woken.items() if name == "MobileTask")
    return {**found, "wakeups": sum(woken.values()) / hours, "task": task / hours, "cpu": (after[1] - before[1]) / hours}


# ---- What it weighs

@measure(ONCE)
def size(bench, subject):
    own = {"libkelo": bench.program("libkelo.so"), "kelo-host": bench.program("kelo-host")}.get(subject) or bench.peers.find(subject)
    ours = subject in ("libkelo", "kelo-host")
    listed = run(["ldd", own], env=None if ours else bench.peers.environment)
    libraries = {os.path.realpath(path) for path in re.findall(r"(/\S+) \(0x", listed)} - {os.path.realpath(own)}
    plugins = glob.glob(f"{bench.peers.plugins()}/*.so") if subject == "ModemManager" else []

    def stripped(path):
        with tempfile.NamedTemporaryFile() as copy:
            run(["strip", "--strip-unneeded", "-o", copy.name, path])
            return os.path.getsize(copy.name)
    weight = stripped(own) + sum(os.path.getsize(path) for path in plugins)
    others = sum(stripped(path) if "libkelo" in path else os.path.getsize(path) for path in libraries)
    return {"own": weight / 1024, "needed": len(libraries), "total": (weight + others) / 1024}
