# GTest::gtest, GTest::gmock and GTest::gtest_main: those of the system or, for a target that it has
# none for, built from the sources that Debian installs.
set(KESTRAV_GTEST_SOURCE /usr/src/googletest CACHE PATH "Sources of GoogleTest")

find_package(GTest QUIET)
if(NOT GTest_FOUND)
  set(INSTALL_GTEST OFF)
  add_subdirectory(${KESTRAV_GTEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
endif()
