# Builds and runs the outside project in tests/package/consumer. MODE install:
# installs the build in BUILD_DIR into WORK_DIR/prefix, checks that no internal
# header came with it, and builds against that; MODE subdirectory: builds the
# project with this source tree added as a subdirectory.
# Arguments: MODE, SOURCE_DIR, BUILD_DIR, WORK_DIR, CXX, FLAGS (the build's
# sanitizers), BUILD_TYPE.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
if(MODE STREQUAL "install")
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
  file(GLOB_RECURSE installed RELATIVE ${WORK_DIR}/prefix/include ${WORK_DIR}/prefix/include/*)
  file(GLOB public RELATIVE ${SOURCE_DIR}/include ${SOURCE_DIR}/include/quillhaven/*.h)
  list(SORT installed)
  list(SORT public)
  if(NOT installed STREQUAL public)
    message(FATAL_ERROR "installed headers differ from include/quillhaven/: ${installed}")
  endif()
  set(where -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix)
else()
  # The library is compiled again: without optimisation, which is quickest.
  set(where -DQUILLHAVEN_SOURCE_DIR=${SOURCE_DIR})
  set(BUILD_TYPE "")
endif()
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/package/consumer -B ${WORK_DIR}/consumer ${where}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer --parallel 2)
run(${WORK_DIR}/consumer/consumer)
