# Installs the build in BUILD_DIR into WORK_DIR/prefix, checks that no internal
# header came with it, then builds and runs the outside project against it.
# Arguments: SOURCE_DIR, BUILD_DIR, WORK_DIR, CXX, FLAGS (the build's sanitizers).
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
foreach(internal plugin/shim/HostShim.h core/ByteCursor.h compound/CompoundDocument.h)
  if(EXISTS ${WORK_DIR}/prefix/include/quillhaven/${internal})
    message(FATAL_ERROR "internal header installed: ${internal}")
  endif()
endforeach()
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/package/consumer -B ${WORK_DIR}/consumer
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Debug
    "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer/consumer)
