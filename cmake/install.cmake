# What `cmake --install` lays down: library, headers, command, and how other projects find them.
include(CMakePackageConfigHelpers)

# tavo::tavo are the headers, as most hosts load the library; tavo::avx512g and tavo::portable are the libraries for those
# that link one.
set_target_properties(tavo_headers PROPERTIES EXPORT_NAME tavo)
install(TARGETS tavo_headers EXPORT tavoTargets)
set(export_name_native avx512g)
set(export_name_portable portable)
foreach(form ${tavo_forms})
    set_target_properties(${tavo_library_${form}} PROPERTIES EXPORT_NAME ${export_name_${form}})
    target_link_libraries(${tavo_library_${form}} INTERFACE tavo_headers)
    install(TARGETS ${tavo_library_${form}} EXPORT tavoTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endforeach()
install(EXPORT tavoTargets NAMESPACE tavo:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavo)
list(TRANSFORM tavo_public_headers PREPEND frame/ OUTPUT_VARIABLE installed_headers)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${installed_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavo)

set(tavo_library ${CMAKE_INSTALL_LIBDIR}/libtavo_avx512g.so.${PROJECT_VERSION_MAJOR})
set(tavo_portable_library ${CMAKE_INSTALL_LIBDIR}/libtavo_portable.so.${PROJECT_VERSION_MAJOR})
configure_package_config_file(cmake/tavoConfig.cmake.in ${PROJECT_BINARY_DIR}/cmake/tavoConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavo PATH_VARS tavo_library tavo_portable_library)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/tavoConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/tavoConfig.cmake ${PROJECT_BINARY_DIR}/cmake/tavoConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavo)

# Found from the file's own place, so that the tree can be moved.
file(RELATIVE_PATH tavo_prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" tavo_prefix_from_pc "${tavo_prefix_from_pc}")
list(GET tavo_forms 0 form)
set(tavo_linked_library ${tavo_library_${form}})
configure_file(cmake/tavo.pc.in ${PROJECT_BINARY_DIR}/cmake/tavo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/tavo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# It finds the library by its own place, see host/link/loader.h.
if(TARGET tavo)
    install(TARGETS tavo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
# Beside the library, where it looks first.
if(TARGET tavo_sqlite)
    install(TARGETS tavo_sqlite LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
