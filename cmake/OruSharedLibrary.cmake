# The shared library oru::koruone, made of the archives: everything of the facade and the kit, of what the modules
# take from below, and what they need.
# The tests link the archives instead, and never this library as well, so that each singleton is there once.

if(NOT TARGET oru_compose_light OR TARGET oru_koruone)
    return()
endif()

add_library(oru_koruone SHARED $<TARGET_OBJECTS:oru_compose_light> $<TARGET_OBJECTS:oru_kit> $<TARGET_OBJECTS:oru_calibration>
    $<TARGET_OBJECTS:oru_utils>)
add_library(oru::koruone ALIAS oru_koruone)
# Before version 1 every minor version may break the binary interface, so it is part of the soname.
set_target_properties(oru_koruone PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    EXPORT_NAME koruone
    LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/exports.map")
target_compile_features(oru_koruone PUBLIC cxx_std_20)
target_include_directories(oru_koruone PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
target_link_libraries(oru_koruone PRIVATE oru::compose_light oru::kit oru::calibration oru::utils)
target_link_options(oru_koruone PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map")
if(NOT ORU_SANITIZE)
    target_link_options(oru_koruone PRIVATE LINKER:--no-undefined LINKER:--as-needed)
endif()

# oru_koruone_module(name ARCHIVES target... LIBRARIES lib...): a module, beside the library, which loads it from there.
# It holds its own archives alone and takes all that lies below them from the library: the log must not be there twice.
function(oru_koruone_module name)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "ARCHIVES;LIBRARIES")
    set(target oru_koruone_${name})
    add_library(${target} MODULE $<TARGET_OBJECTS:oru_module_${name}>)
    set_target_properties(${target} PROPERTIES
        LINKER_LANGUAGE CXX
        PREFIX lib
        SUFFIX ".so.${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}"
        LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}"
        INSTALL_RPATH "$ORIGIN"
        LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/module_exports.map")
    foreach(archive IN LISTS ARG_ARCHIVES)
        add_dependencies(${target} ${archive})
        target_link_libraries(${target} PRIVATE $<TARGET_FILE:${archive}>)
    endforeach()
    target_link_libraries(${target} PRIVATE oru_koruone ${ARG_LIBRARIES})
    target_link_options(${target} PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/module_exports.map")
    if(NOT ORU_SANITIZE)
        target_link_options(${target} PRIVATE LINKER:--no-undefined LINKER:--as-needed)
    endif()
    set(ORU_MODULES ${ORU_MODULES} ${target} PARENT_SCOPE)
endfunction()

oru_koruone_module(stream ARCHIVES oru_stream oru_coding
    LIBRARIES PkgConfig::SRT PkgConfig::FFMPEG PkgConfig::SWSCALE fmt::fmt Threads::Threads)
oru_koruone_module(recording ARCHIVES oru_rlx oru_coding
    LIBRARIES PkgConfig::FFMPEG PkgConfig::SWSCALE fmt::fmt Threads::Threads)
oru_koruone_module(calibration ARCHIVES oru_calibration_download LIBRARIES CURL::libcurl)
oru_koruone_module(footage ARCHIVES oru_footage_decoder oru_coding LIBRARIES PkgConfig::FFMPEG PkgConfig::SWSCALE)
add_custom_target(modules DEPENDS ${ORU_MODULES})
