# SPDX-License-Identifier: MIT
"""Where the peers come from: Debian's packages, unpacked into a folder of the build. Nothing is installed, and no daemon of
the machine is started. What is not to be had has its reason."""
import glob, os, shutil, subprocess

# A package counts as here when the machine has it installed. What is behind the peers are libraries that they need.
PACKAGES = """modemmanager libmm-glib0 ofono libmbim-glib4 libqmi-glib5 libqrtr-glib0 libgudev-1.0-0 libglib2.0-0 libsystemd0
    libpolkit-gobject-1-0 libdbus-1-3 libpcre2-8-0 libffi8 libcap2 libgcrypt20 libgpg-error0 liblz4-1 liblzma5 libzstd1
    libmount1 libblkid1 libselinux1 libudev1 zlib1g libapparmor1 libaudit1 libcap-ng0 libexpat1 dbus-daemon dbus-bin
    gammu""".split()
FILES = {"ModemManager": "usr/sbin/ModemManager", "oFono": "usr/sbin/ofonod", "libmm-glib": "usr/lib/*/libmm-glib.so.0",
         "gammu": "usr/bin/gammu", "dbus-daemon": "usr/bin/dbus-daemon", "dbus-send": "usr/bin/dbus-send",
         "dbus-monitor": "usr/bin/dbus-monitor"}
OWNERS = {"ModemManager": "modemmanager", "oFono": "ofono", "libmm-glib": "libmm-glib0", "gammu": "gammu",
          "dbus-daemon": "dbus-daemon", "libgammu": "libgammu-dev"}
BUS = ("dbus-daemon", "dbus-send", "dbus-monitor")
NEEDS = {"ModemManager": BUS, "oFono": BUS, "dbus-daemon": ("ModemManager", *BUS)}  # the bus is that of ModemManager


def installed(package):
    done = subprocess.run(["dpkg-query", "-W", "-f", "${Status} ${Version}", package], capture_output=True, text=True)
    return done.stdout.split()[-1] if done.stdout.startswith("install ok installed") else ""


def fetch(folder):
    """Fetches what is missing. Returns why that failed, or nothing."""
    if not shutil.which("apt-get") or not shutil.which("dpkg"):
        return "no apt-get here"
    os.makedirs(folder, exist_ok=True)
    missing = [name for name in PACKAGES if not installed(name) and not glob.glob(f"{folder}/{name}_*.deb")]
    fault = ""
    for name in missing:  # one by one: a name that this Debian does not know keeps no other away
        done = subprocess.run(["apt-get", "download", "-q", name], cwd=folder, capture_output=True, text=True, timeout=120)
        fault = fault or (done.returncode and f"apt-get download {name}: " + (done.stderr.strip().splitlines() or ["failed"])[-1])
    for package in sorted(glob.glob(f"{folder}/*.deb")):
        if not os.path.exists(package + ".unpacked"):
            subprocess.run(["dpkg", "-x", package, f"{folder}/root"], check=True)
            open(package + ".unpacked", "w").close()
    return fault or ""


class Peers:
    """The peers that are here, for the measures."""

    def __init__(self, folder, programs, fault=""):
        self.root, self.folder, self.programs, self.fault = f"{folder}/root", folder, programs, fault
        self.libraries = ":".join(glob.glob(f"{self.root}/usr/lib/*-linux-*") + glob.glob(f"{self.root}/lib/*-linux-*"))
        self.environment = {**os.environ, **({"LD_LIBRARY_PATH": self.libraries} if self.libraries else {})}

    def find(self, name):
        for top in (self.root, ""):
            found = glob.glob(f"{top}/{FILES[name]}")
            if found:
                return found[0]
        return None

    def plugins(self):
        return (glob.glob(f"{self.root}/usr/lib/*/ModemManager") or glob.glob("/usr/lib/*/ModemManager") or [""])[0]

    def lack(self, name):
        """Why the peer is not here, or nothing."""
        if name == "libgammu":
            return "" if os.path.exists(f"{self.programs}/bench_sms") else "libgammu-dev was not installed at the build"
        for file in (name, *NEEDS.get(name, ())):
            path = self.find(file)
            if not path:
                return f"no {file}; " + (self.fault or "not fetched")
            done = subprocess.run(["ldd", path], capture_output=True, text=True, env=self.environment)
            absent = [row.split()[0] for row in done.stdout.splitlines() if "not found" in row]
            if absent:
                return f"{file} lacks {' '.join(absent)}"
        return ""

    def version(self, name):
        package = OWNERS[name]
        fetched = glob.glob(f"{self.folder}/{package}_*.deb")
        return fetched[0].split("_")[1].replace("%3a", ":") if fetched else installed(package)
