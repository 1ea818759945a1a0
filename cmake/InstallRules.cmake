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
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/win32/i686-w64-mingw32.cmake"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/nqcore)

    # nq_licence(NAME FILE): the terms of something that is carried along, or whose headers are compiled in.
    function(nq_licence name file)
        install(FILES "${file}" DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/nqcore/licences RENAME "${name}.txt")
    endfunction()
    nq_licence(ACE "${NQCORE_ACE_ROOT}/share/doc/ace/COPYING")
    nq_licence(GCC /usr/share/doc/gcc-mingw-w64-i686-posix-runtime/copyright)
    nq_licence(GPL-3 /usr/share/common-licenses/GPL-3)
    nq_licence(mingw-w64 /usr/share/doc/mingw-w64-common/copyright)
    nq_licence(CLI11 /usr/share/doc/libcli11-dev/copyright)
    nq_licence(nlohmann-json /usr/share/doc/nlohmann-json3-dev/copyright)
endif()

# Views for debuggers. gdb loads NAME-gdb.py by itself with the library whose full name it has: from its own folder of
# such files for those of the system, beside the library for others.
install(FILES "${PROJECT_SOURCE_DIR}/packaging/gdb/nqcore.natvis" DESTINATION ${CMAKE_INSTALL_DATADIR}/nqcore)
if(NOT WIN32)
    set(views_folder ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR})
    if(NQCORE_RELOCATABLE)
        set(views_folder ${CMAKE_INSTALL_LIBDIR})
    endif()
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/gdb/nqcore_gdb.py" DESTINATION ${views_folder}
        RENAME "$<TARGET_FILE_NAME:nqcore>-gdb.py")
endif()
