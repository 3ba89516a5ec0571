SUMMARY = "Template interpreter for the pages of a device's web program"
DESCRIPTION = "A library with C linkage that needs the C library alone."
# No licence has been chosen yet.
LICENSE = "CLOSED"

DEPENDS = "bison-native"

# The source tree that this recipe stands in. For a release's archive: its address in
# SRC_URI, its hash in SRC_URI[sha256sum], and neither externalsrc nor EXTERNALSRC.
inherit cmake externalsrc
EXTERNALSRC = "${THISDIR}/../.."

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DORV_TOOLS=OFF -DORV_TESTS=OFF"
