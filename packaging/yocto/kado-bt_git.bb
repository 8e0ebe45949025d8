# SPDX-License-Identifier: MIT
SUMMARY = "Bluetooth audio receiver daemon for embedded speakers"

LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=1087b98b3d89f3c33dc941a6323987da"

# Where the tree is, and which commit of it; a release has a fixed one.
SRC_URI = "git:///path/to/kado-bt;protocol=file;branch=main;destsuffix=${BP}"
SRCREV = "${AUTOREV}"

inherit qt6-cmake pkgconfig systemd useradd

DEPENDS = "qtbase"
RDEPENDS:${PN} = "dbus"
RRECOMMENDS:${PN} = "bluez5"

EXTRA_OECMAKE += "-DKADO_UNIT_DIR=${systemd_system_unitdir}"

SYSTEMD_SERVICE:${PN} = "kado-bt.service"
USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --user-group --no-create-home --home-dir /nonexistent --shell /sbin/nologin kado-bt"
FILES:${PN} += "${datadir}/dbus-1 ${nonarch_libdir}/sysusers.d"

# For a board whose radio is an external module: the same service with the module's two devices, started without BlueZ.
PACKAGES =+ "${PN}-module"
SUMMARY:${PN}-module = "${SUMMARY}, for boards with an external module"
RDEPENDS:${PN}-module = "${PN}"
FILES:${PN}-module = "${sysconfdir}"

do_install:append() {
    install -D -m 0644 ${D}${datadir}/kado-bt/module/module.conf \
        ${D}${sysconfdir}/systemd/system/kado-bt.service.d/module.conf
    install -D -m 0644 ${D}${datadir}/kado-bt/module/70-kado-bt-module.rules \
        ${D}${sysconfdir}/udev/rules.d/70-kado-bt-module.rules
    install -d ${D}${sysconfdir}/systemd/system/multi-user.target.wants
    ln -s ${systemd_system_unitdir}/kado-bt.service ${D}${sysconfdir}/systemd/system/multi-user.target.wants/
}
