# Installation: libraries, headers, tool, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS ktcore kt EXPORT ktTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/kt include/ktbase
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(KT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kt)
install(EXPORT ktTargets NAMESPACE kt:: DESTINATION ${KT_CMAKE_DIR} COMPONENT development)
configure_package_config_file(cmake/ktConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ktConfig.cmake INSTALL_DESTINATION ${KT_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ktConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ktConfig.cmake ${PROJECT_BINARY_DIR}/ktConfigVersion.cmake
  DESTINATION ${KT_CMAKE_DIR} COMPONENT development)

# The kt tool's bash completion, where bash-completion looks for it by name.
install(FILES tools/kt.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME kt COMPONENT tool)

# kt.pc finds the prefix relative to its own folder, so the tree can move.
file(RELATIVE_PATH KT_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
configure_file(cmake/kt.pc.in ${PROJECT_BINARY_DIR}/kt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kt.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# Debian packages: `cpack -G DEB` in the build folder gives the runtime
# libraries, the development files and the tool as three packages. Only for
# libkt as the top-level project: CPack's configuration belongs to whichever
# project embeds it.
if(PROJECT_IS_TOP_LEVEL)
  include(cmake/package.cmake)
endif()
