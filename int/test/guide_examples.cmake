# The programs of the guide: each writes what stands in the file beside it, on both targets.
file(GLOB guide_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/guide/*.cpp")
foreach(source IN LISTS guide_sources)
    get_filename_component(example "${source}" NAME_WE)
    set(name guide_${example})
    add_executable(${name} "${source}")
    nq_own_code(${name})
    target_link_libraries(${name} PRIVATE nqcore Threads::Threads)
    add_test(NAME ${name} COMMAND ${CMAKE_COMMAND}
        "-DPROGRAM=$<TARGET_FILE:${name}>" "-DEMULATOR=$<TARGET_PROPERTY:${name},CROSSCOMPILING_EMULATOR>"
        "-DEXPECTED=${PROJECT_SOURCE_DIR}/examples/guide/${example}.txt" "-DRESULT=test-results/${name}.json"
        -P "${CMAKE_CURRENT_LIST_DIR}/run_guide_example.cmake"
        WORKING_DIRECTORY "${PROJECT_BINARY_DIR}")
    set_tests_properties(${name} PROPERTIES TIMEOUT 120 LABELS gtest)
endforeach()
