# Installation and packaging: the shared libraries with their SONAMEs, the public headers under
# include/ztimage, the ztimage tool, a CMake package (find_package(ZTImage) gives ZTImage::image
# and the platform targets), a pkg-config file, and a Debian package made by `cpack -G DEB`.
include(CMakePackageConfigHelpers)

set(ZT_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZTImage)

# The platform libraries that are part of this build; demosaic, polarization and the GenICam
# library (built when Aravis is found) may be absent.
set(zt_install_targets ztcamera image)
foreach(platform demosaic polarization ztgenicam)
    if(TARGET ${platform})
        list(APPEND zt_install_targets ${platform})
    endif()
endforeach()

# The image library needs the platform libraries beside it; its RUNPATH finds them wherever the
# tree is installed (a program's own RUNPATH does not reach its libraries' dependencies).
set_target_properties(${zt_install_targets} PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS ${zt_install_targets}
    EXPORT ZTImageTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ztimage)

# Public headers of the image library and of each platform library, side by side.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ztimage
    FILES_MATCHING PATTERN "*.h")
foreach(platform camera demosaic polarization genicam)
    if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/platform/${platform}/include)
        install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/${platform}/include/
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ztimage FILES_MATCHING PATTERN "*.h")
    endif()
endforeach()

if(TARGET ztimage)
    # Finds the libraries beside it wherever the tree is installed (a staging prefix too).
    file(RELATIVE_PATH zt_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(ztimage PROPERTIES INSTALL_RPATH "$ORIGIN/${zt_bin_to_lib}")
    install(TARGETS ztimage RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# CMake package. Its targets refer to OpenCV's only when the polarization library, whose
# public header uses cv::Mat, is installed; the package then finds OpenCV with the same module
# the build used.
if(TARGET polarization)
    set(ZT_PACKAGE_NEEDS_OPENCV TRUE)
else()
    set(ZT_PACKAGE_NEEDS_OPENCV FALSE)
endif()
install(EXPORT ZTImageTargets NAMESPACE ZTImage:: DESTINATION ${ZT_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZTImageConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/ZTImageConfig.cmake INSTALL_DESTINATION ${ZT_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZTImageConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/ZTImageConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/ZTImageConfigVersion.cmake
    ${CMAKE_CURRENT_LIST_DIR}/FindZTOpenCV.cmake
    DESTINATION ${ZT_INSTALL_CMAKEDIR})

# pkg-config: ztimage.pc links the image library and the camera library (whose frame handles
# applications use directly). The prefix is worked out from the file's own place, so a tree
# installed with DESTDIR or moved elsewhere still works with PKG_CONFIG_PATH.
file(RELATIVE_PATH zt_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" zt_pc_to_prefix "${zt_pc_to_prefix}")
set(ZT_PC_OPENCV_CFLAGS "")
if(ZT_PACKAGE_NEEDS_OPENCV AND ZTOpenCV_INCLUDE_DIR)
    set(ZT_PC_OPENCV_CFLAGS "-I${ZTOpenCV_INCLUDE_DIR}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/ztimage.pc.in ${CMAKE_CURRENT_BINARY_DIR}/ztimage.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ztimage.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Debian package: `cpack -G DEB` in the build tree. dpkg-shlibdeps derives the dependencies
# from the installed binaries, which gives the Debian OpenCV runtime packages (libopencv-core406
# ...), Aravis's runtime (libaravis-0.8-0) for the GenICam library, and the C and C++ runtimes,
# with the versions this build needs.
set(CPACK_PACKAGE_NAME ztimage)
set(CPACK_PACKAGE_VENDOR "ZTImage developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}: libraries, headers and the ztimage tool")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_INSTALL_DIRECTORY ztimage)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "ZTImage developers <ztimage@example.com>")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The Python module (in /usr/lib/python3/dist-packages) needs the interpreter it was built for
# and NumPy; the C++ libraries do not, so they are recommended rather than required.
if(TARGET ztimage_python)
    set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
        "python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}), python3-numpy")
    string(APPEND CPACK_PACKAGE_DESCRIPTION_SUMMARY " and the Python module")
endif()
# The package's own libraries satisfy the tool's and each other's needs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/image ${CMAKE_BINARY_DIR}/platform/camera
    ${CMAKE_BINARY_DIR}/platform/demosaic ${CMAKE_BINARY_DIR}/platform/polarization
    ${CMAKE_BINARY_DIR}/platform/genicam)
set(CPACK_GENERATOR DEB)
include(CPack)
