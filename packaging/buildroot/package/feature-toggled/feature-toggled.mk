################################################################################
#
# feature-toggled
#
################################################################################

FEATURE_TOGGLED_VERSION = 1.1.0
FEATURE_TOGGLED_SITE = $(realpath $(BR2_EXTERNAL_FEATURE_TOGGLE_PATH)/../..)
FEATURE_TOGGLED_SITE_METHOD = local
# make legal-info ignores this, and packs build/ too: run it on a clean clone.
FEATURE_TOGGLED_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
FEATURE_TOGGLED_LICENSE = MIT
FEATURE_TOGGLED_LICENSE_FILES = LICENSE
FEATURE_TOGGLED_DEPENDENCIES = cli11 cpp-httplib rapidjson
FEATURE_TOGGLED_CONF_OPTS = \
	-DCMAKE_INSTALL_SYSCONFDIR=/etc \
	-DSYSTEMD_UNIT_DIR=$(if $(BR2_INIT_SYSTEMD),/usr/lib/systemd/system)

# Checked here, because a dependency in Config.in would be recursive.
ifeq ($(BR_BUILDING)$(BR2_PACKAGE_FEATURE_TOGGLED)$(BR2_PACKAGE_CPP_HTTPLIB_COMPILE),yyy)
$(error feature-toggled needs the header-only cpp-httplib: unset BR2_PACKAGE_CPP_HTTPLIB_COMPILE)
endif

define FEATURE_TOGGLED_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/feature_toggled.init \
		$(TARGET_DIR)/etc/init.d/S20feature_toggled
endef

$(eval $(cmake-package))
