# SPDX-License-Identifier: MIT
# Into recipes-connectivity/kelo/ of your layer. It needs meta-oe (cli11, nlohmann-json); PACKAGECONFIG without "host"
# needs openembedded-core alone. KELO_GIT and SRCREV name your copy of the sources.
SUMMARY = "Owns one USB cellular modem on an embedded Linux device"
SECTION = "net"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=c4e1dcaef482ee50c3a442bb802e23d1"

KELO_GIT ?= "git://git.example.com/kelo.git;protocol=https;branch=main"
SRC_URI = "${KELO_GIT}"
SRCREV ?= "${AUTOREV}"
PV = "git${SRCPV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig systemd

PACKAGECONFIG ??= "host"
PACKAGECONFIG[host] = "-DKELO_BUILD_HOST=ON,-DKELO_BUILD_HOST=OFF,libevent cli11 nlohmann-json"
PACKAGECONFIG[emulator] = "-DKELO_BUILD_EMULATOR=ON,-DKELO_BUILD_EMULATOR=OFF,mosquitto cli11 nlohmann-json"
EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DKELO_BUILD_EXAMPLES=OFF -DCMAKE_BUILD_TYPE=MinSizeRel"

# The profile files lie where the library reads them.
PACKAGES =+ "${PN}-host ${PN}-emulator"
FILES:${PN} += "/usr/customer/mobile"
FILES:${PN}-host = "${bindir}/kelo-host ${bindir}/kelo-ctl ${datadir}/kelo/monitoring \
    ${sysconfdir}/kelo ${nonarch_base_libdir}/systemd ${nonarch_base_libdir}/udev \
    ${datadir}/bash-completion/completions/kelo-host ${datadir}/bash-completion/completions/kelo-ctl"
CONFFILES:${PN}-host = "${sysconfdir}/kelo/host.conf ${sysconfdir}/kelo/secrets.conf"
SYSTEMD_PACKAGES = "${@bb.utils.contains('PACKAGECONFIG', 'host', '${PN}-host', '', d)}"
SYSTEMD_SERVICE:${PN}-host = "kelo-host.service"
FILES:${PN}-emulator = "${bindir}/kelo-emulator ${bindir}/kelo-device-root ${datadir}/kelo/dialogues \
    ${datadir}/bash-completion/completions/kelo-emulator"

# killall, ifconfig, ping and ip in busybox's form; the USB serial driver of most modems.
RDEPENDS:${PN} = "busybox"
RRECOMMENDS:${PN} = "kernel-module-option kernel-module-qmi-wwan"
