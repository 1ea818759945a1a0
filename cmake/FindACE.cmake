# Finds ACE and defines ACE::ACE. NQCORE_ACE_ROOT, when set, is the only place looked at.
# Used by the build and, installed beside the package files, by users of the headers that hold ACE types.
if(NQCORE_ACE_ROOT)
    set(_ace_where PATHS "${NQCORE_ACE_ROOT}" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
endif()
find_path(ACE_INCLUDE_DIR ace/ACE.h PATH_SUFFIXES include ${_ace_where})
find_library(ACE_LIBRARY ACE PATH_SUFFIXES lib ${_ace_where})
if(WIN32)
    find_file(ACE_DLL ACE.dll PATH_SUFFIXES bin ${_ace_where})
    mark_as_advanced(ACE_DLL)
endif()
mark_as_advanced(ACE_INCLUDE_DIR ACE_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ACE REQUIRED_VARS ACE_LIBRARY ACE_INCLUDE_DIR)

if(ACE_FOUND AND NOT TARGET ACE::ACE)
    add_library(ACE::ACE SHARED IMPORTED)
    set_target_properties(ACE::ACE PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${ACE_INCLUDE_DIR}")
    if(WIN32)
        set_target_properties(ACE::ACE PROPERTIES
            IMPORTED_IMPLIB "${ACE_LIBRARY}" IMPORTED_LOCATION "${ACE_DLL}"
            INTERFACE_COMPILE_DEFINITIONS "ACE_HAS_DLL=1;_WIN32_WINNT=0x0601;WINVER=0x0601"
            # ACE's inline functions call these themselves.
            INTERFACE_LINK_LIBRARIES "ws2_32;mswsock;iphlpapi;netapi32")
    else()
        set_target_properties(ACE::ACE PROPERTIES IMPORTED_LOCATION "${ACE_LIBRARY}")
    endif()
endif()
