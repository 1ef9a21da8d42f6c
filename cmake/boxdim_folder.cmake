# Every folder of the source tree is one target, and its headers are reachable
# as "<folder>/name.h" only from the targets that link it: the target's
# include root in the build tree holds nothing but a link to the folder. A
# layer that includes a header of a layer it does not depend on fails to
# compile.
function(boxdim_expose_folder target folder)
  set(root ${CMAKE_BINARY_DIR}/include/${target})
  get_filename_component(parent ${root}/${folder} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  if(NOT EXISTS ${root}/${folder})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    target_include_directories(${target} INTERFACE ${root})
  else()
    target_include_directories(${target} PUBLIC ${root})
  endif()
endfunction()
