# What `cmake --install` puts down: both libraries, the public headers, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

install(TARGETS zvbase zvresmgt EXPORT zvresmgtTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(zv_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zvresmgt)
install(EXPORT zvresmgtTargets NAMESPACE Zv:: DESTINATION ${zv_package_folder})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zvresmgtConfig.cmake.in zvresmgtConfig.cmake
    INSTALL_DESTINATION ${zv_package_folder})
write_basic_package_version_file(zvresmgtConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zvresmgtConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/zvresmgtConfigVersion.cmake
    DESTINATION ${zv_package_folder})

# The file finds its prefix by its own place, so that an installed tree can be moved.
file(RELATIVE_PATH zv_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/zvresmgt.pc.in zvresmgt.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zvresmgt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
