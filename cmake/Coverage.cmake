# Counts by gcov in what tests/coverage reports on. All else, the tests too, is built as for users, so
# that a ccache that has the preset release has most of it already.
set(counted root_tools)
foreach(folder services diagnostics helpers app)
  get_property(targets DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} PROPERTY BUILDSYSTEM_TARGETS)
  list(APPEND counted ${targets})
endforeach()
foreach(target ${counted})
  target_compile_options(${target} PRIVATE -O0 --coverage)
  # Kept for tests/support/Counts.h.
  target_link_options(${target} PUBLIC --coverage LINKER:--undefined=__gcov_dump)
endforeach()
