# What `cmake --install` writes: the shared library with its headers, its CMake package and
# pkg-config file. The tool installs itself.

if(NOT TARGET oru_koruone)
    return()
endif()

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/oru_koruone")
install(TARGETS oru_koruone EXPORT oru_koruoneTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" NAMELINK_COMPONENT development)
# A component each, so that each can be a package of its own.
foreach(module IN LISTS ORU_MODULES)
    string(REPLACE oru_koruone_ "" component ${module})
    install(TARGETS ${module} LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component})
endforeach()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/oru" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development
    FILES_MATCHING PATTERN "*.hpp")
install(EXPORT oru_koruoneTargets NAMESPACE oru:: DESTINATION "${package_folder}" COMPONENT development)

configure_package_config_file(cmake/oru_koruoneConfig.cmake.in "${PROJECT_BINARY_DIR}/package/oru_koruoneConfig.cmake"
    INSTALL_DESTINATION "${package_folder}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/oru_koruoneConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/package/oru_koruoneConfig.cmake"
    "${PROJECT_BINARY_DIR}/package/oru_koruoneConfigVersion.cmake"
    DESTINATION "${package_folder}" COMPONENT development)

# The way from the folder of the .pc file back to the prefix, so that an installed tree may be moved.
set(pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH ORU_PC_UP "/prefix/${pc_folder}" "/prefix")
configure_file(cmake/oru_koruone.pc.in "${PROJECT_BINARY_DIR}/package/oru_koruone.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/oru_koruone.pc" DESTINATION "${pc_folder}" COMPONENT development)

install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    "${PROJECT_SOURCE_DIR}/docs/licences.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}")
