#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The page in a real browser, beside an emulated modem: page.py KELO_HOST KELO_EMULATOR. 77 where no browser is."""
import base64, json, os, re, shutil, subprocess, sys, tempfile, time, urllib.error, urllib.request

HOST, EMULATOR = sys.argv[1:3]
CHROMIUM = "/usr/lib/chromium/chromium"  # the one in PATH is a script that reads /etc
OPERATOR = "<img src=x onerror=alert(1)>\\{}"  # a hostile name is a text
METRICS = "/tmp/kelo.prom"
SHOTS = os.environ.get("KELO_SHOTS")  # a folder for pictures, for people
OPTIONS = ["--apn", "internet", "--ping-target", "10.64.0.1", "--metrics-file", METRICS]


class Browser:
    """What is needed of WebDriver."""

    def __init__(self, folder):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        for line in self.driver.stdout:
            if found := re.search(r"started successfully on port (\d+)", line):
                break
        self.at = f"http://127.0.0.1:{found[1]}/session"
        options = {"binary": CHROMIUM, "args": ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                            "--disable-background-networking", "--window-size=390,1700",
                            f"--user-data-dir={folder}"]}
        answer = self.post("", {"capabilities": {"alwaysMatch": {
            "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}}})
        self.at += "/" + answer["sessionId"]

    def post(self, path, body):
        request = urllib.request.Request(self.at + path, json.dumps(body).encode(), {"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=30) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise SystemExit(f"FAILED: {path}: {error.read().decode()[:500]}")

    def run(self, script):
        return self.post("/execute/sync", {"script": "return " + script, "args": []})

    def text(self, selector):
        return self.run(f"document.querySelector({selector!r}).textContent")

    def wait(self, what, script, seconds=15):
        begun = time.monotonic()
        while not self.run(script):
            if time.monotonic() - begun > seconds:
                raise SystemExit(f"FAILED: no {what} in {seconds} s; the page says: {self.run('document.body.innerText')}")
            time.sleep(0.1)
        return time.monotonic() - begun

    def log(self, kind):
        return self.post("/se/log", {"type": kind})

    def devtools(self, command, **parameters):
        return self.post("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def shoot(self, name):
        self.devtools("Emulation.setDeviceMetricsOverride", width=390, height=844, deviceScaleFactor=2, mobile=True)
        for scheme in ("light", "dark"):
            self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            picture = self.devtools("Page.captureScreenshot", captureBeyondViewport=True)["data"]
            open(f"{SHOTS}/{name}-{scheme}.png", "wb").write(base64.b64decode(picture))


def start_host(address):
    host = subprocess.Popen([HOST, "--http", address, *OPTIONS], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    for line in host.stdout:
        if found := re.search(r"listening on (http://\S+)", line):
            os.set_blocking(host.stdout.fileno(), False)
            return host, found[1]
    raise SystemExit("FAILED: the host does not listen")


def check(holds, what):
    if not holds:
        raise SystemExit(f"FAILED: {what}")


def get(url, accept="*/*"):
    with urllib.request.urlopen(urllib.request.Request(url, headers={"Accept": accept}), timeout=5) as answer:
        return answer.read().decode()


def check_metrics(texts):
    """By the parsers of others."""
    try:
        from prometheus_client.openmetrics.parser import text_string_to_metric_families as strict
        from prometheus_client.parser import text_string_to_metric_families as plain
    except ImportError:
        print("left out: no prometheus_client here")
        return
    for text, parse in zip(texts, (strict, plain, plain)):
        samples = [sample for family in parse(text) for sample in family.samples]
        values = {sample.name: sample.value for sample in samples}
        check(values["kelo_online"] == 1 and values["kelo_rsrp_dbm"] == -71, f"not as the page has it: {values}")
        check(sum(sample.value for sample in samples if sample.name == "kelo_reason") == 1, "one reason at a time")
        check([sample.labels["operator"] for sample in samples if sample.name == "kelo_network_info"] == [OPERATOR],
              f"not the operator: {text}")


def story(browser, modem, started):
    def order(line):
        modem.stdin.write(line + "\n")
        modem.stdin.flush()

    host, url = start_host("127.0.0.1:0")
    started.append(host)
    browser.post("/url", {"url": url})
    browser.wait("word that it is online", "at('word').textContent === 'Online'", 60)
    browser.wait("RSRP", "at('rsrp_dbm').querySelector('.value').textContent === '\u221299'", 30)
    check(browser.text("#rsrp_dbm .level") == "fair", "-99 dBm is not called fair")

    browser.wait("the operator's name as it is", f"at('network').textContent.includes({json.dumps(OPERATOR)})", 20)

    report = '+QENG: "servingcell","NOCONN","LTE","FDD",262,01,7C4B10D,407,1300,3,5,5,5A1C,-71,-8,-50,22,9,23,-'
    order("set qeng_LTE " + report)
    order("report " + report)
    took = browser.wait("change of RSRP", "at('rsrp_dbm').querySelector('.value').textContent === '\u221271'", 5)
    print(f"{took:.1f} s behind the modem's report the page has it")
    order("csq 30")
    check(browser.text("#rsrp_dbm .level") == "excellent", "-71 dBm is not called excellent")
    points = "(at('rsrp_dbm').querySelector('.curve').getAttribute('d').match(/[ML]/g) || []).length"
    before = browser.run(points)
    browser.wait("growing chart", f"{points} >= {before} + 3", 10)
    time.sleep(5)  # until the file is written again
    check_metrics([get(url + "metrics", "application/openmetrics-text"), get(url + "metrics"), open(METRICS).read()])
    if SHOTS:
        browser.shoot("online")

    order("reg searching")
    browser.wait("reason of an outage", "at('word').textContent === 'Not online: searching'", 60)
    check("What to try" in browser.text("#hint"), "no hint")
    browser.wait("outage in the chart", "at('rsrp_dbm').querySelector('.out').getAttribute('d') !== ''", 5)
    if SHOTS:
        time.sleep(20)
        browser.shoot("outage")
    said = [line for line in browser.log("browser") if not line["message"].startswith("chrome:")]
    check(not said, f"the console says {said}")

    host.terminate()
    host.wait(90)
    check(not os.path.exists(METRICS), "the metrics outlive the host")
    browser.wait("word on the lost connection", "at('connection').className === 'lost'", 20)
    host, _ = start_host(url.removeprefix("http://").rstrip("/"))
    started.append(host)
    browser.wait("connection again", "at('connection').textContent === 'Live'", 20)

    foreign = set()
    for line in browser.log("performance"):
        message = json.loads(line["message"])["message"]
        if message["method"] == "Network.requestWillBeSent":
            asked = message["params"]["request"]["url"]
            if message["params"]["documentURL"].startswith(url) and not asked.startswith((url, "data:")):
                foreign.add(asked)
    check(not foreign, f"asked of others: {foreign}")


def main():
    if not shutil.which("chromedriver") or not os.access(CHROMIUM, os.X_OK):
        print("left out: no chromium and chromedriver here")
        return 77
    started = []
    with tempfile.TemporaryDirectory() as folder:
        try:
            modem = subprocess.Popen([EMULATOR, "--model", "RM500Q", "--port", "/dev/ttyUSB2", "--order", "wwan wwan0",
                                      "--set", "operator_long=" + OPERATOR],
                                     stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, text=True)
            started.append(modem)
            browser = Browser(folder)
            started.append(browser.driver)
            story(browser, modem, started)
            browser.post("/url", {"url": "about:blank"})
        finally:
            for one in reversed(started):
                one.terminate()
                one.wait(90)
    return 0


sys.exit(main())
