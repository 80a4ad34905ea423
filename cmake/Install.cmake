# What leaves the build: the names that the shared libraries show, and what `cmake --install` puts where.
include(CMakePackageConfigHelpers)

set(zv_libraries ZVHttpBase ZVBase lumbase)

# Hidden visibility does not reach instances of the standard library's templates; the version script does.
if(UNIX AND NOT APPLE)
  foreach(library IN LISTS zv_libraries)
    target_link_options(${library} PRIVATE LINKER:--version-script=${CMAKE_CURRENT_LIST_DIR}/exports.map)
    set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/exports.map)
  endforeach()
endif()

if(MINGW)
  # A list of the exported names beside each import library, for linkers that make their own from it.
  foreach(library IN LISTS zv_libraries)
    set(def ${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${library}.def)
    target_link_options(${library} PRIVATE LINKER:--output-def,${def})
    install(FILES ${def} DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endforeach()
endif()

install(TARGETS ${zv_libraries} EXPORT ZVHttpBaseTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET zvhttp)
  install(TARGETS zvhttp RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

file(GLOB zv_public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${zv_public_headers} ${PROJECT_SOURCE_DIR}/platform/ZVBase.h ${PROJECT_SOURCE_DIR}/platform/LumLog.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# find_package(ZVHttpBase)
set(zv_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZVHttpBase)
install(EXPORT ZVHttpBaseTargets NAMESPACE ZVHttpBase:: DESTINATION ${zv_package_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZVHttpBaseConfig.cmake.in ${PROJECT_BINARY_DIR}/ZVHttpBaseConfig.cmake
                              INSTALL_DESTINATION ${zv_package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZVHttpBaseConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZVHttpBaseConfig.cmake ${PROJECT_BINARY_DIR}/ZVHttpBaseConfigVersion.cmake
        DESTINATION ${zv_package_dir})

# pkg-config zvhttpbase. The prefix is found from the file's own place, so that an installed tree can be moved.
file(RELATIVE_PATH zv_prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" zv_prefix_from_pc "${zv_prefix_from_pc}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/zvhttpbase.pc.in ${PROJECT_BINARY_DIR}/zvhttpbase.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zvhttpbase.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# A package that is unpacked where it is used: the Windows build as a zip.
if(WIN32)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION .)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_PACKAGE_FILE_NAME ZVHttpBase-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR}-windows)
  set(CPACK_VERBATIM_VARIABLES ON)
  include(CPack)
endif()
