################################################################################
#
# corvanecommon
#
################################################################################

CORVANECOMMON_VERSION = 0.6.6
# This checkout, or the unpacked source archive.
CORVANECOMMON_SITE = $(BR2_EXTERNAL_CORVANE_PATH)/../..
CORVANECOMMON_SITE_METHOD = local
CORVANECOMMON_INSTALL_STAGING = YES
CORVANECOMMON_CONF_OPTS = \
	-DCORVANE_BUILD_SIMULATOR=OFF \
	-DCORVANE_BUILD_TESTS=OFF \
	-DCORVANE_BUILD_TOOLS=OFF \
	-DCORVANE_RELOCATABLE_PKGCONFIG=OFF \
	-DCMAKE_SKIP_RPATH=ON

$(eval $(cmake-package))
