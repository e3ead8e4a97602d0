# What `cmake --install` puts where, and the Debian package.
#
# The library goes where the dynamic linker of i386 looks on a system of several architectures.  What pkg-config and
# CMake read goes to lib/ itself: those of the 64-bit architecture do not look below lib/i386-linux-gnu.
include(CMakePackageConfigHelpers)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/modla)

install(TARGETS modla EXPORT modla LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS modla_console RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/modla.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT modla NAMESPACE modla:: FILE modlaConfig.cmake DESTINATION lib/cmake/modla)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/modlaConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/modlaConfigVersion.cmake DESTINATION lib/cmake/modla)
file(RELATIVE_PATH prefix_from_pc /lib/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/modla.pc.in ${CMAKE_BINARY_DIR}/modla.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/modla.pc DESTINATION lib/pkgconfig)

# The manual: modla(1) holds what the program says of itself, modla(3) what the header says.
set(man ${PROJECT_SOURCE_DIR}/man)
add_custom_command(OUTPUT modla.1.gz DEPENDS modla_console ${man}/modla.1 ${man}/page1.sh
  COMMAND ${man}/page1.sh ${man}/modla.1 $<TARGET_FILE:modla_console> | gzip -9nc > modla.1.gz)
add_custom_command(OUTPUT modla.3.gz DEPENDS ${PROJECT_SOURCE_DIR}/include/modla.h ${man}/page3.awk
  COMMAND awk -f ${man}/page3.awk ${PROJECT_SOURCE_DIR}/include/modla.h | gzip -9nc > modla.3.gz)
add_custom_target(manual ALL DEPENDS modla.1.gz modla.3.gz)
foreach(section 1 3)
  install(FILES ${CMAKE_BINARY_DIR}/modla.${section}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

install(FILES README.md NOTICE DESTINATION ${documents})
install(DIRECTORY docs/ DESTINATION ${documents}/docs)
install(DIRECTORY examples/ DESTINATION ${documents}/examples)

# `cpack` in the build directory: a package of i386, also for 64-bit systems that have that architecture added.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME modla)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The developers of modLA <modla@lists.invalid>" CACHE STRING "Who answers for the package")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
set(CPACK_DEBIAN_PACKAGE_SECTION math)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "exact linear algebra modulo p: library and console")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "A 32-bit library that creates, multiplies, row-reduces, factors and solves
matrices of residues modulo p in the storage of a computer-algebra host, and
modla, a console that is such a host, with a language of its own and files in
Matrix Market and SMS format.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/shlibs ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/files.cmake)
include(CPack)
