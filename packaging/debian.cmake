# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0

# Debian packages, one for each component. Configure with CMAKE_INSTALL_PREFIX=/usr, as the preset "packages" does.
set(VQD_DEB_REVISION 1 CACHE STRING "Revision of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "VQD_API contributors <vqd-api@example.org>" CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL runtime development tools python)
if(TARGET vqd-ros)
  list(APPEND CPACK_COMPONENTS_ALL ros)
endif()
if(TARGET gstvqd)
  list(APPEND CPACK_COMPONENTS_ALL gstreamer)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64) # cmake/arm64.cmake builds for it
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VQD_DEB_REVISION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # it is the first line of each component's description
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(version ${PROJECT_VERSION}-${VQD_DEB_REVISION})

# From this file dpkg-shlibdeps takes the dependency of a package that uses the library. It is a symbols file, because a
# shlibs file needs a SONAME with a number.
set(symbols ${PROJECT_SOURCE_DIR}/packaging/abi/libVQD_API.symbols)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${symbols})
file(STRINGS ${symbols} rows)
list(TRANSFORM rows REPLACE "^([^ ]+) .*" " \\1@Base ${PROJECT_VERSION}")
list(JOIN rows "\n" rows)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/symbols "libVQD_API.so libvqd-api #MINVER#\n${rows}\n")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvqd-api)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers ${CMAKE_CURRENT_BINARY_DIR}/debian/symbols)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "USB time-of-flight depth cameras, library
libVQD_API lists the cameras, configures them and delivers amplitude and
depth images of 320 x 240 pixels, undistorted and corrected.
.
This package contains the library, and udev rules that let the user who is
logged in and members of the group plugdev open the cameras.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvqd-api-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvqd-api (= ${version})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "USB time-of-flight depth cameras, development files
libVQD_API lists the cameras, configures them and delivers amplitude and
depth images of 320 x 240 pixels, undistorted and corrected.
.
This package holds the headers, the CMake and pkg-config packages, the manual
pages of the interfaces, example programs, and the static library vqd_client,
by which programs take frames from workers of the package vqd-tools.")

# The virtual camera needs umockdev's preload library.
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vqd-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libvqd-api (= ${version}), umockdev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "bash-completion, python3-vqd, vqd-ros")
if(TARGET vqd_serve)
  set(scripts postinst prerm postrm)
  list(TRANSFORM scripts PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/debian/tools/)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles ${scripts})
endif()
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "USB time-of-flight depth cameras, command-line tool
vqd lists the cameras, grabs pictures and point clouds, changes settings,
saves and restores calibration, finds out why a camera does not work, and
runs any libusb program with virtual cameras plugged in. vqd serve shows the
cameras in the browser, and its service, which is not enabled, does so from
the start of the machine on.")

# Python is the same on every architecture, and loads the library by its name.
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-vqd)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.9), python3-numpy, libvqd-api (>= ${version})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "vqd-tools, python3-opencv")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-zstandard)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/python/postinst ${CMAKE_CURRENT_SOURCE_DIR}/debian/python/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "USB time-of-flight depth cameras, for Python
A camera is an iterator of frames, whose images are numpy arrays, with its
settings as attributes, points in metres, and failures as exceptions.
.
Cameras are in the same process, or behind workers of the package vqd-tools,
which also has the virtual cameras for tests.
.
vqd-calibrate calibrates cameras from chessboards, for which it needs OpenCV,
and from flat walls.")

set(CPACK_DEBIAN_ROS_PACKAGE_NAME vqd-ros)
set(CPACK_DEBIAN_ROS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_ROS_PACKAGE_DEPENDS "vqd-tools (= ${version})")
set(CPACK_COMPONENT_ROS_DESCRIPTION "USB time-of-flight depth cameras, ROS 2 topics
vqd-ros publishes depth and amplitude images, point clouds, lenses and poses
of cameras as ROS 2 topics over DDS. ROS itself is not needed. The command
\"vqd publish\" of the package vqd-tools starts it.")

# The source reaches cameras by the sockets of workers alone, which may be those of a container.
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-vqd)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_RECOMMENDS vqd-tools)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SUGGESTS gstreamer1.0-tools)
set(CPACK_COMPONENT_GSTREAMER_DESCRIPTION "USB time-of-flight depth cameras, for GStreamer
The element vqdsrc gives depth in millimetres, or amplitude, as 16-bit gray
images with the time at which they were taken.
.
It takes the frames from workers of the package vqd-tools, so that a pipeline
shares a camera with other programs.")

include(CPack)

# Every Debian package must contain its copyright, licence and changelog. Only packages get these files.
find_program(GZIP gzip)
if(GZIP)
  execute_process(COMMAND ${GZIP} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog
    OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS debian/changelog)
  foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    install(FILES debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
endif()
