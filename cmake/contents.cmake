# Lists what a wheel is made of, besides the sources in its name: the compiler's own libraries, which
# are linked in whole, and the headers of CPython. The list goes among the wheel's metadata.

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(runtime_version ${CMAKE_CXX_COMPILER_VERSION})
else()
  set(runtime_version NOASSERTION)  # those of whichever GCC stands beside it
endif()
string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)  # SOURCE_DATE_EPOCH, where that is set
configure_file(cmake/contents.spdx.json.in contents/grounding_fit.spdx.json @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/contents/grounding_fit.spdx.json
  DESTINATION ${SKBUILD_METADATA_DIR}/sboms COMPONENT module)
