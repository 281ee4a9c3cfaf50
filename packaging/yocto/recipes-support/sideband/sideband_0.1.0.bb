# SPDX-License-Identifier: Apache-2.0
# libsideband for an image; PACKAGECONFIG adds the parts that want more than a compiler.
SUMMARY = "Management of a server's devices by MCTP, PLDM, NC-SI and NVMe-MI"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

# Where the layer's user has the sources; see the layer's README.
SIDEBAND_URI ?= "git:///srv/git/sideband.git;protocol=file;branch=main"
SRC_URI = "${SIDEBAND_URI}"
SRCREV ?= "${AUTOREV}"
S = "${WORKDIR}/git"

inherit meson pkgconfig

# tools: the command-line tools and the simulated board; linux: the platform library for Linux, with tools.
PACKAGECONFIG ??= ""
PACKAGECONFIG[tools] = "-Dtools=enabled,-Dtools=disabled,nlohmann-json cli11 fmt python3-native"
PACKAGECONFIG[linux] = "-Dlinux=enabled,-Dlinux=disabled"
PACKAGECONFIG[static] = "-Ddefault_library=both,-Ddefault_library=shared"
EXTRA_OEMESON = "-Ddocs=disabled -Dtests=disabled -Dbench=disabled -Dfuzz=disabled"

PACKAGES =+ "${PN}-linux ${PN}-sim ${PN}-tools"
FILES:${PN}-linux = "${libdir}/libsideband-linux.so.*"
FILES:${PN}-sim = "${libdir}/libsideband-sim.so.*"
FILES:${PN}-tools = "${bindir}/sideband ${bindir}/sideband-sim ${bindir}/sideband-porttest ${datadir}/sideband ${datadir}/bash-completion ${datadir}/fish ${datadir}/zsh"
# The tools have a platform each built in; a service brings one of these, or the image's own.
RSUGGESTS:${PN} = "${PN}-linux"
