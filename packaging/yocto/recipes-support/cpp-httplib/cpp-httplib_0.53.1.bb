SUMMARY = "HTTP server and client for C++ in one header"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=1321bdf796c67e3a8ab8e352dd81474b"

SRC_URI = "git://github.com/yhirose/cpp-httplib.git;protocol=https;branch=master;destsuffix=${BP}"
SRCREV = "b8fe69e4e892ec394ca8de27ab2fe219008690b6"

do_configure[noexec] = "1"
do_compile[noexec] = "1"
do_install() {
    install -D -m 0644 ${S}/httplib.h ${D}${includedir}/httplib.h
}

# It installs only a header, so its package for the target is empty.
ALLOW_EMPTY:${PN} = "1"
