# The CUDA toolkit, when there is one: sets ORU_CUDA_FOUND, and then the language CUDA and oru::cudart, its runtime as a
# static library with its headers.
# ORU_CUDA=AUTO takes a toolkit that is found, ON demands one, OFF does without. The compiler is looked for on PATH, in
# $CUDACXX, $CUDA_PATH, CUDAToolkit_ROOT and /usr/local/cuda.

set(ORU_CUDA "AUTO" CACHE STRING "GPU path on CUDA: AUTO, ON or OFF")
set_property(CACHE ORU_CUDA PROPERTY STRINGS AUTO ON OFF)
option(ORU_CUDA_ALL_ARCHITECTURES "Machine code for every GPU from compute capability 7.5 to 12.1, not only PTX" OFF)
set(ORU_CUDA_FOUND FALSE)

function(oru_find_cuda)
    if(ORU_CUDA STREQUAL "AUTO" AND (CMAKE_CROSSCOMPILING OR ORU_SANITIZE))
        message(STATUS "ORU: CUDA left out of cross and sanitizer builds; views are drawn on the host")
        return()
    endif()
    if(NOT CMAKE_CUDA_COMPILER AND NOT DEFINED ENV{CUDACXX})
        find_program(ORU_NVCC nvcc
            HINTS "${CUDAToolkit_ROOT}" ENV CUDAToolkit_ROOT ENV CUDA_PATH
            PATHS /usr/local/cuda
            PATH_SUFFIXES bin)
        mark_as_advanced(ORU_NVCC)
        if(ORU_NVCC)
            set(CMAKE_CUDA_COMPILER "${ORU_NVCC}" CACHE FILEPATH "CUDA compiler")
        endif()
    endif()
    include(CheckLanguage)
    check_language(CUDA)
    if(CMAKE_CUDA_COMPILER)
        set(ORU_CUDA_FOUND TRUE PARENT_SCOPE)
    elseif(ORU_CUDA STREQUAL "ON")
        message(FATAL_ERROR "ORU_CUDA is ON and no CUDA compiler was found")
    else()
        message(STATUS "ORU: no CUDA toolkit; views are drawn on the host")
    endif()
endfunction()

if(NOT ORU_CUDA STREQUAL "OFF")
    oru_find_cuda()
endif()
if(ORU_CUDA_FOUND)
    if(ORU_CUDA_ALL_ARCHITECTURES)
        set(CMAKE_CUDA_ARCHITECTURES
            75-real 80-real 86-real 87-real 88-real 89-real 90-real 100-real 103-real 110-real 120-real 121)
    elseif(NOT CMAKE_CUDA_ARCHITECTURES)
        # PTX for whatever comes, translated by the driver when it is first used, and machine code for the target.
        set(CMAKE_CUDA_ARCHITECTURES 75-virtual 87-real)
    endif()
    enable_language(CUDA)
    if(NOT CMAKE_CUDA20_STANDARD_COMPILE_OPTION)
        # CMake 3.25 does not know that nvcc has it.
        set(CMAKE_CUDA20_STANDARD_COMPILE_OPTION "-std=c++20")
        set(CMAKE_CUDA20_EXTENSION_COMPILE_OPTION "-std=c++20")
    endif()
    set(CMAKE_CUDA_STANDARD 20)
    set(CMAKE_CUDA_VISIBILITY_PRESET hidden)
    # By hand: the module of CMake 3.25 fails over parts that CUDA 13 does not have.
    find_library(ORU_CUDART cudart_static HINTS ${CMAKE_CUDA_IMPLICIT_LINK_DIRECTORIES} REQUIRED)
    mark_as_advanced(ORU_CUDART)
    find_package(Threads REQUIRED)
    add_library(oru_cudart INTERFACE)
    add_library(oru::cudart ALIAS oru_cudart)
    target_include_directories(oru_cudart SYSTEM INTERFACE ${CMAKE_CUDA_TOOLKIT_INCLUDE_DIRECTORIES})
    target_link_libraries(oru_cudart INTERFACE "${ORU_CUDART}" Threads::Threads ${CMAKE_DL_LIBS} rt)
    message(STATUS "ORU: CUDA ${CMAKE_CUDA_COMPILER_VERSION}, ${CMAKE_CUDA_ARCHITECTURES}")
endif()
