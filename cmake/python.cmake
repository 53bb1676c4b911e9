# Writes the script that starts CPython with the module, and sets GROUNDING_FIT_PYTHON to its path.

set(environment ${GROUNDING_FIT_ENVIRONMENT})
if(GROUNDING_FIT_SANITIZE)
  # CPython is not sanitized itself, so the runtime has to be there before the module.
  foreach(library libasan.so libstdc++.so)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${library}
      OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND preloaded ${file})
  endforeach()
  list(JOIN preloaded ":" preloaded)
  list(APPEND environment LD_PRELOAD=${preloaded})
endif()
list(JOIN environment " " environment)

# The shell takes everything between single quotes as it is.
function(quote name value)
  string(REPLACE "'" "'\\''" value "${value}")
  set(${name} "'${value}'" PARENT_SCOPE)
endfunction()

quote(module "${PROJECT_BINARY_DIR}")
quote(root "${PROJECT_SOURCE_DIR}")
quote(python "${Python3_EXECUTABLE}")
set(GROUNDING_FIT_PYTHON ${PROJECT_BINARY_DIR}/python)
configure_file(cmake/python.in ${GROUNDING_FIT_PYTHON} @ONLY
  FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
