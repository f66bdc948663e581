# Generated references, built by the `meridian_docs` target (not part of
# `all`):
#   docs/c/html/      the C reference, Doxygen over include/meridian/*.h; any
#                     warning (an undocumented function, parameter or return
#                     value) fails the build
#   docs/python/      the Python reference, pydoc over the package's modules
# Without Doxygen there is no target. `cmake --install` copies whatever was
# built to share/doc/meridian/ (c/, python/), beside the README and docs/.
find_package(Doxygen QUIET)
find_program(MERIDIAN_PYTHON3 NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)

set(MERIDIAN_DOCS_DIR ${CMAKE_CURRENT_BINARY_DIR}/docs)
if(DOXYGEN_FOUND AND MERIDIAN_PYTHON3)
  set(MERIDIAN_DOXYGEN_INPUT "${CMAKE_CURRENT_SOURCE_DIR}/include/meridian")
  set(MERIDIAN_DOXYGEN_OUTPUT "${MERIDIAN_DOCS_DIR}/c")
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/docs/reference/Doxyfile.in
    ${MERIDIAN_DOCS_DIR}/Doxyfile @ONLY)

  # Every module of the package, by its dotted name.
  file(GLOB_RECURSE meridian_python_files RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}/python
    CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/python/meridian/*.py)
  set(meridian_python_modules)
  foreach(file IN LISTS meridian_python_files)
    string(REGEX REPLACE "(/__init__)?\\.py$" "" module "${file}")
    string(REPLACE "/" "." module "${module}")
    list(APPEND meridian_python_modules ${module})
  endforeach()
  list(SORT meridian_python_modules)

  add_custom_target(meridian_docs
    COMMAND ${CMAKE_COMMAND} -E remove_directory ${MERIDIAN_DOXYGEN_OUTPUT}
    COMMAND ${DOXYGEN_EXECUTABLE} ${MERIDIAN_DOCS_DIR}/Doxyfile
    COMMAND ${CMAKE_COMMAND} -E make_directory ${MERIDIAN_DOCS_DIR}/python
    COMMAND ${CMAKE_COMMAND} -E chdir ${MERIDIAN_DOCS_DIR}/python
            ${CMAKE_COMMAND} -E env PYTHONPATH=${CMAKE_CURRENT_SOURCE_DIR}/python PYTHONDONTWRITEBYTECODE=1
            ${MERIDIAN_PYTHON3} -m pydoc -w ${meridian_python_modules}
    COMMAND ${CMAKE_COMMAND} -DPAGES=${MERIDIAN_DOCS_DIR}/python
            -DSOURCE=${CMAKE_CURRENT_SOURCE_DIR}/python
            -P ${CMAKE_CURRENT_SOURCE_DIR}/cmake/pydoc_relative_paths.cmake
    COMMENT "C reference (Doxygen) and Python reference (pydoc) into ${MERIDIAN_DOCS_DIR}"
    VERBATIM)
endif()

# The README with the pages, pictures and manual pages of docs/, the
# generated references when they were built, and the manual page of the
# tool (meridian-batch's is installed with the Python package).
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
# The pages keep their place beside the README, so its links hold.
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.1" PATTERN "reference" EXCLUDE)
install(DIRECTORY ${MERIDIAN_DOCS_DIR}/c/html/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/c OPTIONAL)
install(DIRECTORY ${MERIDIAN_DOCS_DIR}/python/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/python OPTIONAL)
install(FILES docs/man/meridian.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
