# kestrav_room(<name> <folder>...): the sources of one room as the object library kestrav_<name>.
function(kestrav_room name)
  set(sources)
  foreach(folder IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cc)
    list(APPEND sources ${found})
  endforeach()
  add_library(kestrav_${name} OBJECT ${sources})
  set_target_properties(
    kestrav_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                               VISIBILITY_INLINES_HIDDEN ON CXX_EXTENSIONS OFF)
  target_include_directories(kestrav_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(kestrav_${name} PRIVATE kestrav_compile)
  # Nobody replaces single functions of the library: it calls and inlines its own without a detour.
  target_compile_options(kestrav_${name} PRIVATE -fno-semantic-interposition)
endfunction()
