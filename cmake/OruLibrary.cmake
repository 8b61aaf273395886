# oru_library(name SOURCES a.cpp ... [DEPS oru::x ...] [PRIVATE_DEPS lib ...])
#   A static archive oru_<name>, used as oru::<name>; includes are written from include/ or from src/.
# oru_test(name LABEL unit|flow|backend|slow [REALTIME] SOURCES ... DEPS ... [ARGS ...])
#   A GoogleTest program, run as a whole under its label; the target tests_<label> builds all of one label.
#   REALTIME: it runs on the real clocks, and bears a busy machine: its bounds are generous, and it asserts what was
#   delivered and why the rest was not rather than how long it took. It has the label realtime as well.
#   A slow test runs as long as ORU_SOAK_SECONDS says, and at full length without it; CI sets 20.
# oru_fuzz(name SOURCES ... DEPS ... [SEEDS folder] [ARGS ...])
#   A libFuzzer program over one parser of outside bytes (preset fuzz); its test runs ORU_FUZZ_SECONDS, 20 by default,
#   from the seed ORU_FUZZ_SEED: 1 by default, so that a change is judged by the inputs of the one before; 0 for new ones.

add_library(oru_headers INTERFACE)
add_library(oru::headers ALIAS oru_headers)
target_include_directories(oru_headers INTERFACE "${PROJECT_SOURCE_DIR}/include")

function(oru_library name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS")
    add_library(oru_${name} STATIC ${ARG_SOURCES})
    add_library(oru::${name} ALIAS oru_${name})
    target_include_directories(oru_${name} PRIVATE "${PROJECT_SOURCE_DIR}/src")
    target_link_libraries(oru_${name}
        PUBLIC oru::headers ${ARG_DEPS}
        PRIVATE $<BUILD_INTERFACE:oru_warnings> ${ARG_PRIVATE_DEPS})
endfunction()

function(oru_test name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "REALTIME" "LABEL;TIMEOUT" "SOURCES;DEPS;ARGS")
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    if(CMAKE_CROSSCOMPILING)
        math(EXPR ARG_TIMEOUT "10 * ${ARG_TIMEOUT}")  # emulated
    endif()
    set(labels ${ARG_LABEL})
    if(ARG_REALTIME)
        list(APPEND labels realtime)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE oru_warnings ${ARG_DEPS} GTest::gmock GTest::gtest_main)
    add_test(NAME ${name} COMMAND ${name} ${ARG_ARGS})
    set_tests_properties(${name} PROPERTIES LABELS "${labels}" TIMEOUT ${ARG_TIMEOUT})
    # Camera locks of its own, so that programs of a parallel run do not take the virtual cameras from each other.
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/locks/${name}")
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "KORU_VIRTUAL_BUS_LOCKS=${CMAKE_BINARY_DIR}/locks/${name}")
    add_dependencies(tests_${ARG_LABEL} ${name})
endfunction()

foreach(label IN ITEMS unit flow backend slow)
    add_custom_target(tests_${label})
endforeach()

function(oru_fuzz name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "SEEDS" "SOURCES;DEPS;ARGS")
    set(corpus "${CMAKE_CURRENT_BINARY_DIR}/corpus/${name}")
    file(MAKE_DIRECTORY "${corpus}")
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE oru_warnings ${ARG_DEPS})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_test(NAME ${name}
        COMMAND sh -c "exec \"$0\" -max_total_time=\"\${ORU_FUZZ_SECONDS:-20}\" -seed=\"\${ORU_FUZZ_SEED:-1}\" \"$@\"" $<TARGET_FILE:${name}>
                -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 ${ARG_ARGS} "${corpus}" ${ARG_SEEDS})
    set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT 1200)
endfunction()
