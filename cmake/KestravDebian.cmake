# Debian packages of the components, by cpack -G DEB: libkestrav1, libkestrav-dev, kestrav-tools.
# scripts/package makes them.
set(library_package libkestrav${PROJECT_VERSION_MAJOR})
set(component_runtime ${library_package})
set(component_dev libkestrav-dev)
set(component_tools kestrav-tools)

# What every package has in share/doc, and compressed manual pages.
set(documents ${PROJECT_BINARY_DIR}/debian)
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${documents}/changelog @ONLY)
execute_process(COMMAND gzip -9nkf ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
foreach(component runtime dev tools)
  install(FILES ${documents}/changelog.gz ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${component_${component}}
          COMPONENT ${component})
endforeach()
install(CODE "
  file(GLOB pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/*.1\")
  if(pages)
    execute_process(COMMAND gzip -9nf \${pages} COMMAND_ERROR_IS_FATAL ANY)
  endif()"
        COMPONENT tools)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR Kestrav)
set(CPACK_PACKAGE_CONTACT "Kestrav maintainers <maintainers@kestrav.invalid>")
set(CPACK_PACKAGE_DESCRIPTION "A recorder writes the messages of a vehicle's components, stamped to
the millisecond, into one log, and plays a log back to them.")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Recorder for vehicle head units, the library
${CPACK_PACKAGE_DESCRIPTION}")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkestrav-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Recorder for vehicle head units, for development
${CPACK_PACKAGE_DESCRIPTION}
.
Headers, and what CMake and pkg-config need to find the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kestrav-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library_package} (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Recorder for vehicle head units, the command-line tool
${CPACK_PACKAGE_DESCRIPTION}
.
The tool turns traces into logs, shows, plays and repairs logs.")

include(CPack)
