# What an integrator gets: the plug-in, the platform's library and headers, pkg-config and CMake files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ROUTING_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/p4runtime-routing)
set(ROUTING_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/p4runtime/plugins)

install(TARGETS platform EXPORT P4RuntimeRoutingTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${ROUTING_INCLUDE_DIR})
set_target_properties(platform PROPERTIES EXPORT_NAME platform)
install(TARGETS P4RuntimeRoutingVane LIBRARY DESTINATION ${ROUTING_PLUGIN_DIR})
# The plug-in is found beside the platform's library wherever both are put.
set_target_properties(P4RuntimeRoutingVane PROPERTIES INSTALL_RPATH "$ORIGIN/../..")

foreach(room Vane routing-types src-includes P4RuntimePlugin platform)
  install(DIRECTORY ${room} DESTINATION ${ROUTING_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h")
endforeach()

foreach(program p4rt-agent shoalctl vanectl p4rt-client routing-demo)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    set_target_properties(${program} PROPERTIES
      INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN/../${ROUTING_PLUGIN_DIR}")
  endif()
endforeach()
# The protocols' generated code, for the programs that speak them.
if(TARGET proto)
  install(TARGETS proto LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
endif()

# Manual pages and shell completion.
get_property(tools_with_pages GLOBAL PROPERTY ROUTING_TOOLS_WITH_PAGES)
foreach(tool ${tools_with_pages})
  set(pages ${CMAKE_BINARY_DIR}/pages)
  install(FILES ${pages}/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${pages}/${tool}.bash RENAME ${tool}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${pages}/_${tool} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endforeach()

# Relative to the file itself, so that the tree may be installed, or moved, anywhere.
file(RELATIVE_PATH ROUTING_PC_TO_PREFIX /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
configure_file(cmake/p4runtime-routing.pc.in p4runtime-routing.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/p4runtime-routing.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(ROUTING_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/P4RuntimeRouting)
install(EXPORT P4RuntimeRoutingTargets NAMESPACE P4RuntimeRouting:: DESTINATION ${ROUTING_CMAKE_DIR})
configure_package_config_file(cmake/P4RuntimeRoutingConfig.cmake.in
  P4RuntimeRoutingConfig.cmake INSTALL_DESTINATION ${ROUTING_CMAKE_DIR}
  PATH_VARS ROUTING_PLUGIN_DIR)
write_basic_package_version_file(P4RuntimeRoutingConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/P4RuntimeRoutingConfig.cmake
  ${CMAKE_BINARY_DIR}/P4RuntimeRoutingConfigVersion.cmake DESTINATION ${ROUTING_CMAKE_DIR})
