################################################################################
#
# kelo
#
################################################################################
# SPDX-License-Identifier: MIT
# With Config.in into package/kelo/ of your tree, or of a BR2_EXTERNAL. KELO_GIT and KELO_REVISION name your copy of the
# sources; KELO_OVERRIDE_SRCDIR in local.mk takes a folder in their place.

KELO_GIT ?= https://git.example.com/kelo.git
KELO_REVISION ?= main

KELO_VERSION = $(KELO_REVISION)
KELO_SITE = $(KELO_GIT)
KELO_SITE_METHOD = git
KELO_LICENSE = MIT
KELO_LICENSE_FILES = LICENSE
KELO_INSTALL_STAGING = YES
KELO_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DKELO_BUILD_EXAMPLES=OFF \
	-DKELO_BUILD_EMULATOR=OFF

ifeq ($(BR2_PACKAGE_KELO_HOST),y)
KELO_DEPENDENCIES += host-pkgconf cli11 json-for-modern-cpp libevent
KELO_CONF_OPTS += -DKELO_BUILD_HOST=ON
else
KELO_CONF_OPTS += -DKELO_BUILD_HOST=OFF
endif

$(eval $(cmake-package))
