# Compares a built library with its ABI baseline in abi/ (abidw's XML, xz-compressed, named after
# the library's SONAME) and fails on a change abidiff calls incompatible: a function or variable of
# the released SONAME removed, or changed in a way its callers would notice. Compatible changes
# (additions) are printed and pass. A new SONAME comes with a new baseline (scripts/abi-baseline).
# Run by ctest: cmake -DLIBRARY=... -DBASELINE=... -DWORK_DIR=... "-DHEADERS=dir;..." -P AbiCheck.cmake
foreach(variable LIBRARY BASELINE WORK_DIR HEADERS)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "AbiCheck.cmake needs -D${variable}=...")
  endif()
endforeach()
if(NOT EXISTS ${BASELINE})
  message(FATAL_ERROR "no ABI baseline ${BASELINE} for ${LIBRARY}: make one with scripts/abi-baseline")
endif()

file(MAKE_DIRECTORY ${WORK_DIR})
get_filename_component(name ${BASELINE} NAME_WLE)
execute_process(COMMAND xz -dc ${BASELINE} OUTPUT_FILE ${WORK_DIR}/${name} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "xz -dc ${BASELINE}: ${status}")
endif()
set(headers "")
foreach(dir ${HEADERS})
  list(APPEND headers --headers-dir2 ${dir})
endforeach()
# nlohmann's and the standard library's header code that a library happens to emit is left out
# (see the suppressions file).
get_filename_component(baselines ${BASELINE} DIRECTORY)
execute_process(COMMAND abidiff --no-show-locs --drop-private-types
                        --suppressions ${baselines}/suppressions.abignore ${headers}
                        ${WORK_DIR}/${name} ${LIBRARY}
                RESULT_VARIABLE status OUTPUT_VARIABLE report ERROR_VARIABLE err)
# abidiff's status is a bit set: 1 error, 2 usage error, 4 an ABI change, 8 an incompatible one.
math(EXPR failed "${status} & 3")
math(EXPR incompatible "${status} & 8")
if(failed)
  message(FATAL_ERROR "abidiff failed (${status}):\n${report}\n${err}")
elseif(incompatible)
  message(FATAL_ERROR "${LIBRARY} breaks the ABI of ${name}:\n${report}")
elseif(status)
  message(STATUS "${LIBRARY} changes the ABI of ${name} compatibly:\n${report}")
endif()
