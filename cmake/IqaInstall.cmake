# Installs libiqa.so, the service stand-in and the exported headers, with a CMake package
# (find_package(iqa) -> iqa::iqa) and a pkg-config file (iqa.pc).
include(CMakePackageConfigHelpers)

set(IQA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/iqa)

install(TARGETS iqa mcs EXPORT iqaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES
  include/IqaExport.h include/IqaProcessNode.h include/IqaProcessData.h include/IqaCompSim.h
  include/IqaTaskManager.h include/IqaUpLoad.h include/IqaAnomDetect.h
  platform/include/McsService.h platform/include/McsRecordingService.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/iqa)
install(EXPORT iqaTargets NAMESPACE iqa:: DESTINATION ${IQA_CMAKE_DIR})

configure_package_config_file(cmake/iqaConfig.cmake.in ${PROJECT_BINARY_DIR}/iqaConfig.cmake
  INSTALL_DESTINATION ${IQA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/iqaConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/iqaConfig.cmake ${PROJECT_BINARY_DIR}/iqaConfigVersion.cmake
  DESTINATION ${IQA_CMAKE_DIR})

# The prefix is found relative to the .pc file, so an install with --prefix stays usable.
file(RELATIVE_PATH IQA_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/iqa.pc.in ${PROJECT_BINARY_DIR}/iqa.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/iqa.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
