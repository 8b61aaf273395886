# The shared library oru::koruone, made of the archives: everything of the facade, the calibration files and the kit,
# and what they need.
# Programs of this tree link the archives and never this library as well, so that each singleton is there once.

if(NOT TARGET oru_compose OR TARGET oru_koruone)
    return()
endif()

add_library(oru_koruone SHARED $<TARGET_OBJECTS:oru_compose> $<TARGET_OBJECTS:oru_calibration> $<TARGET_OBJECTS:oru_kit>)
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
target_link_libraries(oru_koruone PRIVATE oru::compose oru::calibration oru::kit)
target_link_options(oru_koruone PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map")
if(NOT ORU_SANITIZE)
    target_link_options(oru_koruone PRIVATE LINKER:--no-undefined LINKER:--as-needed)
endif()
