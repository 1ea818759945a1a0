# win32: puts the DLLs that every program needs beside the programs, at configure time.
# Exceptions cross DLLs only when every module shares one compiler runtime, so it is never linked statically.
set(NQCORE_RUNTIME_DLLS)
set(_runtime_names libgcc_s_dw2-1.dll libstdc++-6.dll libwinpthread-1.dll)
set(_runtime_sources "${ACE_DLL}")
foreach(_name IN LISTS _runtime_names)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${_name}
        OUTPUT_VARIABLE _path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT EXISTS "${_path}")
        message(FATAL_ERROR "the compiler does not know where ${_name} is")
    endif()
    list(APPEND _runtime_sources "${_path}")
endforeach()

file(MAKE_DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
foreach(_source IN LISTS _runtime_sources)
    get_filename_component(_name "${_source}" NAME)
    set(_copy "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${_name}")
    if("${_source}" IS_NEWER_THAN "${_copy}")
        # Stripped: libstdc++-6.dll falls from 21 MB to 2, and each program loads it.
        execute_process(COMMAND ${CMAKE_STRIP} -o "${_copy}" "${_source}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
    list(APPEND NQCORE_RUNTIME_DLLS "${_copy}")
endforeach()
