################################################################################
#
# pelmconf
#
################################################################################

PELMCONF_SITE := $(BR2_EXTERNAL_PELMCONF_PATH)/../..
PELMCONF_SITE_METHOD = local
PELMCONF_VERSION := $(shell sed -n 's/^project(pelmconf VERSION \([0-9.]*\).*/\1/p' $(PELMCONF_SITE)/CMakeLists.txt)
PELMCONF_LICENSE = MIT
PELMCONF_LICENSE_FILES = LICENSE
PELMCONF_INSTALL_STAGING = YES
PELMCONF_DEPENDENCIES = cjson host-pkgconf libxml2
PELMCONF_CONF_OPTS = -DPELM_TOOLS=OFF -DPELM_TESTS=OFF

$(eval $(cmake-package))
