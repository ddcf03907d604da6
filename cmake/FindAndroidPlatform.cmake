# SPDX-License-Identifier: Apache-2.0
# Finds Android's base library and logger as Debian packages them
# (android-libbase-dev, android-liblog-dev) and defines imported targets:
#   Android::base  - libbase (LOG, Result, ReadFileToString, unique_fd, ...)
#   Android::log   - liblog, which libbase logs through
# libbase's headers include fmt, so Android::base carries fmt's headers too.

find_path(AndroidPlatform_INCLUDE_DIR android-base/logging.h
  PATHS /usr/include/android
  NO_DEFAULT_PATH)
find_library(AndroidPlatform_BASE_LIBRARY NAMES base
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
  NO_DEFAULT_PATH)
find_library(AndroidPlatform_LOG_LIBRARY NAMES log
  PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
  NO_DEFAULT_PATH)
find_package(fmt QUIET)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(AndroidPlatform
  REQUIRED_VARS AndroidPlatform_INCLUDE_DIR AndroidPlatform_BASE_LIBRARY
                AndroidPlatform_LOG_LIBRARY fmt_FOUND
  REASON_FAILURE_MESSAGE
    "install android-libbase-dev, android-liblog-dev and libfmt-dev (scripts/install-deps.sh)")

if(AndroidPlatform_FOUND)
  get_filename_component(AndroidPlatform_LIBRARY_DIR "${AndroidPlatform_BASE_LIBRARY}" DIRECTORY)
  if(NOT TARGET Android::log)
    add_library(Android::log SHARED IMPORTED)
    set_target_properties(Android::log PROPERTIES
      IMPORTED_LOCATION "${AndroidPlatform_LOG_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${AndroidPlatform_INCLUDE_DIR}")
  endif()
  if(NOT TARGET Android::base)
    add_library(Android::base SHARED IMPORTED)
    set_target_properties(Android::base PROPERTIES
      IMPORTED_LOCATION "${AndroidPlatform_BASE_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${AndroidPlatform_INCLUDE_DIR}"
      INTERFACE_LINK_LIBRARIES "Android::log;fmt::fmt")
  endif()
endif()
mark_as_advanced(AndroidPlatform_INCLUDE_DIR AndroidPlatform_BASE_LIBRARY AndroidPlatform_LOG_LIBRARY)
