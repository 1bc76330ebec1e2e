# The installed package: exported targets (MeridL3Tunnel::MeridL3Tunnel,
# ::Platform, ::AsicSwTable, ::AsicSim) with a config and a version file for
# find_package, and a pkg-config file.
include(CMakePackageConfigHelpers)

set(L3TUNNEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/MeridL3Tunnel)
install(EXPORT MeridL3TunnelTargets NAMESPACE MeridL3Tunnel::
        DESTINATION ${L3TUNNEL_CMAKE_DIR} FILE MeridL3TunnelTargets.cmake)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/MeridL3TunnelConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/MeridL3TunnelConfig.cmake
                              INSTALL_DESTINATION ${L3TUNNEL_CMAKE_DIR})
# Before 1.0 a minor version may break the API and the ABI (the SONAME says
# the same), so 0.2 accepts 0.2.x only.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MeridL3TunnelConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MeridL3TunnelConfig.cmake
              ${PROJECT_BINARY_DIR}/MeridL3TunnelConfigVersion.cmake
        DESTINATION ${L3TUNNEL_CMAKE_DIR})

# The prefix is only known at install time (cmake --install --prefix DIR):
# everything else is filled in now, the prefix when the file is installed.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(L3TUNNEL_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
else()
  set(L3TUNNEL_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
if(IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(L3TUNNEL_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
else()
  set(L3TUNNEL_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
set(L3TUNNEL_PC_PREFIX "@L3TUNNEL_PC_PREFIX@")
configure_file(${CMAKE_CURRENT_LIST_DIR}/meridl3tunnel.pc.in
               ${PROJECT_BINARY_DIR}/meridl3tunnel.pc.in @ONLY)
install(CODE "set(L3TUNNEL_PC_DIR \"${PROJECT_BINARY_DIR}\")")
install(CODE [[
  set(L3TUNNEL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  configure_file("${L3TUNNEL_PC_DIR}/meridl3tunnel.pc.in" "${L3TUNNEL_PC_DIR}/meridl3tunnel.pc" @ONLY)
]])
install(FILES ${PROJECT_BINARY_DIR}/meridl3tunnel.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
