# What `make install` gives a C or C++ user besides the libraries and
# headers: a CMake package (find_package(qzimages CONFIG)) with the imported
# targets qzimages::qzimages and qzimages::qzhost, and pkg-config files.
include(CMakePackageConfigHelpers)

set(QZ_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qzimages)

install(TARGETS qzimages qzhost EXPORT qzimagesTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
install(DIRECTORY include/qzimages DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library)
install(DIRECTORY host/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library)
install(EXPORT qzimagesTargets NAMESPACE qzimages:: DESTINATION ${QZ_CMAKE_DIR} COMPONENT library)

configure_package_config_file(cmake/qzimagesConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/qzimagesConfig.cmake
                              INSTALL_DESTINATION ${QZ_CMAKE_DIR})
# The shared libraries' ABI changes with the major version (their SONAME).
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qzimagesConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qzimagesConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/qzimagesConfigVersion.cmake
        DESTINATION ${QZ_CMAKE_DIR} COMPONENT library)

# The .pc files name their prefix relative to their own folder, so that an
# installed tree still works after it is moved or unpacked elsewhere
# (cmake --install --prefix, DESTDIR, a copied prefix).
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(QZ_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  set(QZ_PC_PREFIX "\${pcfiledir}/..")
  string(REGEX MATCHALL "[^/]+" qz_libdir_parts "${CMAKE_INSTALL_LIBDIR}")
  foreach(part ${qz_libdir_parts})
    string(APPEND QZ_PC_PREFIX "/..")
  endforeach()
endif()
foreach(pc qzimages qzhost)
  configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT library)
endforeach()
