SUMMARY = "Library between the processes of a network device and its configuration daemon"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=0c0adc91406d63b93cac3c74a8e81006"

# The archive of the release, put beside this recipe in files/, or wherever a distribution says that it is.
PELMCONF_ARCHIVE ?= "file://${BP}.tar.xz"
SRC_URI = "${PELMCONF_ARCHIVE}"

DEPENDS = "cjson libxml2"
inherit cmake pkgconfig
EXTRA_OECMAKE = "-DPELM_TOOLS=OFF -DPELM_TESTS=OFF"
