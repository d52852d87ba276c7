# Compile settings shared by every target of the tree.

# Where ccache is installed, what was compiled before is not compiled again, in any preset.
find_program(MIX_CCACHE ccache)
mark_as_advanced(MIX_CCACHE)
if(MIX_DEVELOPER AND MIX_CCACHE)
    foreach(language C CXX)
        if(NOT DEFINED CMAKE_${language}_COMPILER_LAUNCHER)
            set(CMAKE_${language}_COMPILER_LAUNCHER ccache)
        endif()
    endforeach()
endif()

add_library(mix_settings INTERFACE)
target_compile_options(mix_settings INTERFACE -Wall -Wextra -Wshadow -Wcast-align -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual>)
# Not of instrumented code, where the compiler takes copies of standard algorithms for something they are not.
if(MIX_DEVELOPER AND NOT MIX_SANITIZE)
    target_compile_options(mix_settings INTERFACE -Werror)
endif()
if(MIX_SANITIZE)
    target_compile_options(mix_settings INTERFACE -fsanitize=${MIX_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    target_compile_definitions(mix_settings INTERFACE MIX_SANITIZE)
    target_link_options(mix_settings INTERFACE -fsanitize=${MIX_SANITIZE})
endif()

if(MIX_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
        message(FATAL_ERROR "MIX_FUZZ needs clang; configure with --preset fuzz")
    endif()
    target_compile_options(mix_settings INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(mix_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The public headers and the platform's declarations.
add_library(mix_headers INTERFACE)
target_include_directories(mix_headers INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)

# Code that goes into libmix.so: no exceptions, no type information, no guarded statics, nothing visible
# that is not marked MIX_API.
add_library(mix_core_settings INTERFACE)
target_link_libraries(mix_core_settings INTERFACE mix_settings mix_headers)
target_include_directories(mix_core_settings INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
target_compile_options(mix_core_settings INTERFACE -fvisibility=hidden
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics -fvisibility-inlines-hidden>)

if(MIX_COVERAGE)
    # Threads of one test count in the same places; torn counts come out negative, which gcovr refuses to read.
    target_compile_options(mix_core_settings INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(mix_settings INTERFACE --coverage)
endif()

# mix_objects(FOLDER SOURCE...): the object library mix_FOLDER, one per folder of src/. libmix.so is their sum;
# tests of internals link the object library of the folder they look into.
function(mix_objects folder)
    add_library(mix_${folder} OBJECT ${ARGN})
    target_link_libraries(mix_${folder} PRIVATE mix_core_settings)
    set_property(GLOBAL APPEND PROPERTY MIX_OBJECTS mix_${folder})
endfunction()
