SUMMARY = "PSIA management service of a network camera"
DESCRIPTION = "The FastCGI program behind every URL under /PSIA on a network camera's own web server."
SECTION = "net"
# No licence has been chosen yet, so all rights are reserved. Once there is one, it belongs here, with
# LIC_FILES_CHKSUM.
LICENSE = "CLOSED"

DEPENDS = "fcgi libxml2 sqlite3 util-linux-libuuid"

inherit cmake pkgconfig systemd update-rc.d useradd externalsrc

# The project that this layer is a part of. For another place, leave externalsrc out and set SRC_URI and SRCREV.
EXTERNALSRC = "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"
EXTERNALSRC_SYMLINKS = ""

PACKAGECONFIG ?= "${@bb.utils.filter('DISTRO_FEATURES', 'systemd', d)}"
PACKAGECONFIG[systemd] = "-DPSIA_UNITS=ON,-DPSIA_UNITS=OFF"
# For development boards without the camera's daemons: a program that plays them, in a package of its own.
PACKAGECONFIG[camera-daemons] = ""

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DPSIA_TESTS=OFF -DPSIA_DOCUMENTS=OFF \
    -DPSIA_UNIT_DIR=${systemd_system_unitdir}"

do_install:append() {
    if ${@bb.utils.contains('DISTRO_FEATURES', 'sysvinit', 'true', 'false', d)}; then
        install -D -m 0755 ${D}${datadir}/psia/psia.init ${D}${sysconfdir}/init.d/psia
    fi
    if ${@bb.utils.contains('PACKAGECONFIG', 'camera-daemons', 'true', 'false', d)}; then
        DESTDIR=${D} cmake --install ${B} --component daemons
    fi
}

PACKAGES =+ "${PN}-camera-daemons"
FILES:${PN}-camera-daemons = "${sbindir}/camera-daemons ${datadir}/psia/simulator"
RDEPENDS:${PN}-camera-daemons = "python3-modules"

USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --user-group --no-create-home --home-dir /nonexistent --shell /sbin/nologin psia"

SYSTEMD_SERVICE:${PN} = "psia.socket psia.service"

# After the camera's daemons, before the web server.
INITSCRIPT_NAME = "psia"
INITSCRIPT_PARAMS = "defaults 45 55"

RDEPENDS:${PN} = "tzdata"
RRECOMMENDS:${PN} = "nginx ${@bb.utils.contains('DISTRO_FEATURES', 'sysvinit', 'spawn-fcgi', '', d)}"
