# Checks of the tree itself: as targets (format, format-fix, tidy, layers) and, where they are quick, as tests.

option(ORU_CHECK_HEADERS "Compile every header alone" ${ORU_BUILD_TESTS})

add_custom_target(format COMMAND "${PROJECT_SOURCE_DIR}/scripts/format" USES_TERMINAL)
add_custom_target(format-fix COMMAND "${PROJECT_SOURCE_DIR}/scripts/format" --fix USES_TERMINAL)
add_custom_target(tidy COMMAND "${PROJECT_SOURCE_DIR}/scripts/tidy" "${PROJECT_BINARY_DIR}" USES_TERMINAL)
add_custom_target(layers COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-layers" "${PROJECT_SOURCE_DIR}" USES_TERMINAL)

# oru_check_headers(name FOLDER... [DEPS lib...]): compiles each header of the folders as a source of its own.
function(oru_check_headers name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "FOLDERS;DEPS")
    list(TRANSFORM ARG_FOLDERS PREPEND "${PROJECT_SOURCE_DIR}/")
    list(TRANSFORM ARG_FOLDERS APPEND "/*.hpp")
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}" ${ARG_FOLDERS})
    list(FILTER headers EXCLUDE REGEX "/interop/")
    set(sources "")
    foreach(header IN LISTS headers)
        string(REGEX REPLACE "^(include|src)/" "" spelled "${header}")
        string(MAKE_C_IDENTIFIER "${header}" unit)
        set(source "${PROJECT_BINARY_DIR}/header_check/${unit}.cpp")
        file(CONFIGURE OUTPUT "${source}" CONTENT "#include \"@spelled@\"\n#include \"@spelled@\"\n" @ONLY)
        list(APPEND sources "${source}")
    endforeach()
    if(sources)
        add_library(${name} OBJECT ${sources})
        target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/src")
        target_compile_options(${name} PRIVATE -O0 -g0)
        target_link_libraries(${name} PRIVATE oru::headers oru_warnings ${ARG_DEPS})
    endif()
endfunction()

if(ORU_CHECK_HEADERS)
    oru_check_headers(header_check_public FOLDERS include/oru)
    oru_check_headers(header_check_seam
        FOLDERS include/utils include/tables include/logging include/oru_input include/collaborators include/calibration
                include/oru_koru
        DEPS Eigen3::Eigen fmt::fmt)
    set(deps Eigen3::Eigen fmt::fmt PkgConfig::FFMPEG PkgConfig::SRT CURL::libcurl hwy::hwy Threads::Threads)
    if(TARGET spdlog::spdlog)
        list(APPEND deps spdlog::spdlog)
    endif()
    if(TARGET CUDA::toolkit)
        list(APPEND deps CUDA::toolkit)
    endif()
    oru_check_headers(header_check_private FOLDERS src DEPS ${deps})
    if(TARGET header_check_private)
        target_include_directories(header_check_private SYSTEM PRIVATE "${SIMPLEINI_INCLUDE_DIR}")
    endif()
endif()

if(NOT ORU_BUILD_TESTS)
    return()
endif()

# Tests that run the tool need it whatever label is built.
if(TARGET koruone)
    foreach(label IN ITEMS flow backend slow)
        add_dependencies(tests_${label} koruone)
    endforeach()
endif()

function(oru_check_test name)
    add_test(NAME ${name} COMMAND ${ARGN})
    set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 120)
endfunction()

oru_check_test(layers "${PROJECT_SOURCE_DIR}/scripts/check-layers" "${PROJECT_SOURCE_DIR}")
oru_check_test(readme "${PROJECT_SOURCE_DIR}/tests/checks/readme_test.sh" "${PROJECT_SOURCE_DIR}")
oru_check_test(layers_self_test
    "${PROJECT_SOURCE_DIR}/tests/checks/layers_test.sh" "${PROJECT_SOURCE_DIR}/scripts/check-layers")
oru_check_test(archives_self_test
    "${PROJECT_SOURCE_DIR}/tests/checks/archives_test.sh" "${PROJECT_SOURCE_DIR}/scripts/check-archives"
    "${CMAKE_CXX_COMPILER}")

# oru_archives(result folder...): the static archives that the folders make.
function(oru_archives result)
    set(archives "")
    foreach(folder IN LISTS ARGN)
        get_property(targets DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}" PROPERTY BUILDSYSTEM_TARGETS)
        foreach(target IN LISTS targets)
            get_target_property(type ${target} TYPE)
            if(type STREQUAL "STATIC_LIBRARY")
                list(APPEND archives "$<TARGET_FILE:${target}>")
            endif()
        endforeach()
    endforeach()
    set(${result} "${archives}" PARENT_SCOPE)
endfunction()

# The core sees no backend, and no backend sees the core or another backend, in the archives as well.
file(GLOB kinds RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/src/backends/*")
foreach(folder IN ITEMS src/oru_koruone LISTS kinds)
    if(NOT IS_DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}")
        continue()
    endif()
    set(other_folders src/oru_koruone ${kinds})
    list(FILTER other_folders EXCLUDE REGEX "^${folder}$|\\.txt$|\\.md$")
    oru_archives(own ${folder})
    oru_archives(others ${other_folders})
    get_filename_component(kind "${folder}" NAME)
    if(others)
        foreach(archive IN LISTS own)
            string(REGEX REPLACE "[^A-Za-z0-9_]|TARGET_FILE" "" archive_name "${archive}")
            oru_check_test(archive_${archive_name} "${PROJECT_SOURCE_DIR}/scripts/check-archives" ${archive} ${others})
        endforeach()
    endif()
endforeach()
