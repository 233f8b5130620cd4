# `cpack -G DEB` in the build folder makes a Debian package of the install:
# libraries, headers, CMake and pkg-config files and the resource bundle,
# under /usr, with its Qt dependencies worked out from the libraries.
set(CPACK_PACKAGE_NAME "libqxdcameracontroller-dev")
set(CPACK_PACKAGE_VENDOR "QXDCameraController developers")
set(CPACK_PACKAGE_CONTACT "QXDCameraController developers <qxdcameracontroller@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Camera capture screen for photographing documents, for Qt 6 applications")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The development files need Qt's too, as the headers include Qt's.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qt6-base-dev (>= ${QXD_QT_MINIMUM}), qt6-multimedia-dev (>= ${QXD_QT_MINIMUM})")
# The faces the screens' fonts are drawn with (Latin and Japanese titles).
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-roboto-unhinted, fonts-ipafont-gothic")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "A camera engine, a full-screen capture screen with overlay feedback and a
 manual edit screen, embedded in a Qt Widgets or Qt GUI application. Built
 with CMake's find_package(QXDCameraController) or pkg-config.")
include(CPack)
