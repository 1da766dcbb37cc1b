SUMMARY = "HTTP library in one header, as scripts/fetch-httplib has put it into build/deps"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://share/doc/cpp-httplib/copyright;md5=2bb52c77895078a9d282fc6f93c8d872"

FILESEXTRAPATHS:prepend := "${THISDIR}/../../../../build/deps:"
SRC_URI = "file://include/httplib.h file://share/doc/cpp-httplib/copyright"
S = "${UNPACKDIR}"

do_configure[noexec] = "1"
do_compile[noexec] = "1"
do_install() {
    install -D -m 0644 ${S}/include/httplib.h ${D}${includedir}/httplib.h
}

# There is nothing of it for the target.
ALLOW_EMPTY:${PN} = "1"
