# What an installed libmix consists of: the library, the headers, the pkg-config file, the CMake package.

install(TARGETS mix mix_headers EXPORT libmix-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT development)
set_target_properties(mix_headers PROPERTIES EXPORT_NAME headers)
target_include_directories(mix_headers INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(DIRECTORY include/libmix DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

file(RELATIVE_PATH MIX_PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" MIX_PREFIX_FROM_PC "${MIX_PREFIX_FROM_PC}")
configure_file(packaging/libmix.pc.in ${CMAKE_BINARY_DIR}/libmix.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/libmix.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/libmix)
install(EXPORT libmix-targets NAMESPACE libmix:: DESTINATION ${package_dir})
configure_package_config_file(packaging/libmix-config.cmake.in ${CMAKE_BINARY_DIR}/libmix-config.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/libmix-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/libmix-config.cmake ${CMAKE_BINARY_DIR}/libmix-config-version.cmake
    DESTINATION ${package_dir})

# Completion for the system's shells.
set(MIX_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "where zsh looks for completions")
foreach(program mixd mixsh mixscan)
    if(TARGET ${program})
        install(FILES packaging/completion/${program}.bash
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program})
        install(FILES packaging/completion/_${program} DESTINATION ${MIX_ZSH_COMPLETIONS})
    endif()
endforeach()
