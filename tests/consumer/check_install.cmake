# Installs the built tree into a scratch prefix, then configures, builds and runs the consumer project
# against it with find_package(qvgeo). Any failing step fails the test.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run_step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "step failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

run_step(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}" --component Unspecified)
run_step(${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
         "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_BUILD_TYPE=Release)
run_step(${CMAKE_COMMAND} --build "${WORK_DIR}/build")
# The installed headers are exactly the public ones, under include/qvgeo/.
foreach(private geomap/calib_internal.h geodb/binary_io.h geobasics/datum_table.h)
  if(EXISTS "${prefix}/include/qvgeo/${private}")
    message(FATAL_ERROR "private header installed: ${private}")
  endif()
endforeach()
if(EXISTS "${prefix}/include/support" OR EXISTS "${prefix}/include/geomap")
  message(FATAL_ERROR "headers installed outside include/qvgeo")
endif()
run_step("${WORK_DIR}/build/consumer" "${prefix}/bin/geotool")
