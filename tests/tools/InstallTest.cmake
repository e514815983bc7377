# Installs the build tree into a fresh prefix, checks what it holds (the SDK exports its public API
# only; every library has a pkg-config file that links; an engine nobody built is not found), then
# builds an example out of tree against it twice (find_package, and the compiler fed by
# pkg-config) and runs both programs.
# Run by ctest: cmake -DBUILD_DIR=... -DEXAMPLE_DIR=... -DWORK_DIR=... -P InstallTest.cmake
# Optional, space-separated: -DPKG_MODULES=... (default "zorva"), -DLAUNCHER=... (a program the
# example runs under, as "xvfb-run -a"), -DARGS=... (after the bid URL); -DSTATUS=... the exit
# status expected (default 1); -DSCRIPT=... a script run the same way against the installed
# introspection data (its interpreter first, as "python3 banner.py").
cmake_minimum_required(VERSION 3.25)
foreach(variable BUILD_DIR EXAMPLE_DIR WORK_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "InstallTest.cmake needs -D${variable}=...")
  endif()
endforeach()
if(NOT PKG_MODULES)
  set(PKG_MODULES zorva)
endif()
if(NOT DEFINED STATUS)
  set(STATUS 1)
endif()
separate_arguments(PKG_MODULES UNIX_COMMAND "${PKG_MODULES}")
separate_arguments(LAUNCHER UNIX_COMMAND "${LAUNCHER}")
separate_arguments(ARGS UNIX_COMMAND "${ARGS}")
get_filename_component(example ${EXAMPLE_DIR} NAME)

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
  execute_process(COMMAND ${LAUNCHER} ${program} http://127.0.0.1:9/zorva/servad ${ARGS}
                  RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 60)
  if(NOT status EQUAL STATUS OR NOT out MATCHES "banner: no ad \\(.*\\)")
    message(FATAL_ERROR "${program}: exit ${status}, expected ${STATUS} and "
                        "\"banner: no ad (...)\"\n${out}\n${err}")
  endif()
  # Every library of the SDK it loads is an installed one, not the build tree's (a script's
  # interpreter loads them later).
  list(LENGTH program words)
  if(words GREATER 1)
    return()
  endif()
  execute_process(COMMAND ldd ${program} OUTPUT_VARIABLE libraries)
  string(REGEX MATCHALL "libzorva[^ ]*\\.so[^ ]* => [^ ]*" loaded "${libraries}")
  if(NOT loaded MATCHES "libzorva.so")
    message(FATAL_ERROR "${program} does not load libzorva:\n${libraries}")
  endif()
  foreach(library ${loaded})
    if(NOT library MATCHES "=> ${prefix}/")
      message(FATAL_ERROR "${program} loads ${library}, not from ${prefix}")
    endif()
  endforeach()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(file include/zorva/Zorva.h include/zorva/ZorvaVersion.h include/zorva/platform/MainQueue.h
             bin/zorva-adserver)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "the install lacks ${file}")
  endif()
endforeach()

# libzorva exports the public API and nothing else: any symbol of the SDK's namespace names one of
# the public classes (or the platform's types in their signatures).
file(GLOB_RECURSE sdk_library ${prefix}/*/libzorva.so)
execute_process(COMMAND nm -DC --defined-only ${sdk_library} RESULT_VARIABLE status
                OUTPUT_VARIABLE symbols ERROR_VARIABLE err)
string(REGEX MATCHALL "zorva::[A-Za-z_]+" names "${symbols}")
list(REMOVE_DUPLICATES names)
list(REMOVE_ITEM names zorva::ZorvaSDK zorva::ZVAdRequest zorva::ZVBannerView
     zorva::classifyError zorva::httpStatusOf
     zorva::ZVBannerViewDelegate zorva::ZVInterstitialAd zorva::ZVInterstitialAdDelegate
     zorva::ZVInBannerVideo zorva::ZVInBannerVideoDelegate zorva::platform)
if(NOT status EQUAL 0 OR NOT symbols MATCHES "zorva::ZVBannerView::loadAd\\(\\)" OR names)
  message(FATAL_ERROR "libzorva.so exports what is not its public API (${status}): ${names}\n${err}")
endif()

# So does each engine library: its exported symbols belong to the classes and functions its
# installed headers mark ZORVA_ENGINE_EXPORT (or to the platform's types in their signatures) or
# are C functions the headers name, and none to a nested part marked ZORVA_ENGINE_HIDDEN.
file(GLOB_RECURSE headers ${prefix}/include/*.h)
set(public "")
set(hidden "")
foreach(header ${headers})
  file(READ ${header} text)
  string(REGEX MATCHALL "(class|struct|enum class) (ZORVA_ENGINE_EXPORT )?[A-Za-z_]+" types "${text}")
  string(REGEX MATCHALL "ZORVA_ENGINE_EXPORT [^(;]* [A-Za-z_]+\\(" functions "${text}")
  foreach(name ${types} ${functions})
    string(REGEX REPLACE "^.*[ ]([A-Za-z_]+)\\(?$" "\\1" name "${name}")
    list(APPEND public ${name})
  endforeach()
  string(REGEX MATCHALL "zorva_[a-z0-9_]+" c_functions "${text}")
  list(APPEND public ${c_functions})
  string(REGEX MATCHALL "ZORVA_ENGINE_HIDDEN [A-Za-z_]+" nested "${text}")
  list(TRANSFORM nested REPLACE "^ZORVA_ENGINE_HIDDEN " "")
  list(APPEND hidden ${nested})
endforeach()
list(JOIN hidden "|" hidden)
file(GLOB_RECURSE engine_libraries ${prefix}/*/libzorva_*.so)
list(FILTER engine_libraries EXCLUDE REGEX "libzorva_platform\\.so$")
foreach(library ${engine_libraries})
  execute_process(COMMAND nm -DC --defined-only ${library} OUTPUT_VARIABLE symbols)
  string(REGEX MATCHALL "zorva::[a-z]+::[A-Za-z_]+|zorva_[a-z0-9_]+|::(${hidden})::[A-Za-z_~]+"
         names "${symbols}")
  list(REMOVE_DUPLICATES names)
  set(stray "")
  foreach(name ${names})
    string(REGEX REPLACE "^zorva::[a-z]+::" "" short "${name}")
    if(NOT short IN_LIST public OR name MATCHES "^::")
      list(APPEND stray ${name})
    endif()
  endforeach()
  if(stray)
    message(FATAL_ERROR "${library} exports what is not its public API: ${stray}")
  endif()
