# Writes what the library says about itself into generated/module_info_values.h, which one small source includes. The
# time of the build is kept as long as nothing else changes, so that configuring anew rebuilds nothing.
set(NQCORE_BUILD_NAME "${PROJECT_NAME}-${PROJECT_VERSION}" CACHE STRING "Name of this build, for its module information")
set(NQCORE_BUILD_NUMBER "0" CACHE STRING "Number of this build, for its module information")
cmake_host_system_information(RESULT machine QUERY HOSTNAME)
set(NQCORE_BUILD_MACHINE "${machine}" CACHE STRING "Machine of this build, for its module information")

# Only the project's own repository: an unpacked release inside another one has no commit.
set(changelist)
if(EXISTS "${PROJECT_SOURCE_DIR}/.git")
    find_package(Git QUIET)
    if(GIT_FOUND)
        execute_process(COMMAND "${GIT_EXECUTABLE}" rev-parse --short=12 HEAD WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
            OUTPUT_VARIABLE changelist OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
        execute_process(COMMAND "${GIT_EXECUTABLE}" rev-parse --git-path logs/HEAD WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
            OUTPUT_VARIABLE head_log OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
        get_filename_component(head_log "${head_log}" ABSOLUTE BASE_DIR "${PROJECT_SOURCE_DIR}")
        if(EXISTS "${head_log}")    # another commit configures anew
            set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${head_log}")
        endif()
    endif()
endif()
if(NOT changelist)
    set(changelist unknown)
endif()

if(WIN32)
    set(file_name nqcore.dll)
else()
    set(file_name libnqcore.so)
endif()
set(version "${PROJECT_VERSION}")

set(identity "${file_name}|${version}|${NQCORE_BUILD_MACHINE}|${NQCORE_BUILD_NAME}|${changelist}|${NQCORE_BUILD_NUMBER}")
set(identity "${identity}|$ENV{SOURCE_DATE_EPOCH}")
if(NOT identity STREQUAL "${NQCORE_BUILD_IDENTITY}")
    string(TIMESTAMP now "%Y-%m-%d %H:%M" UTC)    # SOURCE_DATE_EPOCH's, when that is set
    set(NQCORE_BUILD_TIMESTAMP "${now}" CACHE INTERNAL "Time of this build, UTC")
    set(NQCORE_BUILD_IDENTITY "${identity}" CACHE INTERNAL "What that time belongs to")
endif()
string(MD5 build_id "${identity}|${NQCORE_BUILD_TIMESTAMP}")

set(module_info_items)
function(nq_module_info_item name value)
    set(escapes "&" "&amp;" "<" "&lt;" ">" "&gt;" "\\" "\\\\" "\"" "\\\"")
    while(escapes)
        list(POP_FRONT escapes character escape)
        string(REPLACE "${character}" "${escape}" value "${value}")
    endwhile()
    string(APPEND module_info_items "    \"    <Item name=\\\"${name}\\\">${value}</Item>\\n\" \\\n")
    set(module_info_items "${module_info_items}" PARENT_SCOPE)
endfunction()
nq_module_info_item(CompanyName "The nqcore developers")
nq_module_info_item(FileVersion "${version}")
nq_module_info_item(InternalName nqcore)
nq_module_info_item(OriginalFilename "${file_name}")
nq_module_info_item(LegalCopyright "Copyright (c) the nqcore developers")
nq_module_info_item(KAVOBuildMachine "${NQCORE_BUILD_MACHINE}")
nq_module_info_item(KAVOBuildName "${NQCORE_BUILD_NAME}")
nq_module_info_item(KAVOBuildChangelist "${changelist}")
nq_module_info_item(KAVOBuildNum "${NQCORE_BUILD_NUMBER}")
nq_module_info_item(KAVOBuildTimestamp "${NQCORE_BUILD_TIMESTAMP}")
nq_module_info_item(KAVOGCCBuildId "${build_id}")

configure_file("${CMAKE_CURRENT_LIST_DIR}/module_info_values.h.in"
    "${PROJECT_BINARY_DIR}/generated/module_info_values.h" @ONLY)
