SUMMARY = "Network access to the cards of a chassis on one multidrop serial bus"
DESCRIPTION = "Daemon for a PowerQUICC II board. Needs the scan port driver, /dev/scanp, of its kernel."
SECTION = "net"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=924719ff69b961f3adce48f277fc5fe1"

inherit cmake externalsrc systemd update-rc.d

# This layer lies in the sources and builds the daemon from them.
EXTERNALSRC = "${@os.path.normpath(d.getVar('FILE_DIRNAME') + '/../../../../..')}"

EXTRA_OECMAKE = "-DQ5_TESTS=OFF -DQ5_CHASSIS=OFF -DQ5_TOOLS=OFF"

SYSTEMD_SERVICE:${PN} = "q5_scand.service"
INITSCRIPT_NAME = "q5_scand"
INITSCRIPT_PARAMS = "defaults 90 10"

do_install () {
    install -D -m 0755 ${B}/scan/q5_scand ${D}${sbindir}/q5_scand
    install -D -m 0755 ${B}/packaging/q5_scand_start ${D}${libexecdir}/q5_scand_start
    install -D -m 0644 ${S}/packaging/udev/70-q5_scand.rules \
        ${D}${nonarch_base_libdir}/udev/rules.d/70-q5_scand.rules
    install -D -m 0644 ${S}/packaging/systemd/q5_scand.service.in \
        ${D}${systemd_system_unitdir}/q5_scand.service
    install -m 0644 ${S}/packaging/systemd/q5_scand_again.service ${D}${systemd_system_unitdir}
    sed -i 's|@Q5_SBINDIR@|${sbindir}|; s|@Q5_START@|${libexecdir}/q5_scand_start |' \
        ${D}${systemd_system_unitdir}/q5_scand.service
    install -D -m 0755 ${S}/packaging/init/q5_scand ${D}${sysconfdir}/init.d/q5_scand
}

FILES:${PN} += "${nonarch_base_libdir}/udev/rules.d ${systemd_system_unitdir}/q5_scand_again.service"
