# Run with -P: installs BUILD into PREFIX, then checks the files EXPECTED (separated by |) and PROGRAM below it.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}" COMMAND_ERROR_IS_FATAL ANY
  OUTPUT_QUIET)

string(REPLACE "|" ";" EXPECTED "${EXPECTED}")
foreach(file IN LISTS EXPECTED)
  if(NOT EXISTS "${PREFIX}/${file}")
    message(SEND_ERROR "${file} was not installed")
  endif()
endforeach()
# A copy elsewhere must work: nothing may depend on the build folder or on the prefix.
set(moved "${PREFIX}-moved")
file(REMOVE_RECURSE "${moved}")
file(RENAME "${PREFIX}" "${moved}")
execute_process(COMMAND ${RUNNER} "${moved}/${PROGRAM}" --usage RESULT_VARIABLE result OUTPUT_VARIABLE output)
file(RENAME "${moved}" "${PREFIX}")
if(NOT result EQUAL 22)
  message(SEND_ERROR "the installed program answered ${result} to --usage instead of 22")
endif()
if(NOT output MATCHES "OUTPUT PATH")
  message(SEND_ERROR "the installed program did not show its usage: ${output}")
endif()
