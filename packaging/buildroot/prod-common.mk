# SPDX-License-Identifier: MIT
# Not run where this tree is tested; see packaging/README.md.
PROD_COMMON_VERSION = 1.0.0
PROD_COMMON_SITE = $(PROD_SITE)
PROD_COMMON_LICENSE = MIT
PROD_COMMON_LICENSE_FILES = LICENSE
PROD_COMMON_INSTALL_STAGING = YES
PROD_COMMON_DEPENDENCIES = host-pkgconf cjson libnl lmdb sqlite zlib
PROD_COMMON_CONF_OPTS = -DCMAKE_BUILD_TYPE=MinSizeRel -DPROD_TESTS=OFF

$(eval $(cmake-package))
