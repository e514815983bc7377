# Installs the build tree into a fresh prefix, then builds the README's example out of tree
# against it twice (find_package(zorva), and the compiler fed by pkg-config) and runs both
# programs. Run by ctest: cmake -DBUILD_DIR=... -DEXAMPLE_DIR=... -DWORK_DIR=... -P InstallTest.cmake
foreach(variable BUILD_DIR EXAMPLE_DIR WORK_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "InstallTest.cmake needs -D${variable}=...")
  endif()
endforeach()

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
endfunction()

# Runs an example program built against the installed SDK. Its bid URL is a port nobody listens
# on, so the banner must report a refused connection: that proves the program was linked and
# loaded against the installed libraries and that the SDK worked inside it.
function(expect_refused program)
  execute_process(COMMAND ${program} http://127.0.0.1:9/zorva/servad
                  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 60)
  if(NOT status EQUAL 1 OR NOT out MATCHES "banner: no ad \\(.*\\)")
    message(FATAL_ERROR "${program}: exit ${status}, expected 1 and \"banner: no ad (...)\"\n"
                        "${out}\n${err}")
  endif()
  # The libraries it loaded are the installed ones, not the build tree's.
  execute_process(COMMAND ldd ${program} OUTPUT_VARIABLE libraries)
  if(NOT libraries MATCHES "${prefix}/[^ ]*/libzorva.so")
    message(FATAL_ERROR "${program} does not load libzorva from ${prefix}:\n${libraries}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(file include/zorva/Zorva.h include/zorva/platform/MainQueue.h)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "the install lacks ${file}")
  endif()
endforeach()

# 1. CMake: find_package(zorva) → zorva::zorva.
run(${CMAKE_COMMAND} -S ${EXAMPLE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
    -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
expect_refused(${WORK_DIR}/build/place-banner)

# 2. pkg-config: the flags of zorva.pc are all a compiler needs.
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pc_files ${prefix}/*/zorva.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs zorva RESULT_VARIABLE status
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0 OR NOT flags MATCHES "-lzorva")
  message(FATAL_ERROR "pkg-config --cflags --libs zorva: ${status} '${flags}'")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(extra UNIX_COMMAND "${CXX_FLAGS} ${LINKER_FLAGS}")
get_filename_component(libdir ${pc_dir} DIRECTORY)
run(${CXX_COMPILER} ${extra} ${EXAMPLE_DIR}/main.cpp ${flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/place-banner-pkg-config)
expect_refused(${WORK_DIR}/place-banner-pkg-config)
