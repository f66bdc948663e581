# `cmake --install`: the shared libraries (legacy and modern) with their
# headers and the version header,
# the `meridian` tool, the face-landmark provider when it is built, the CMake
# package (find_package(Meridian) -> Meridian::meridian and
# Meridian::meridian_api), pkg-config files
# and the Python package. Included last, when every target exists.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(MERIDIAN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Meridian)
# Debian's python3 searches <prefix>/lib/python3/dist-packages.
set(MERIDIAN_PYTHON_INSTALL_DIR lib/python3/dist-packages CACHE STRING
  "Where the Python package is installed, relative to the prefix")

install(TARGETS meridian meridian_api EXPORT MeridianTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES include/meridian/meridian.h include/meridian/meridian_api.h
  ${MERIDIAN_GENERATED_INCLUDE_DIR}/meridian/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/meridian)

# Programs find the library beside them in <prefix>/lib, wherever the prefix is.
set(MERIDIAN_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
if(TARGET meridian_cli)
  set_target_properties(meridian_cli PROPERTIES INSTALL_RPATH "${MERIDIAN_INSTALL_RPATH}")
  install(TARGETS meridian_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# Face-landmark providers (loaded by name at run time) go beside the library.
if(NOT DEFINED MERIDIAN_PROVIDER_TARGETS)
  set(MERIDIAN_PROVIDER_TARGETS cv_face libcv_face)
endif()
foreach(provider IN LISTS MERIDIAN_PROVIDER_TARGETS)
  if(TARGET ${provider})
    install(TARGETS ${provider}
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

install(EXPORT MeridianTargets NAMESPACE Meridian:: DESTINATION ${MERIDIAN_CMAKE_DIR})
configure_package_config_file(cmake/MeridianConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MeridianConfig.cmake INSTALL_DESTINATION ${MERIDIAN_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/MeridianConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MeridianConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MeridianConfigVersion.cmake DESTINATION ${MERIDIAN_CMAKE_DIR})

# The .pc file locates the prefix from its own directory, so an installed
# tree can be moved.
file(RELATIVE_PATH MERIDIAN_PC_PREFIX_FROM_PCDIR
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/meridian.pc.in ${CMAKE_CURRENT_BINARY_DIR}/meridian.pc @ONLY)
configure_file(cmake/meridian_api.pc.in ${CMAKE_CURRENT_BINARY_DIR}/meridian_api.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/meridian.pc ${CMAKE_CURRENT_BINARY_DIR}/meridian_api.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Python package, told where the library lies relative to itself.
if(NOT WIN32)
  file(RELATIVE_PATH MERIDIAN_PYTHON_TO_LIBDIR
    /prefix/${MERIDIAN_PYTHON_INSTALL_DIR}/meridian /prefix/${CMAKE_INSTALL_LIBDIR})
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/python/_installed.py CONTENT
    "# Written by cmake --install: the library directory, relative to this package.\nLIBRARY_DIR = \"${MERIDIAN_PYTHON_TO_LIBDIR}\"\n")
  install(DIRECTORY python/meridian DESTINATION ${MERIDIAN_PYTHON_INSTALL_DIR}
    FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/python/_installed.py
    DESTINATION ${MERIDIAN_PYTHON_INSTALL_DIR}/meridian)
  # The batch command (python3 -m meridian.batch) under its own name, and
  # its manual page.
  install(PROGRAMS tools/meridian-batch DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES docs/man/meridian-batch.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
include(cmake/MeridianDocs.cmake)
