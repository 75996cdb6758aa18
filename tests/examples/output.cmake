# SPDX-License-Identifier: MIT
# The program succeeds and prints exactly what the file holds.
execute_process(COMMAND "${PROGRAM}" OUTPUT_VARIABLE printed RESULT_VARIABLE result)
file(READ "${EXPECTED}" expected)
if(NOT result STREQUAL "0")
  message(FATAL_ERROR "${PROGRAM} ended with ${result}")
endif()
if(NOT "${printed}" STREQUAL "${expected}")
  message(FATAL_ERROR "printed:\n${printed}expected:\n${expected}")
endif()
