# The reference: `make docs`, doxygen over the headers that the package installs, and its pages. The system's own
# declarations, which other platforms get from platform/portable/, are not the library's to describe.

set(VARNEL_DOCS_INPUT ${headers} ${simulator_headers} docs/alerts.md docs/windows.md docs/api)
if(TARGET varnel_c)
  list(APPEND VARNEL_DOCS_INPUT docs/c-interface.md c/varnel-c.h simulator/dropin/varnel-c-simulator.h)
endif()
list(FILTER VARNEL_DOCS_INPUT EXCLUDE REGEX "^platform/portable/")
list(TRANSFORM VARNEL_DOCS_INPUT PREPEND ${PROJECT_SOURCE_DIR}/)
list(JOIN VARNEL_DOCS_INPUT " " VARNEL_DOCS_INPUT)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
add_custom_target(docs
  COMMAND doxygen ${PROJECT_BINARY_DIR}/docs/Doxyfile
  COMMENT "The reference: ${PROJECT_BINARY_DIR}/docs/html/index.html"
  VERBATIM)
