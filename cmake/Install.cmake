# What `cmake --install` lays down: the library and its surroundings, the headers that a host needs, the programs, a
# pkg-config file and a CMake package.

include(CMakePackageConfigHelpers)

set(VEXL3_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/vexl3)

# A host calls what the library exports and what the agent's accessors return, and fills the state that the library is
# given. These headers, and all that they
# include, are the public ones; their names are unique, so that one folder holds them.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS platform/*.h l3agent/*.h)
foreach(header IN LISTS headers)
  get_filename_component(name ${header} NAME)
  set(home_${name} ${header})
  file(STRINGS ${header} exported REGEX "VEXL3_EXPORT")
  if(exported OR name MATCHES "^State" OR name STREQUAL QuorlEntityManager.h OR name STREQUAL MirelFib.h
     OR name STREQUAL VexCommonSmData.h OR name STREQUAL VexGrpcChannel.h OR name STREQUAL GantActivity.h
     OR name STREQUAL VexL3AgentSmParts.h)
    list(APPEND pending ${header})
  endif()
endforeach()
while(pending)
  list(POP_FRONT pending header)
  if(header IN_LIST public_headers)
    continue()
  endif()
  list(APPEND public_headers ${header})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  file(STRINGS ${header} includes REGEX "^#include \"")
  foreach(include IN LISTS includes)
    string(REGEX REPLACE "^#include \"(.*)\".*" "\\1" name ${include})
    if(NOT home_${name})
      message(FATAL_ERROR "${header} is a public header and includes ${name}, which is not installed")
    endif()
    list(APPEND pending ${home_${name}})
  endforeach()
endwhile()
install(FILES ${public_headers} DESTINATION ${VEXL3_INCLUDEDIR})

# Each finds the shared objects from where it lies, wherever the whole is moved to.
file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(VexL3Agent VexPlatform PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS VexL3Agent VexPlatform EXPORT VexL3Agent LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(program vexdp vexl3d vexctl)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_libraries}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

target_include_directories(VexL3Agent INTERFACE $<INSTALL_INTERFACE:${VEXL3_INCLUDEDIR}>)
target_compile_features(VexL3Agent INTERFACE cxx_std_20)
# As vexl3agent.pc has it.
target_compile_options(VexL3Agent INTERFACE $<INSTALL_INTERFACE:-fno-sanitize=vptr>)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VexL3Agent)
install(EXPORT VexL3Agent NAMESPACE VexL3Agent:: FILE VexL3AgentTargets.cmake DESTINATION ${package_dir})
configure_package_config_file(cmake/VexL3AgentConfig.cmake.in ${CMAKE_BINARY_DIR}/VexL3AgentConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/VexL3AgentConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/VexL3AgentConfig.cmake ${CMAKE_BINARY_DIR}/VexL3AgentConfigVersion.cmake
        DESTINATION ${package_dir})

# The prefix is found from the file's own place: `cmake --install --prefix` names one that is not known here.
file(RELATIVE_PATH VEXL3_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/vexl3agent.pc.in ${CMAKE_BINARY_DIR}/vexl3agent.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vexl3agent.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The units and their users, where systemd finds them below the prefix, with the router that they start; pages of the
# manual, where they can be made; completion; the examples; the references.
foreach(unit vexl3d vexdp)
  configure_file(packaging/${unit}.service.in ${CMAKE_BINARY_DIR}/${unit}.service @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${unit}.service DESTINATION lib/systemd/system)
endforeach()
install(FILES packaging/vexl3.sysusers DESTINATION lib/sysusers.d RENAME vexl3.conf)
foreach(program vexctl vexl3d vexdp)
  install(FILES packaging/bash-completion/vexl3 DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME ${program})
endforeach()

find_program(VEXL3_LOWDOWN lowdown)
# vexl3_page(document name section summary)
function(vexl3_page document name section summary)
  set(page ${CMAKE_BINARY_DIR}/man/${name}.${section})
  add_custom_command(OUTPUT ${page} DEPENDS ${CMAKE_SOURCE_DIR}/docs/${document} ${CMAKE_SOURCE_DIR}/tools/man
                     COMMAND ${CMAKE_SOURCE_DIR}/tools/man ${CMAKE_SOURCE_DIR}/docs/${document} ${name} ${section}
                             ${summary} > ${page} VERBATIM)
  set(pages ${pages} ${page} PARENT_SCOPE)
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endfunction()
if(VEXL3_LOWDOWN)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man)
  vexl3_page(vexctl.md vexctl 1 "ask and change a running vexl3d")
  vexl3_page(description.md vexl3-router.yaml 5 "description of a router for vexl3d")
  vexl3_page(vexl3d.md vexl3d 8 "daemon of the layer-3 agent")
  vexl3_page(vexdp.md vexdp 8 "data plane of a software forwarding engine")
  add_custom_target(man ALL DEPENDS ${pages})
endif()
# Below /etc for a prefix of /usr, as the unit looks for it. One that was edited stays.
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  set(config_dir ${CMAKE_INSTALL_FULL_SYSCONFDIR}/vexl3)
else()
  set(config_dir \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SYSCONFDIR}/vexl3)
endif()
install(CODE "
  if(NOT EXISTS \"\$ENV{DESTDIR}${config_dir}/router.yaml\")
    file(INSTALL DESTINATION \"${config_dir}\" TYPE FILE FILES \"${CMAKE_CURRENT_SOURCE_DIR}/packaging/router.yaml\")
  endif()")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES docs/description.md docs/hosting.md docs/ipsec.md docs/vexctl.md docs/vexdp.md docs/vexl3d.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
