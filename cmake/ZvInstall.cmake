# What `cmake --install` installs: the libraries, the public headers, a CMake package, a pkg-config file and the documents.
# `--component` chooses one of runtime, development, documentation, playout, which examples/playout adds, and explore,
# which src/explore adds.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS zvbase zvresmgt EXPORT zvresmgtTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
set(zv_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/zvresmgt)
install(EXPORT zvresmgtTargets NAMESPACE Zv:: DESTINATION ${zv_package_folder} COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zvresmgtConfig.cmake.in zvresmgtConfig.cmake
    INSTALL_DESTINATION ${zv_package_folder})
write_basic_package_version_file(zvresmgtConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zvresmgtConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/zvresmgtConfigVersion.cmake
    DESTINATION ${zv_package_folder} COMPONENT development)

# The file finds its prefix by its own place, so that an installed tree can be moved.
file(RELATIVE_PATH zv_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
if(BUILD_SHARED_LIBS)
    set(zv_pc_libraries "-lzvresmgt -lzvbase")
else()
    set(zv_pc_libraries "-Wl,${zv_link_packages} -lzvresmgt -lzvbase -pthread")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/zvresmgt.pc.in zvresmgt.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zvresmgt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)

# The site is there if it was built by `./run docs`.
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
    FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.png)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation
    OPTIONAL)
