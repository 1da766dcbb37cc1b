################################################################################
#
# feature-toggled
#
################################################################################

FEATURE_TOGGLED_SITE = $(realpath $(BR2_EXTERNAL_FEATURE_TOGGLE_PATH)/../..)
FEATURE_TOGGLED_SITE_METHOD = local
FEATURE_TOGGLED_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
FEATURE_TOGGLED_LICENSE = MIT
FEATURE_TOGGLED_LICENSE_FILES = LICENSE
FEATURE_TOGGLED_DEPENDENCIES = cli11 cpp-httplib rapidjson
FEATURE_TOGGLED_CONF_OPTS = -DCMAKE_INSTALL_SYSCONFDIR=/etc

# The unit is there whatever the init system is: CMake installs it.
define FEATURE_TOGGLED_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/feature_toggled.init \
		$(TARGET_DIR)/etc/init.d/S20feature_toggled
endef

$(eval $(cmake-package))
