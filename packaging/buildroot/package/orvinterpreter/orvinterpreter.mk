################################################################################
#
# orvinterpreter
#
################################################################################

ORVINTERPRETER_VERSION = 1.1.0
# The source tree that this recipe stands in. For a release's archive: its address here,
# another method or none, and its hash in orvinterpreter.hash, beside this file.
ORVINTERPRETER_SITE = $(BR2_EXTERNAL_ORVINTERPRETER_PATH)/../..
ORVINTERPRETER_SITE_METHOD = local
ORVINTERPRETER_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
ORVINTERPRETER_INSTALL_STAGING = YES
ORVINTERPRETER_SUPPORTS_IN_SOURCE_BUILD = NO
ORVINTERPRETER_DEPENDENCIES = host-bison
ORVINTERPRETER_CONF_OPTS = -DCMAKE_BUILD_TYPE=MinSizeRel -DORV_TOOLS=OFF -DORV_TESTS=OFF

$(eval $(cmake-package))
