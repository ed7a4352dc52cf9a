# Finds the three OpenCV 4 modules the project uses: core, imgproc and imgcodecs.
#
# Uses OpenCV's own package file when the system has one; Debian ships none for the
# per-module -dev packages, so otherwise the headers and libraries are found directly.
# Defines the imported targets opencv_core, opencv_imgproc and opencv_imgcodecs.

find_package(OpenCV 4 QUIET CONFIG COMPONENTS core imgproc imgcodecs)
if(OpenCV_FOUND)
    set(ZTOpenCV_FOUND TRUE)
    set(ZTOpenCV_VERSION ${OpenCV_VERSION})
    return()
endif()

find_path(ZTOpenCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4)
set(_zt_cv_libs)
foreach(_m core imgproc imgcodecs)
    find_library(ZTOpenCV_${_m}_LIBRARY NAMES opencv_${_m})
    list(APPEND _zt_cv_libs ZTOpenCV_${_m}_LIBRARY)
endforeach()

if(ZTOpenCV_INCLUDE_DIR AND EXISTS ${ZTOpenCV_INCLUDE_DIR}/opencv2/core/version.hpp)
    file(STRINGS ${ZTOpenCV_INCLUDE_DIR}/opencv2/core/version.hpp _zt_cv_ver
         REGEX "#define CV_VERSION_(MAJOR|MINOR|REVISION) ")
    foreach(_part MAJOR MINOR REVISION)
        string(REGEX REPLACE ".*#define CV_VERSION_${_part} +([0-9]+).*" "\\1" _v_${_part} "${_zt_cv_ver}")
    endforeach()
    set(ZTOpenCV_VERSION ${_v_MAJOR}.${_v_MINOR}.${_v_REVISION})
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ZTOpenCV
    REQUIRED_VARS ZTOpenCV_INCLUDE_DIR ${_zt_cv_libs}
    VERSION_VAR ZTOpenCV_VERSION)

if(ZTOpenCV_FOUND)
    foreach(_m core imgproc imgcodecs)
        if(NOT TARGET opencv_${_m})
            add_library(opencv_${_m} UNKNOWN IMPORTED)
            set_target_properties(opencv_${_m} PROPERTIES
                IMPORTED_LOCATION ${ZTOpenCV_${_m}_LIBRARY}
                INTERFACE_INCLUDE_DIRECTORIES ${ZTOpenCV_INCLUDE_DIR})
        endif()
    endforeach()
    set_property(TARGET opencv_imgproc APPEND PROPERTY INTERFACE_LINK_LIBRARIES opencv_core)
    set_property(TARGET opencv_imgcodecs APPEND PROPERTY INTERFACE_LINK_LIBRARIES opencv_imgproc opencv_core)
endif()
mark_as_advanced(ZTOpenCV_INCLUDE_DIR ZTOpenCV_core_LIBRARY ZTOpenCV_imgproc_LIBRARY ZTOpenCV_imgcodecs_LIBRARY)
