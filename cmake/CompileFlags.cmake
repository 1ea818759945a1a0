# The flags of everything written here, as two interface libraries:
#   nqcore_code_flags   what changes code (debug information, floating point, sanitizers); other people's code that is
#                       built in this tree gets it through CMAKE_CXX_FLAGS instead, where it must
#   nqcore_flags        the above plus warnings as errors and hidden visibility: for our own code only
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2")
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2")

add_library(nqcore_code_flags INTERFACE)
target_compile_options(nqcore_code_flags INTERFACE
    -fno-omit-frame-pointer   # stack traces walk frame pointers
    -ffp-contract=off         # no fused operations: floating results are the same on both targets
    "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")   # __FILE__ names no folder of the machine that built
if(WIN32)
    # -gdwarf-4: the newest form that the debug-help library reads.
    target_compile_options(nqcore_code_flags INTERFACE -gdwarf-4)
    target_compile_definitions(nqcore_code_flags INTERFACE _WIN32_WINNT=0x0601 WINVER=0x0601)
elseif(NQCORE_SANITIZE)
    target_compile_options(nqcore_code_flags INTERFACE -g1)   # lines for the reports; full information takes long
else()
    target_compile_options(nqcore_code_flags INTERFACE -g)
endif()

# Sanitizers have to see the whole process, so they go to other people's code too.
if(NQCORE_SANITIZE)
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1")
    add_compile_options(-fsanitize=${NQCORE_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${NQCORE_SANITIZE})
endif()

# Counts of lines and branches: nothing is optimised away or joined, and threads do not lose counts.
if(NQCORE_COVERAGE)
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O0")
    target_compile_options(nqcore_code_flags INTERFACE --coverage -fprofile-update=atomic)
    add_link_options(--coverage -Wl,--exclude-libs,libgcov.a)    # each module keeps its own
    add_library(nqcore_coverage_exit SHARED "${CMAKE_CURRENT_LIST_DIR}/coverage/exit.cpp")
    add_library(nqcore_coverage_module OBJECT "${CMAKE_CURRENT_LIST_DIR}/coverage/module.cpp")
    set_target_properties(nqcore_coverage_module PROPERTIES POSITION_INDEPENDENT_CODE ON)
    link_libraries(nqcore_coverage_module nqcore_coverage_exit)
endif()

add_library(nqcore_flags INTERFACE)
target_link_libraries(nqcore_flags INTERFACE nqcore_code_flags)
target_compile_options(nqcore_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# Sanitizers and counters make compilers warn of what they themselves introduce.
if(NOT NQCORE_SANITIZE AND NOT NQCORE_COVERAGE)
    target_compile_options(nqcore_flags INTERFACE -Werror)
endif()

# nq_own_code(TARGET): our flags; nothing is exported but what says so.
function(nq_own_code target)
    target_link_libraries(${target} PRIVATE nqcore_flags)
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
