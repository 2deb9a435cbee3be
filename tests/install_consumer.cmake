# Installs the built library into WORK_DIR/prefix, configures and builds the
# example consumer against it, and runs it.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
foreach(required include/torva/torva.h include/torva/foundation/double_wrapper.h share/torva/stacks/sky130A.json)
  if(NOT EXISTS ${prefix}/${required})
    message(FATAL_ERROR "not installed: ${required}")
  endif()
endforeach()
set(flags "")
if(SANITIZE)
  set(flags "-fsanitize=${SANITIZE}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/consumer -B ${WORK_DIR}/build
    -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}"
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "configuring the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "building the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out MATCHES "torva consumer")
  message(FATAL_ERROR "the consumer failed: ${rc} ${out}")
endif()
message(STATUS "consumer ran: ${out}")

# The Python package, when it was built: imported from the prefix alone, it
# finds the installed library and reads a layout.
if(PYTHON_SITE)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=${prefix}/${PYTHON_SITE}
      ${PYTHON} -c "import torva, sys; l = torva.read_layout(sys.argv[1]); print('torva from', torva.__file__, len(l.nets), 'nets')"
      ${SOURCE_DIR}/examples/bus.cap3d
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "torva from ${prefix}/.* 4 nets")
    message(FATAL_ERROR "the installed Python package failed: ${rc} ${out} ${err}")
  endif()
  message(STATUS "${out}")
endif()
