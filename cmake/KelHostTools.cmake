# Host programs of a cross build. The territory generator and the time-zone
# compiler (keltzc) run during the build, so they must run here, not on the
# target: a release build of this same tree for the host, configured and
# built under <build>/host, makes the territory data and the time-zone image,
# and the cross build takes both files from it. Both are plain data, the
# same for every platform. Bison and the Python generators are host programs
# already.
include(ExternalProject)

set(KEL_HOST_DIR ${PROJECT_BINARY_DIR}/host)
set(KEL_HOST_TERR_INC ${KEL_HOST_DIR}/nls/gen/territories.inc)
set(KEL_HOST_TZ_IMAGE ${KEL_HOST_DIR}/zoneinfo/timezlrg.dat)
set(KEL_TZ_ZONEINFO /usr/share/zoneinfo CACHE PATH "Compiled IANA zoneinfo that keltzc reads")
set(KEL_HOST_C_COMPILER gcc CACHE STRING "C compiler of the host build of a cross build")
set(KEL_HOST_CXX_COMPILER g++ CACHE STRING "C++ compiler of the host build of a cross build")

ExternalProject_Add(kel_host
  SOURCE_DIR ${PROJECT_SOURCE_DIR}
  BINARY_DIR ${KEL_HOST_DIR}
  CMAKE_ARGS -DCMAKE_C_COMPILER=${KEL_HOST_C_COMPILER} -DCMAKE_CXX_COMPILER=${KEL_HOST_CXX_COMPILER}
             -DCMAKE_BUILD_TYPE=Release -DKEL_TEST_HOOKS=OFF -DKEL_BUILD_TESTS=OFF -DKEL_BUILD_BENCH=OFF
             -DKEL_BUILD_FUZZ=OFF -DKEL_BUILD_TOOLS=ON -DKEL_TZ_ZONEINFO=${KEL_TZ_ZONEINFO}
  BUILD_COMMAND ${CMAKE_COMMAND} --build <BINARY_DIR> --target kel_territories kel_tzimage
  INSTALL_COMMAND ""
  # The host build knows its own dependencies; asking it every time costs a
  # no-op ninja run and never leaves stale data.
  BUILD_ALWAYS ON
  BUILD_BYPRODUCTS ${KEL_HOST_TERR_INC} ${KEL_HOST_TZ_IMAGE}
  USES_TERMINAL_BUILD ON)
