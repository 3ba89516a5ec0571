SUMMARY = "Template interpreter for the pages of a device's web program"
DESCRIPTION = "A library with C linkage that needs the C library alone."
# No licence has been chosen yet.
LICENSE = "CLOSED"

DEPENDS = "bison-native"

# The source tree that this recipe stands in. For a release's archive: its address in
# SRC_URI, its hash in SRC_URI[sha256sum], and neither externalsrc nor EXTERNALSRC.
inherit cmake externalsrc
EXTERNALSRC = "${THISDIR}/../.."

# orvinterpreter-native has the programs: an image makes its text databases by orv-textdb.
# nlohmann-json is in the layer meta-oe; libxcrypt is for liborvhost, which the demo's program has.
BBCLASSEXTEND = "native"
DEPENDS:append:class-native = " sqlite3-native gettext-native nlohmann-json-native libxcrypt-native"
EXTRA_OECMAKE:class-native = "-DORV_TESTS=OFF"

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=MinSizeRel -DORV_TOOLS=OFF -DORV_TESTS=OFF"
