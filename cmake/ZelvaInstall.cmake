# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` puts where (GNUInstallDirs):
#   libdir/libzelvaextproperty.so.<version>, .so.<major>   the library init loads
#   libdir/zelvaextproperty/libhostplatform.so             the host platform library it needs
#   libdir/libzelvaextproperty.so                          link for building against it
#   includedir/zelvaextproperty/IInitExtensionProperty.h   init's contract, nothing internal
#   libdir/cmake/zelvaextproperty/                         find_package(zelvaextproperty)
#   libdir/pkgconfig/zelvaextproperty.pc
#   bindir/extprop-sim, mandir/man1/extprop-sim.1
#   datadir/bash-completion/completions/extprop-sim
#   datadir/extprop-sim/examples/                          the bundled device trees
# Run paths are relative to $ORIGIN (ZelvaLayout), so any prefix works.

include(CMakePackageConfigHelpers)

install(TARGETS zelvaextproperty EXPORT zelvaextpropertyTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
# Exported too, as the library's run-time dependency (a consumer's link finds
# it through the package); its headers are the build's own and stay out.
install(TARGETS hostplatform EXPORT zelvaextpropertyTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${ZELVA_PRIVATE_LIBDIR})
install(FILES system/core_common/extproperty/include/IInitExtensionProperty.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zelvaextproperty)

# The CMake package: zelvaextproperty::zelvaextproperty.
set(ZELVA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zelvaextproperty)
install(EXPORT zelvaextpropertyTargets
  NAMESPACE zelvaextproperty::
  DESTINATION ${ZELVA_CMAKE_PACKAGE_DIR})
configure_package_config_file(cmake/zelvaextpropertyConfig.cmake.in
  "${CMAKE_BINARY_DIR}/package/zelvaextpropertyConfig.cmake"
  INSTALL_DESTINATION ${ZELVA_CMAKE_PACKAGE_DIR})
# The major number is the SONAME's: a new one breaks the interface.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/package/zelvaextpropertyConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_BINARY_DIR}/package/zelvaextpropertyConfig.cmake"
  "${CMAKE_BINARY_DIR}/package/zelvaextpropertyConfigVersion.cmake"
  DESTINATION ${ZELVA_CMAKE_PACKAGE_DIR})

# zelvaextproperty.pc is written when installing, so that it names the prefix
# installed to, also when that is chosen by `cmake --install --prefix`.
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(ZELVA_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(ZELVA_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
install(CODE "
  set(ZELVA_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  set(ZELVA_PC_LIBDIR [[${ZELVA_PC_LIBDIR}]])
  set(ZELVA_PC_INCLUDEDIR [[${ZELVA_PC_INCLUDEDIR}/zelvaextproperty]])
  set(ZELVA_LIBRARY_SONAME_FILE ${ZELVA_LIBRARY_SONAME_FILE})
  set(PROJECT_VERSION ${PROJECT_VERSION})
  configure_file([[${PROJECT_SOURCE_DIR}/cmake/zelvaextproperty.pc.in]]
                 [[${CMAKE_BINARY_DIR}/package/zelvaextproperty.pc]] @ONLY)")
install(FILES "${CMAKE_BINARY_DIR}/package/zelvaextproperty.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(ZELVA_BUILD_TOOLS)
  install(TARGETS extprop-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES tools/extprop-sim/extprop-sim.bash-completion
    RENAME extprop-sim
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(DIRECTORY examples/
    DESTINATION ${CMAKE_INSTALL_DATADIR}/extprop-sim/examples
    USE_SOURCE_PERMISSIONS)
  if(ZELVA_BUILD_MANPAGE)
    # From the program's own --help and --version, so the page can't drift.
    find_program(HELP2MAN help2man REQUIRED)
    set(man_page "${CMAKE_BINARY_DIR}/man/extprop-sim.1")
    add_custom_command(OUTPUT "${man_page}"
      COMMAND ${CMAKE_COMMAND} -E make_directory "${CMAKE_BINARY_DIR}/man"
      COMMAND ${HELP2MAN} --no-info --section=1
              "--name=boot libzelvaextproperty against a device tree as Android init would"
              --output=${man_page} $<TARGET_FILE:extprop-sim>
      DEPENDS extprop-sim
      COMMENT "Generating the extprop-sim man page")
    add_custom_target(extprop-sim-man ALL DEPENDS "${man_page}")
    install(FILES "${man_page}" DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endif()
