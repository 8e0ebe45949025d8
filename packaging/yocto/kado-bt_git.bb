# SPDX-License-Identifier: MIT
SUMMARY = "Bluetooth audio receiver daemon for embedded speakers"

LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=1087b98b3d89f3c33dc941a6323987da"

# Set both to your copy of the tree; a release has a fixed commit.
SRC_URI = "git:///path/to/kado-bt;protocol=file;branch=main;destsuffix=${BP}"
SRCREV = "${AUTOREV}"

# Qt 6 from meta-qt6. For Qt 5.15 from meta-qt5 set KADO_QT = "5" in the distribution's configuration.
KADO_QT ?= "6"
inherit ${@'cmake_qt5' if d.getVar('KADO_QT') == '5' else 'qt6-cmake'} systemd useradd

DEPENDS = "qtbase"
RDEPENDS:${PN} = "dbus"
RRECOMMENDS:${PN} = "bluez5"

EXTRA_OECMAKE += "-DQT_MAJOR=${KADO_QT} -DKADO_UNIT_DIR=${systemd_system_unitdir}"

SYSTEMD_SERVICE:${PN} = "kado-bt.service"
USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --user-group --no-create-home --home-dir /nonexistent --shell /sbin/nologin kado-bt"
FILES:${PN} += "${datadir}/dbus-1 ${nonarch_libdir}/sysusers.d"

# For boards with an external module: gives the service the module's two devices and starts it without BlueZ.
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
