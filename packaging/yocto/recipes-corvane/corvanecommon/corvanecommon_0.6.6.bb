SUMMARY = "Common services for face recognition on RKNN boards"
DESCRIPTION = "Inference backend, exact affine warp, INI files and small utilities. \
It runs on librknn_api.so of the board's vendor, which another recipe must bring."
# The owner has stated none yet.
LICENSE = "CLOSED"

# A checkout, or the unpacked source archive.
CORVANECOMMON_SOURCE ?= "${TOPDIR}/../libCorvaneCommon"
EXTERNALSRC = "${CORVANECOMMON_SOURCE}"

inherit cmake pkgconfig externalsrc

EXTRA_OECMAKE = " \
    -DCORVANE_BUILD_SIMULATOR=OFF \
    -DCORVANE_BUILD_TESTS=OFF \
    -DCORVANE_BUILD_TOOLS=OFF \
    -DCORVANE_RELOCATABLE_PKGCONFIG=OFF \
    -DCMAKE_SKIP_RPATH=ON \
"

# The vendor's runtime has no version in its name, and the image has it from elsewhere.
INSANE_SKIP:${PN} += "file-rdeps"
