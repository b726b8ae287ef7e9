################################################################################
#
# fcgiserver
#
################################################################################

FCGISERVER_VERSION = 1.0.0
# These sources: they have no public address, so there is nothing to download and to hash.
FCGISERVER_SITE = $(BR2_EXTERNAL_FCGISERVER_PATH)/../..
FCGISERVER_SITE_METHOD = local
FCGISERVER_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = \
	--exclude /build --exclude /image --exclude node_modules
FCGISERVER_LICENSE = none, ask the owner for permission
FCGISERVER_LICENSE_FILES = packaging/debian/copyright
FCGISERVER_REDISTRIBUTE = NO
FCGISERVER_INSTALL_STAGING = YES
FCGISERVER_SUPPORTS_IN_SOURCE_BUILD = NO
FCGISERVER_DEPENDENCIES = host-pkgconf libfcgi pugixml

# MinSizeRel is what docs/footprint.md measures. CCACHE: Buildroot itself runs ccache, if at all.
FCGISERVER_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DCCACHE=OFF \
	-DCMAKE_INSTALL_LIBDIR=lib \
	-DWARNINGS_AS_ERRORS=OFF \
	$(if $(BR2_ENABLE_RUNTIME_DEBUG),,-DCMAKE_BUILD_TYPE=MinSizeRel)

ifeq ($(BR2_PACKAGE_FCGISERVER_PHONE),y)
FCGISERVER_CONF_OPTS += -DBUILD_PHONE=ON
FCGISERVER_DEPENDENCIES += host-python3 libsodium libxcrypt zlib
define FCGISERVER_INSTALL_PHONE
	$(FCGISERVER_INSTALL_COMPONENT) phone
endef
define FCGISERVER_PERMISSIONS
	/phone/data d 700 _fcgihost _fcgihost - - - - -
	/phone/data/reset f 600 _fcgihost _fcgihost - - - - -
endef
else
FCGISERVER_CONF_OPTS += -DBUILD_PHONE=OFF
endif

FCGISERVER_INSTALL_COMPONENT = DESTDIR=$(TARGET_DIR) $(TARGET_MAKE_ENV) \
	$(BR2_CMAKE) --install $(FCGISERVER_BUILDDIR) --component

# For plug-ins that are packages of their own.
define FCGISERVER_INSTALL_STAGING_CMDS
	DESTDIR=$(STAGING_DIR) $(TARGET_MAKE_ENV) $(BR2_CMAKE) --install $(FCGISERVER_BUILDDIR)
endef

define FCGISERVER_INSTALL_TARGET_CMDS
	$(FCGISERVER_INSTALL_COMPONENT) runtime
	$(FCGISERVER_INSTALL_PHONE)
endef

define FCGISERVER_USERS
	_fcgihost -1 _fcgihost -1 * - - - FastCGI daemon
endef

# With systemd, the units of the component "runtime" start the daemon.
define FCGISERVER_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(FCGISERVER_PKGDIR)/S50fcgi_host $(TARGET_DIR)/etc/init.d/S50fcgi_host
	rm -rf $(TARGET_DIR)/usr/lib/systemd/system/fcgi_host.*
endef

$(eval $(cmake-package))
