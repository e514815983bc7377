# Third-party libraries, all from Debian packages (scripts/setup installs them).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# The loopback ad server (tools/) is always built; the tests and benchmarks serve with it too.
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
# Its hostile modes compress, and break, gzip bodies.
pkg_check_modules(ZLIB REQUIRED IMPORTED_TARGET zlib)

# The real engines (engines/) and the GLib loop they signal through.
if(ZORVA_BUILD_ENGINES)
  pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET GLOBAL glib-2.0)
endif()
if(ZORVA_ENGINE_GSTREAMER)
  pkg_check_modules(GSTREAMER REQUIRED IMPORTED_TARGET GLOBAL gstreamer-1.0 gstreamer-video-1.0)
endif()
if(ZORVA_ENGINE_WEBKITGTK)
  pkg_check_modules(WEBKITGTK REQUIRED IMPORTED_TARGET GLOBAL webkit2gtk-4.1 gtk+-3.0 cairo)
endif()

if(ZORVA_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZORVA_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