endforeach()

# An engine the tree did not build is a component the package does not find.
file(WRITE ${WORK_DIR}/no-such-engine/CMakeLists.txt
     "cmake_minimum_required(VERSION 3.25)\nproject(probe LANGUAGES CXX)\n"
     "find_package(zorva REQUIRED COMPONENTS no-such-engine)\n")
execute_process(COMMAND ${CMAKE_COMMAND} -S ${WORK_DIR}/no-such-engine -B ${WORK_DIR}/no-such-engine/build
                        -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
                RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(status EQUAL 0 OR NOT err MATCHES "no-such-engine")
  message(FATAL_ERROR "find_package(zorva COMPONENTS no-such-engine) did not fail:\n${out}\n${err}")
endif()

# 1. CMake: find_package(zorva) → zorva::zorva (and the engines the example links).
run(${CMAKE_COMMAND} -S ${EXAMPLE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS}"
    -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
expect_refused(${WORK_DIR}/build/${example})

# 2. pkg-config: the flags of the modules' .pc files are all a compiler needs.
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pc_files ${prefix}/*/zorva.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
# The flags pkg-config gives for the modules, as a list; they must link lib<library>.
function(pkg_flags variable library)
  execute_process(COMMAND ${PKG_CONFIG} --cflags --libs ${ARGN} RESULT_VARIABLE status
                  OUTPUT_VARIABLE flags ERROR_VARIABLE err OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0 OR NOT flags MATCHES "-l${library}( |$)")
    message(FATAL_ERROR "pkg-config --cflags --libs ${ARGN}: ${status} '${flags}' ${err}")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  set(${variable} ${flags} PARENT_SCOPE)
endfunction()
separate_arguments(extra UNIX_COMMAND "${CXX_FLAGS} ${LINKER_FLAGS}")
# Every installed library has its own .pc, and a program linked with nothing else loads it.
get_filename_component(libdir ${pc_dir} DIRECTORY)
file(GLOB libraries RELATIVE ${libdir} ${libdir}/libzorva*.so)
file(WRITE ${WORK_DIR}/empty.cpp "int main() { return 0; }\n")
foreach(library ${libraries})
  string(REGEX REPLACE "^lib(.*)\\.so$" "\\1" name ${library})
  string(REPLACE "_" "-" module ${name})
  pkg_flags(flags ${name} ${module})
  run(${CXX_COMPILER} ${extra} ${WORK_DIR}/empty.cpp -Wl,--no-as-needed ${flags}
      -Wl,-rpath,${libdir} -o ${WORK_DIR}/loads-${name})
  run(${WORK_DIR}/loads-${name})
endforeach()
# The public headers compile cleanly under a consumer's strict warnings and a newer standard
# (pkg-config imposes none); under an older one they say what they need.
pkg_flags(flags zorva zorva)
file(GLOB_RECURSE headers RELATIVE ${prefix}/include ${prefix}/include/zorva/*.h)
list(FILTER headers EXCLUDE REGEX "^zorva/engines/")
list(TRANSFORM headers PREPEND "#include <")
list(TRANSFORM headers APPEND ">")
string(JOIN "\n" includes ${headers})
file(WRITE ${WORK_DIR}/headers.cpp "${includes}\nint main() { return 0; }\n")
run(${CXX_COMPILER} -std=c++2b -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
    -fsyntax-only ${WORK_DIR}/headers.cpp ${flags})
execute_process(COMMAND ${CXX_COMPILER} -std=c++17 -fsyntax-only ${WORK_DIR}/headers.cpp ${flags}
                RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(status EQUAL 0 OR NOT err MATCHES "need C\\+\\+20 or later")
  message(FATAL_ERROR "the headers under -std=c++17 did not ask for C++20 (${status}):\n${err}")
endif()

pkg_flags(flags zorva ${PKG_MODULES})
# A C example (main.c) compiles as C++ too.
file(GLOB main ${EXAMPLE_DIR}/main.c ${EXAMPLE_DIR}/main.cpp)
run(${CXX_COMPILER} -std=c++2b ${extra} ${main} ${flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/${example}-pkg-config)
expect_refused(${WORK_DIR}/${example}-pkg-config)
# 3. A script in another language, through the installed introspection data.
if(SCRIPT)
  file(GLOB_RECURSE typelib ${prefix}/*/girepository-1.0/Zorva-1.0.typelib)
  if(NOT typelib OR NOT EXISTS ${prefix}/share/gir-1.0/Zorva-1.0.gir)
    message(FATAL_ERROR "the install lacks Zorva-1.0.gir or Zorva-1.0.typelib")
  endif()
  get_filename_component(typelib_dir ${typelib} DIRECTORY)
  set(ENV{GI_TYPELIB_PATH} ${typelib_dir})
  set(ENV{LD_LIBRARY_PATH} ${libdir})
  separate_arguments(SCRIPT UNIX_COMMAND "${SCRIPT}")
  expect_refused("${SCRIPT}")
endif()
