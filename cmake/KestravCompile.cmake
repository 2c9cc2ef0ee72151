# What every target of this project is compiled with: kestrav::compile.
add_library(kestrav_compile INTERFACE)
target_compile_features(kestrav_compile INTERFACE cxx_std_20)
target_compile_options(kestrav_compile INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                                 -Wnon-virtual-dtor -Woverloaded-virtual)
# Files up to 4 GiB and times after 2038 on 32-bit targets too; nothing changes on 64-bit ones.
target_compile_definitions(kestrav_compile INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(KESTRAV_WERROR)
  target_compile_options(kestrav_compile INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(kestrav_compile INTERFACE -Wthread-safety)
endif()
if(KESTRAV_SANITIZE)
  target_compile_options(kestrav_compile INTERFACE -fsanitize=${KESTRAV_SANITIZE}
                                                   -fno-omit-frame-pointer)
  target_link_options(kestrav_compile INTERFACE -fsanitize=${KESTRAV_SANITIZE})
  if(KESTRAV_SANITIZE MATCHES "undefined")
    target_compile_options(kestrav_compile INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()
if(KESTRAV_COVERAGE)
  target_compile_options(kestrav_compile INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kestrav_compile INTERFACE --coverage)
endif()

if(PROJECT_IS_TOP_LEVEL)
  find_program(KESTRAV_CCACHE ccache)
  if(KESTRAV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Precompiled headers need this much tolerance; an object serves every build folder.
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        ${KESTRAV_CCACHE})
  endif()
endif()
