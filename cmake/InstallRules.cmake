# What `cmake --install` puts under the prefix. Components: Unspecified is all of it.
if(NOT TARGET nqcore)
    return()
endif()
include(CMakePackageConfigHelpers)
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/nqcore")

set(libraries nqcore)
if(TARGET nqmoduleregistry)
    list(APPEND libraries nqmoduleregistry)
endif()
install(TARGETS ${libraries} EXPORT nqcore
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET nq)
    install(TARGETS nq RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(DIRECTORY "${PROJECT_SOURCE_DIR}/pub/inc/core/" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(FILES "${PROJECT_BINARY_DIR}/include/nqcore/version.h" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nqcore)

install(EXPORT nqcore NAMESPACE nqcore:: FILE nqcoreTargets.cmake DESTINATION ${package_folder})
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/nqcoreConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/package/nqcoreConfig.cmake" INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/nqcoreConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
configure_file("${PROJECT_SOURCE_DIR}/cmake/nqcore.pc.in" "${PROJECT_BINARY_DIR}/package/nqcore.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/package/nqcoreConfig.cmake"
    "${PROJECT_BINARY_DIR}/package/nqcoreConfigVersion.cmake"
    "${PROJECT_SOURCE_DIR}/cmake/FindACE.cmake" DESTINATION ${package_folder})
install(FILES "${PROJECT_BINARY_DIR}/package/nqcore.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(WIN32)
    # Nothing on a Windows machine brings these along: the compiler's runtime, ACE, and ACE's headers for the users of
    # the headers that hold its types.
    install(FILES ${NQCORE_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES "${ACE_LIBRARY}" DESTINATION ${CMAKE_INSTALL_LIBDIR})
    install(DIRECTORY "${ACE_INCLUDE_DIR}/ace" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(DIRECTORY "${NQCORE_ACE_ROOT}/share/doc/ace" DESTINATION ${CMAKE_INSTALL_DATADIR}/doc)
    # The terms of what is carried along: of the compiler's runtime with the exception that lets it be, and of winpthreads.
    foreach(carried gcc-mingw-w64-base mingw-w64-common)
        install(FILES "/usr/share/doc/${carried}/copyright" DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${carried} OPTIONAL)
    endforeach()
    foreach(licence GPL-3 LGPL-2.1)
        install(FILES "/usr/share/common-licenses/${licence}" DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/licences OPTIONAL)
    endforeach()
endif()

# Views for debuggers. gdb loads NAME-gdb.py by itself with the library whose full name it has.
install(FILES "${PROJECT_SOURCE_DIR}/packaging/gdb/nqcore.natvis" DESTINATION ${CMAKE_INSTALL_DATADIR}/nqcore)
if(NOT WIN32)
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/gdb/nqcore_gdb.py" DESTINATION
        ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR}
        RENAME "$<TARGET_FILE_NAME:nqcore>-gdb.py")
endif()
