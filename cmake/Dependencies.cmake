# Third-party libraries, all from Debian packages (scripts/setup installs them).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# The loopback ad server (tools/) is always built; the tests and benchmarks serve with it too.
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

if(ZORVA_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZORVA_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
