# The page of `kestrav report`: npm bundles report/ with the libraries that it uses, and the tool
# carries the result.

# kestrav_report_page(<target>): the page, or what stands in for it, becomes a source of the target.
function(kestrav_report_page target)
  if(NOT KESTRAV_REPORT)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/kestrav/report_template/none.cc)
    return()
  endif()
  find_program(KESTRAV_NPM npm)
  if(NOT KESTRAV_NPM)
    message(FATAL_ERROR "npm, which bundles the page of kestrav report, is not there: install it "
                        "(scripts/setup does), or build a tool without that page by "
                        "-DKESTRAV_REPORT=OFF")
  endif()

  # Built beside the sources: they stay as they are, and each build has packages of its own.
  set(source ${PROJECT_SOURCE_DIR}/report)
  set(build ${PROJECT_BINARY_DIR}/report)
  set(packages ${source}/package.json ${source}/package-lock.json ${source}/.npmrc)
  file(GLOB parts CONFIGURE_DEPENDS ${source}/build.js ${source}/src/*)
  add_custom_command(
    OUTPUT ${build}/packages
    COMMAND ${CMAKE_COMMAND} -E make_directory ${build}
    COMMAND ${CMAKE_COMMAND} -E copy ${packages} ${build}
    COMMAND ${KESTRAV_NPM} ci --ignore-scripts --prefer-offline --loglevel=error
    COMMAND ${CMAKE_COMMAND} -E touch ${build}/packages
    WORKING_DIRECTORY ${build}
    DEPENDS ${packages}
    COMMENT "Installing what the page of the report is built with"
    VERBATIM)
  add_custom_command(
    OUTPUT ${build}/report_template.cc
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${build}/src
    COMMAND ${CMAKE_COMMAND} -E copy_directory ${source}/src ${build}/src
    COMMAND ${CMAKE_COMMAND} -E copy ${source}/build.js ${build}
    COMMAND ${KESTRAV_NPM} run --silent build
    WORKING_DIRECTORY ${build}
    DEPENDS ${build}/packages ${parts}
    COMMENT "Bundling the page of the report"
    VERBATIM)
  target_sources(${target} PRIVATE ${build}/report_template.cc)
endfunction()
