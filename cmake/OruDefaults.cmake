# Language, warnings and sanitizers of every target of this project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_SCAN_FOR_MODULES OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(THREADS_PREFER_PTHREAD_FLAG ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

add_library(oru_warnings INTERFACE)
set(warnings -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wold-style-cast -Wundef)
set(cuda_warnings -Xcompiler=-Wall,-Wextra,-Wno-sign-conversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A constructor's parameter may bear the name of the member that it sets; clang's -Wshadow allows it anyway.
    list(APPEND warnings -Wno-shadow -Wshadow=local)
endif()
if(ORU_WARNINGS_AS_ERRORS)
    list(APPEND warnings -Werror)
    list(PREPEND cuda_warnings -Werror=all-warnings)
endif()
target_compile_options(oru_warnings INTERFACE
    "$<$<COMPILE_LANGUAGE:CXX>:${warnings}>"
    "$<$<COMPILE_LANGUAGE:CUDA>:${cuda_warnings}>")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # At -O3 GCC 12 takes the growth path of an inlined std::vector::insert for an overflow or overread.
    target_compile_options(oru_warnings INTERFACE
        "$<$<COMPILE_LANGUAGE:CXX>:-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-array-bounds;-Wno-restrict>")
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_compile_options(oru_warnings INTERFACE
        "$<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety;-Wthread-safety-beta>")
endif()

if(ORU_SANITIZE)
    add_compile_options(
        "$<$<COMPILE_LANGUAGE:CXX>:-fsanitize=${ORU_SANITIZE};-fno-omit-frame-pointer;-fno-sanitize-recover=all>")
    add_link_options(-fsanitize=${ORU_SANITIZE})
endif()

# One reproducible spelling of source paths in messages and debug information.
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>")
