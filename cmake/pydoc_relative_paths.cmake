# Run after pydoc (cmake -DPAGES=<folder> -DSOURCE=<python folder> -P ...):
# pydoc links every page to its module's source file by absolute path, the
# build machine's. The installed pages have no sources beside them, so the
# link becomes the module's path inside the package, as plain text.
file(GLOB pages "${PAGES}/*.html")
foreach(page IN LISTS pages)
  file(READ "${page}" html)
  string(REGEX REPLACE "<a href=\"file:${SOURCE}/([^\"]*)\">[^<]*</a>" "\\1" html "${html}")
  file(WRITE "${page}" "${html}")
endforeach()
