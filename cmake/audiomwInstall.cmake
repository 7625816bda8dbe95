# Package files of the installed library: pkg-config modules and the CMake package
# "audiomw". The library's component "audiomw" carries audiomw.pc and the package; each
# platform stand-in (components "host", "tinyalsa", "voice") carries its own module and
# target file, so that a board build installs only "audiomw" and links the board's own.
include(CMakePackageConfigHelpers)

set(AUDIOMW_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/audiomw)
set(AUDIOMW_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# The .pc files name their prefix relative to their own folder, so an installed tree
# works wherever it is installed or moved (cmake --install --prefix).
file(RELATIVE_PATH AUDIOMW_PC_TO_PREFIX /${AUDIOMW_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" AUDIOMW_PC_TO_PREFIX "${AUDIOMW_PC_TO_PREFIX}")

function(audiomw_install_pc module component)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/pkgconfig/${module}.pc.in ${PROJECT_BINARY_DIR}/pkgconfig/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${module}.pc DESTINATION ${AUDIOMW_PKGCONFIG_DIR} COMPONENT ${component})
endfunction()

audiomw_install_pc(audiomw audiomw)
audiomw_install_pc(audiomw-host host)
audiomw_install_pc(tinyalsa tinyalsa)
audiomw_install_pc(audiomw-voice voice)

install(EXPORT audiomwTargets NAMESPACE audiomw:: DESTINATION ${AUDIOMW_CMAKE_DIR} COMPONENT audiomw)
foreach(part host tinyalsa voice)
  install(EXPORT audiomw-${part}Targets NAMESPACE audiomw:: DESTINATION ${AUDIOMW_CMAKE_DIR} COMPONENT ${part})
endforeach()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/audiomwConfig.cmake.in
  ${PROJECT_BINARY_DIR}/cmake/audiomwConfig.cmake INSTALL_DESTINATION ${AUDIOMW_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/audiomwConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/audiomwConfig.cmake ${PROJECT_BINARY_DIR}/cmake/audiomwConfigVersion.cmake
  DESTINATION ${AUDIOMW_CMAKE_DIR} COMPONENT audiomw)
