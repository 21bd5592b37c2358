# How a folder becomes a target. Its include directory is the folder itself, and its link list is the layering: an
# include that the links do not allow is not found.

add_library(vexl3_flags INTERFACE)
target_compile_options(vexl3_flags INTERFACE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual
                                             -Wimplicit-fallthrough)
# An assertion names its file within the tree, wherever that lies.
target_compile_options(vexl3_flags INTERFACE -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(VEXL3_WERROR)
  target_compile_options(vexl3_flags INTERFACE -Werror)
endif()
# Without vptr: it compares type descriptions, and the library shows the host those of none but its interface.
if(VEXL3_SANITIZE)
  target_compile_options(vexl3_flags INTERFACE -fsanitize=${VEXL3_SANITIZE} -fno-sanitize=vptr -fno-omit-frame-pointer
                                               -fno-sanitize-recover=all)
  target_link_options(vexl3_flags INTERFACE -fsanitize=${VEXL3_SANITIZE})
endif()
# libprotobuf is not built with the thread sanitizer, and its headers lay maps out differently under it.
if(VEXL3_SANITIZE MATCHES thread)
  target_compile_options(vexl3_flags INTERFACE -U__SANITIZE_THREAD__)
endif()

find_program(VEXL3_CCACHE ccache)
if(VEXL3_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VEXL3_CCACHE})
endif()
find_program(VEXL3_MOLD mold)
if(VEXL3_MOLD)
  add_link_options(-fuse-ld=mold)
endif()

# vexl3_folder(name SOURCES a.cpp ... LINKS target ... [PRIVATE_LINKS target ...])
function(vexl3_folder name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  add_library(${name} OBJECT ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_LINKS} PRIVATE vexl3_flags ${arg_PRIVATE_LINKS})
endfunction()
