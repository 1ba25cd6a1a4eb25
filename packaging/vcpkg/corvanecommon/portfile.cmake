# An overlay port: vcpkg install corvanecommon --overlay-ports=packaging/vcpkg, from a checkout or the
# unpacked source archive, with a triplet of shared libraries.
vcpkg_check_linkage(ONLY_DYNAMIC_LIBRARY)
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    -DCORVANE_BUILD_TESTS=OFF
    -DCORVANE_BUILD_TOOLS=OFF
    -DCORVANE_SIMULATOR_ONNX=OFF
    -DCORVANE_INSTALL=ON
)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME CorvaneCommon CONFIG_PATH lib/cmake/CorvaneCommon)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
# The owner has stated no licence yet: the section of the README says so.
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/debian/copyright")
