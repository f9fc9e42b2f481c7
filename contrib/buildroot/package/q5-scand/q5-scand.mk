################################################################################
#
# q5-scand
#
################################################################################

# This external tree lies in the sources and builds the daemon from them.
Q5_SCAND_VERSION = 2.0.0
Q5_SCAND_SITE = $(realpath $(BR2_EXTERNAL_Q5_SCAN_PATH)/../..)
Q5_SCAND_SITE_METHOD = local
Q5_SCAND_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
Q5_SCAND_LICENSE = MIT
Q5_SCAND_LICENSE_FILES = LICENSE
Q5_SCAND_CONF_OPTS = -DQ5_TESTS=OFF -DQ5_CHASSIS=OFF -DQ5_TOOLS=OFF

define Q5_SCAND_INSTALL_TARGET_CMDS
	$(INSTALL) -D -m 0755 $(Q5_SCAND_BUILDDIR)/scan/q5_scand \
		$(TARGET_DIR)/usr/sbin/q5_scand
	$(INSTALL) -D -m 0755 $(Q5_SCAND_BUILDDIR)/packaging/q5_scand_start \
		$(TARGET_DIR)/usr/libexec/q5_scand_start
endef

define Q5_SCAND_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/init/q5_scand \
		$(TARGET_DIR)/etc/init.d/S90q5_scand
endef

define Q5_SCAND_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/q5_scand.service.in \
		$(TARGET_DIR)/usr/lib/systemd/system/q5_scand.service
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/q5_scand_again.service \
		$(TARGET_DIR)/usr/lib/systemd/system/q5_scand_again.service
	$(SED) 's|@Q5_SBINDIR@|/usr/sbin|; s|@Q5_START@|/usr/libexec/q5_scand_start |' \
		$(TARGET_DIR)/usr/lib/systemd/system/q5_scand.service
	$(INSTALL) -D -m 0644 $(@D)/packaging/udev/70-q5_scand.rules \
		$(TARGET_DIR)/usr/lib/udev/rules.d/70-q5_scand.rules
endef

$(eval $(cmake-package))
