# Installation: the two libraries (versioned, finding each other through
# their RUNPATH), the public headers and the platform headers they include
# under one include root, the resource bundle, a CMake package with the
# QXD:: targets and a pkg-config file. Packaging.cmake makes a .deb of it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QXD_QT_MINIMUM 6.4)
set(QXD_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/QXDCameraController)
set(QXD_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QXDCameraController)

set_target_properties(QXDPlatform PROPERTIES
    EXPORT_NAME Platform
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
set_target_properties(QXDCameraController PROPERTIES
    EXPORT_NAME CameraController
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
# Installed libraries find their sibling through the run path; the linker
# writes it as RUNPATH, which LD_LIBRARY_PATH can still override.
foreach(target IN ITEMS QXDPlatform QXDCameraController)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
    target_link_options(${target} PRIVATE "LINKER:--enable-new-dtags")
endforeach()

install(TARGETS QXDPlatform QXDCameraController
    EXPORT QXDCameraControllerTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${QXD_INSTALL_INCLUDEDIR})

# The public headers at the include root, the platform headers below it in
# platform/, where the public ones include them from.
install(DIRECTORY include/ DESTINATION ${QXD_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(DIRECTORY platform/ DESTINATION ${QXD_INSTALL_INCLUDEDIR}/platform
        FILES_MATCHING PATTERN "*.h")

install(EXPORT QXDCameraControllerTargets
    NAMESPACE QXD::
    DESTINATION ${QXD_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/QXDCameraControllerConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/QXDCameraControllerConfig.cmake
    INSTALL_DESTINATION ${QXD_INSTALL_CMAKEDIR}
    PATH_VARS QXD_INSTALL_INCLUDEDIR QXD_BUNDLE_INSTALL_DIR)
write_basic_package_version_file(
    ${CMAKE_CURRENT_BINARY_DIR}/QXDCameraControllerConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/QXDCameraControllerConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/QXDCameraControllerConfigVersion.cmake
    DESTINATION ${QXD_INSTALL_CMAKEDIR})

# The .pc file locates the prefix from its own folder, so it stays right
# for any `cmake --install --prefix`.
file(RELATIVE_PATH QXD_PC_TO_PREFIX
    /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" QXD_PC_TO_PREFIX "${QXD_PC_TO_PREFIX}")
configure_file(cmake/QXDCameraController.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/QXDCameraController.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QXDCameraController.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
