# The target orvhost::orvhost is the shared library where there is one, else the static one,
# orvhost::orvhost_static.
include(CMakeFindDependencyMacro)
find_dependency(orvinterpreter)
find_dependency(SQLite3)
include("${CMAKE_CURRENT_LIST_DIR}/orvhostTargets.cmake")
if(NOT TARGET orvhost::orvhost)
    add_library(orvhost::orvhost ALIAS orvhost::orvhost_static)
endif()
