################################################################################
#
# psia
#
################################################################################

# The project that this tree is a part of. For another place: PSIA_SITE and
# PSIA_SITE_METHOD = git, PSIA_VERSION a commit, and a psia.hash.
PSIA_VERSION = 1.0
PSIA_SITE = $(realpath $(BR2_EXTERNAL_PSIA_PATH)/../..)
PSIA_SITE_METHOD = local
PSIA_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
# PSIA_LICENSE and PSIA_LICENSE_FILES belong here. No licence has been chosen
# yet, so all rights are reserved.
PSIA_REDISTRIBUTE = NO

PSIA_DEPENDENCIES = host-pkgconf libfcgi libxml2 sqlite util-linux
PSIA_CONF_OPTS = \
	-DCMAKE_BUILD_TYPE=MinSizeRel \
	-DPSIA_TESTS=OFF \
	-DPSIA_DOCUMENTS=OFF \
	-DPSIA_UNITS=$(if $(BR2_INIT_SYSTEMD),ON,OFF) \
	-DPSIA_UNIT_DIR=/usr/lib/systemd/system

define PSIA_USERS
	psia -1 psia -1 * - - - PSIA management service
endef

# CMake installs the units, and a copy of the script that names the paths of
# this build.
define PSIA_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(TARGET_DIR)/usr/share/psia/psia.init \
		$(TARGET_DIR)/etc/init.d/S45psia
endef

# CMake installs it only where it is asked for by name.
define PSIA_INSTALL_CAMERA_DAEMONS
	DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(PSIA_BUILDDIR) \
		--prefix /usr --component daemons
endef
ifeq ($(BR2_PACKAGE_PSIA_CAMERA_DAEMONS),y)
PSIA_POST_INSTALL_TARGET_HOOKS += PSIA_INSTALL_CAMERA_DAEMONS
endif

$(eval $(cmake-package))
