# What cmake --install installs, in the components runtime, dev and tools.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

function(kestrav_install_library)
  install(TARGETS kestrav EXPORT kestravTargets
          LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
          ARCHIVE COMPONENT dev
          FILE_SET HEADERS COMPONENT dev)

  set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kestrav)
  install(EXPORT kestravTargets NAMESPACE kestrav:: DESTINATION ${package_dir} COMPONENT dev)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/kestravConfigVersion.cmake
                                   COMPATIBILITY SameMajorVersion)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kestravConfig.cmake.in
                 ${PROJECT_BINARY_DIR}/kestravConfig.cmake @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/kestravConfig.cmake
                ${PROJECT_BINARY_DIR}/kestravConfigVersion.cmake
          DESTINATION ${package_dir} COMPONENT dev)

  set(pkg_config_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  # The prefix is where the file was installed, which may differ from what was configured.
  file(RELATIVE_PATH to_prefix /${pkg_config_dir} /)
  string(REGEX REPLACE "/$" "" to_prefix ${to_prefix})
  set(static_libraries)
  set(private_libraries -pthread)
  if(NOT KESTRAV_SHARED)
    set(static_libraries -pthread)
    set(private_libraries)
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/kestrav.pc.in ${PROJECT_BINARY_DIR}/kestrav.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/kestrav.pc DESTINATION ${pkg_config_dir} COMPONENT dev)
endfunction()

function(kestrav_install_tool)
  install(TARGETS kestrav_tool RUNTIME COMPONENT tools)
  # Below a prefix that the system does not search, the tool finds the library all the same.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(kestrav_tool PROPERTIES INSTALL_RPATH $ORIGIN/${to_libraries})
  endif()
  file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.1)
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/kestrav/completion/kestrav.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME kestrav
          COMPONENT tools)
  # Readers for other programs.
  install(FILES ${PROJECT_SOURCE_DIR}/python/kestrav_log.py ${PROJECT_SOURCE_DIR}/docs/formats/klog.lua
                ${PROJECT_SOURCE_DIR}/docs/formats/klog.ksy
          DESTINATION ${CMAKE_INSTALL_DATADIR}/kestrav COMPONENT tools)
endfunction()
