# ORU_GPU_ONLY: the GPU backends with their tests and bench, and nothing that needs more than CMake, a compiler and the
# CUDA toolkit. GoogleTest and Eigen come from their packages, or as sources and headers from ORU_CARRIED:
# ORU_CARRIED/googletest (a CMake project) and ORU_CARRIED/eigen3 (a folder of headers); see scripts/gpu-check.

set(ORU_CARRIED "${PROJECT_SOURCE_DIR}/build/carried" CACHE PATH "Where GoogleTest and Eigen lie without a package")

find_package(Threads REQUIRED)
find_package(Eigen3 3.3 QUIET NO_MODULE)
if(NOT TARGET Eigen3::Eigen)
    add_library(oru_eigen INTERFACE)
    add_library(Eigen3::Eigen ALIAS oru_eigen)
    target_include_directories(oru_eigen SYSTEM INTERFACE "${ORU_CARRIED}/eigen3")
endif()
find_package(GTest QUIET)
if(NOT TARGET GTest::gtest)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory("${ORU_CARRIED}/googletest" "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
    foreach(name IN ITEMS gtest gtest_main gmock)
        if(NOT TARGET GTest::${name})
            add_library(GTest::${name} ALIAS ${name})
        endif()
    endforeach()
endif()
include(OruCuda)

oru_library(utils SOURCES src/utils/system_clock.cpp)
foreach(folder IN ITEMS src/kit src/backends/gpu src/backends/rectifier)
    add_subdirectory(${folder})
endforeach()
enable_testing()
foreach(folder IN ITEMS tests/backends/gpu tests/backends/rectifier bench/gpu)
    add_subdirectory(${folder})
endforeach()
