# The vendor's runtime as target rknn_api, from the folder CORVANE_RKNN_SDK.
find_path(CORVANE_RKNN_INCLUDE_DIR rknn_api.h NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
  PATHS ${CORVANE_RKNN_SDK} PATH_SUFFIXES include . rknn/include)
find_library(CORVANE_RKNN_LIBRARY rknn_api NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH
  PATHS ${CORVANE_RKNN_SDK} PATH_SUFFIXES lib lib64 . rknn/lib rknn/lib64)
if(NOT CORVANE_RKNN_INCLUDE_DIR OR NOT CORVANE_RKNN_LIBRARY)
  message(FATAL_ERROR "CORVANE_RKNN_SDK=${CORVANE_RKNN_SDK}: rknn_api.h (in ., include) and "
                      "librknn_api.so (in ., lib, lib64) must both be there; found header: "
                      "'${CORVANE_RKNN_INCLUDE_DIR}', library: '${CORVANE_RKNN_LIBRARY}'")
endif()
add_library(rknn_api SHARED IMPORTED GLOBAL)
set_target_properties(rknn_api PROPERTIES
  IMPORTED_LOCATION ${CORVANE_RKNN_LIBRARY}
  IMPORTED_NO_SONAME ON
  INTERFACE_INCLUDE_DIRECTORIES ${CORVANE_RKNN_INCLUDE_DIR})
