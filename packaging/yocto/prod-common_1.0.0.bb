# SPDX-License-Identifier: MIT
# Not run where this tree is tested; see packaging/README.md.
SUMMARY = "Common library of a small router's firmware"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=93e30e9f63823a7bd2a6492ef8f4b915"
SRC_URI = "${PROD_SITE}"
DEPENDS = "cjson libnl lmdb sqlite3 zlib"

inherit cmake pkgconfig

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DPROD_TESTS=OFF"

# A board's own port is another recipe that provides virtual-prod-platform.
PACKAGE_BEFORE_PN = "${PN}-platform ${PN}-tools"
FILES:${PN}-platform = "${libdir}/libprod_platform.so.1"
RPROVIDES:${PN}-platform = "virtual-prod-platform"
FILES:${PN}-tools = "${bindir} ${datadir}/bash-completion"
RDEPENDS:${PN} = "virtual-prod-platform"
RDEPENDS:${PN}-tools = "${PN}"
