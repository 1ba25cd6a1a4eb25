# The version stands twice, in project() for the build and in version.h for programs: keep them one.
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
