# Installs the build tree into PREFIX and runs the plugin test against the installed plugin PREFIX/PLUGIN.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${PREFIX}" --component Unspecified
                OUTPUT_QUIET RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed (${rc})")
endif()
if(NOT EXISTS "${PREFIX}/${PLUGIN}")
  message(FATAL_ERROR "the Designer plugin is not installed as ${PLUGIN}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen --unset=LD_LIBRARY_PATH
                        "QVGEO_DESIGNER_PLUGIN=${PREFIX}/${PLUGIN}" "${TEST}"
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the installed plugin failed its test (${rc}):\n${out}\n${err}")
endif()
