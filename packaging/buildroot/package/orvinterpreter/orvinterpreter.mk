################################################################################
#
# orvinterpreter
#
################################################################################

ORVINTERPRETER_VERSION = 1.2.0
# The source tree that this recipe stands in. For a release's archive: its address here,
# another method or none, and its hash in orvinterpreter.hash, beside this file.
ORVINTERPRETER_SITE = $(BR2_EXTERNAL_ORVINTERPRETER_PATH)/../..
ORVINTERPRETER_SITE_METHOD = local
ORVINTERPRETER_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
ORVINTERPRETER_INSTALL_STAGING = YES
ORVINTERPRETER_SUPPORTS_IN_SOURCE_BUILD = NO
ORVINTERPRETER_DEPENDENCIES = host-bison
ORVINTERPRETER_CONF_OPTS = -DCMAKE_BUILD_TYPE=MinSizeRel -DORV_TOOLS=OFF -DORV_TESTS=OFF

# orv-textdb on the build machine, with which an image makes its text databases:
#   $(HOST_DIR)/bin/orv-textdb build -o $(TARGET_DIR)/etc/htmltext_de.db de.po
# A package that does so depends on host-orvinterpreter. The header of nlohmann's JSON
# library is the build machine's own. What host-gettext stands for may lack libgettextpo.
HOST_ORVINTERPRETER_DEPENDENCIES = host-bison host-sqlite host-gettext-gnu
HOST_ORVINTERPRETER_CONF_OPTS = -DORV_TESTS=OFF -DORV_INSTALL=OFF
HOST_ORVINTERPRETER_BUILD_OPTS = orv-textdb

define HOST_ORVINTERPRETER_INSTALL_CMDS
	$(INSTALL) -D -m 0755 $(HOST_ORVINTERPRETER_BUILDDIR)/tools/orv-textdb $(HOST_DIR)/bin/orv-textdb
endef

$(eval $(cmake-package))
$(eval $(host-cmake-package))
