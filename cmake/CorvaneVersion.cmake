# The version is the one in project(). It stands in version.h too, for programs, and in debian/, where the
# library's package also has the name of the SONAME: keep them one.
set(corvane_version_header ${PROJECT_SOURCE_DIR}/include/corvane/version.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${corvane_version_header})
file(READ ${corvane_version_header} corvane_version_text)
foreach(part MAJOR MINOR PATCH)
  if(NOT corvane_version_text MATCHES "CORVANE_VERSION_${part} ${PROJECT_VERSION_${part}}\n")
    message(FATAL_ERROR "include/corvane/version.h: CORVANE_VERSION_${part} is not the "
                        "${PROJECT_VERSION_${part}} of project(... VERSION ${PROJECT_VERSION})")
  endif()
endforeach()
if(NOT corvane_version_text MATCHES "CORVANE_VERSION_STRING \"(${PROJECT_VERSION}(\\.dev)?)\"\n")
  message(FATAL_ERROR "include/corvane/version.h: CORVANE_VERSION_STRING is neither "
                      "\"${PROJECT_VERSION}\" nor \"${PROJECT_VERSION}.dev\"")
endif()
set(CORVANE_VERSION_STRING ${CMAKE_MATCH_1})

string(REPLACE ".dev" "~dev" corvane_debian_version ${CORVANE_VERSION_STRING})
set(corvane_library_package libcorvanecommon${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
foreach(wanted "changelog:libcorvanecommon (${corvane_debian_version}) " "control:Package: ${corvane_library_package}\n")
  string(REGEX MATCH "^[a-z]+" corvane_debian_file ${wanted})
  string(REGEX REPLACE "^[a-z]+:" "" wanted ${wanted})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/debian/${corvane_debian_file})
  file(READ ${PROJECT_SOURCE_DIR}/debian/${corvane_debian_file} corvane_debian_text)
  string(FIND "${corvane_debian_text}" "${wanted}" found)
  if(found LESS 0)
    message(FATAL_ERROR "debian/${corvane_debian_file} does not say \"${wanted}\", which version "
                        "${CORVANE_VERSION_STRING} asks for")
  endif()
endforeach()
