# SPDX-License-Identifier: Apache-2.0
# Where the build puts what it makes: the layout of an installation, so that
# the $ORIGIN-relative run paths and the simulator's default library path hold
# in the build tree and installed alike, under any prefix.
#   ZELVA_LIBDIR_FROM_BINDIR      libdir seen from bindir: ../lib, ../lib/x86_64-linux-gnu
#   ZELVA_PRIVATE_LIBDIR          directory under libdir for the libraries that
#                                 only this project loads (libhostplatform)
#   ZELVA_PRIVATE_LIBRARY_OUTPUT_DIRECTORY  that directory in the build tree
#   ZELVA_LIBRARY_SONAME_FILE     libzelvaextproperty.so.<major>

file(RELATIVE_PATH ZELVA_LIBDIR_FROM_BINDIR
  "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set(ZELVA_PRIVATE_LIBDIR zelvaextproperty)
set(ZELVA_LIBRARY_SONAME_FILE "libzelvaextproperty.so.${PROJECT_VERSION_MAJOR}")

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
cmake_path(ABSOLUTE_PATH ZELVA_LIBDIR_FROM_BINDIR BASE_DIRECTORY "${CMAKE_BINARY_DIR}/bin"
  NORMALIZE OUTPUT_VARIABLE _zelva_libdir)
cmake_path(IS_PREFIX CMAKE_BINARY_DIR "${_zelva_libdir}" _zelva_libdir_inside)
if(NOT _zelva_libdir_inside)
  # A libdir on another branch of the tree than bindir can't be mirrored here.
  message(WARNING "libdir ${CMAKE_INSTALL_FULL_LIBDIR} is not below bindir's parent: "
    "extprop-sim in the build tree needs --lib")
  set(_zelva_libdir "${CMAKE_BINARY_DIR}/lib")
endif()
string(REGEX REPLACE "/$" "" _zelva_libdir "${_zelva_libdir}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${_zelva_libdir}")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${_zelva_libdir}")
set(ZELVA_PRIVATE_LIBRARY_OUTPUT_DIRECTORY "${_zelva_libdir}/${ZELVA_PRIVATE_LIBDIR}")
