# Third-party libraries, all from Debian packages (scripts/setup installs them).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(EXPAT REQUIRED IMPORTED_TARGET expat)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# The tracking transport's durable queue.
pkg_check_modules(SQLITE3 REQUIRED IMPORTED_TARGET sqlite3)
# The loopback ad server (tools/) is always built; the tests and benchmarks serve with it too.
# Debian's cpp-httplib is a compiled library; with ZORVA_HTTPLIB_SOURCE (a folder holding the
# package's single-header httplib.h, which scripts/setup fetches) it is compiled into its users
# instead, as the ThreadSanitizer build needs: the sanitizer cannot see the compiled library's
# own synchronisation and reports races between its worker threads.
set(ZORVA_HTTPLIB_SOURCE "" CACHE PATH "Compile cpp-httplib from this folder's httplib.h")
add_library(zorva_httplib INTERFACE)
if(ZORVA_HTTPLIB_SOURCE)
  if(NOT EXISTS ${ZORVA_HTTPLIB_SOURCE}/httplib.h)
    message(FATAL_ERROR "${ZORVA_HTTPLIB_SOURCE}/httplib.h is missing: run scripts/setup")
  endif()
  target_include_directories(zorva_httplib SYSTEM BEFORE INTERFACE ${ZORVA_HTTPLIB_SOURCE})
  target_link_libraries(zorva_httplib INTERFACE Threads::Threads)
else()
  pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
  target_link_libraries(zorva_httplib INTERFACE PkgConfig::HTTPLIB)
endif()
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
  # The on-screen host's video windows: X11 with Render and Shape, which GTK's own X11 backend
  # brings.
  pkg_check_modules(XLIB REQUIRED IMPORTED_TARGET GLOBAL x11 xrender xext)
endif()

if(ZORVA_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZORVA_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
