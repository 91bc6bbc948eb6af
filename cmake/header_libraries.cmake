# Libraries that are nothing but headers, which Debian has for the host. The target's compiler is to see these and
# none of the other headers that stand beside them.

set(header_libraries "${CMAKE_BINARY_DIR}/header_libraries")
file(MAKE_DIRECTORY "${header_libraries}")
foreach(folder CLI nlohmann)
  if(NOT EXISTS "/usr/include/${folder}")
    message(FATAL_ERROR "/usr/include/${folder} is missing: the packages are libcli11-dev and nlohmann-json3-dev")
  endif()
  file(CREATE_LINK "/usr/include/${folder}" "${header_libraries}/${folder}" SYMBOLIC)
endforeach()

add_library(corvane_header_libraries INTERFACE)
target_include_directories(corvane_header_libraries SYSTEM INTERFACE "${header_libraries}")
