SUMMARY = "Device's feature toggles, kept and published as a shell script"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=6d1fd46c44060c5477b8d2d5a565b0e0"

DEPENDS = "cli11 cpp-httplib rapidjson"
inherit externalsrc cmake systemd update-rc.d
EXTERNALSRC := "${@os.path.realpath('${THISDIR}/../../../..')}"
EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DSYSTEMD_UNIT_DIR=${systemd_system_unitdir}"

do_install:append() {
    install -D -m 0755 ${S}/packaging/feature_toggled.init ${D}${sysconfdir}/init.d/feature_toggled
}

FILES:${PN} += "${datadir}/feature_toggled"
SYSTEMD_SERVICE:${PN} = "feature_toggled.service"
INITSCRIPT_NAME = "feature_toggled"
INITSCRIPT_PARAMS = "defaults 20"
