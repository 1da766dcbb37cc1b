SUMMARY = "feature toggles for a device, published as a shell script"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=6d1fd46c44060c5477b8d2d5a565b0e0"

# The tree of this layer, resolved: through a symbolic link, BitBake would build stale files.
FILESEXTRAPATHS:prepend := "${@os.path.realpath("${THISDIR}/../../../..")}:"
SRC_URI = "file://CMakeLists.txt;subdir=${BP} file://LICENSE;subdir=${BP} \
           file://examples;subdir=${BP} file://packaging;subdir=${BP} file://src;subdir=${BP}"

DEPENDS = "cli11 cpp-httplib rapidjson"
inherit cmake systemd update-rc.d
EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DSYSTEMD_UNIT_DIR=${systemd_system_unitdir}"

do_install:append() {
    install -D -m 0755 ${S}/packaging/feature_toggled.init ${D}${sysconfdir}/init.d/feature_toggled
}

FILES:${PN} += "${datadir}/feature_toggled"
CONFFILES:${PN} = "${sysconfdir}/default/feature_toggled"
SYSTEMD_SERVICE:${PN} = "feature_toggled.service"
INITSCRIPT_NAME = "feature_toggled"
INITSCRIPT_PARAMS = "defaults 20"
