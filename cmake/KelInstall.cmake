# Installation: the two shared libraries, the public headers, the message
# catalogues and time-zone image below <datadir>/kelcore10 (the directory a
# program names in KELTAR_HOME), the tools, a pkg-config file and a CMake
# package (find_package(kelcore10) -> kelcore10::kelcore10).
include(CMakePackageConfigHelpers)

set(KEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/kelcore10)
set(KEL_INSTALL_HOME ${CMAKE_INSTALL_DATADIR}/kelcore10)

# libkelcore10 needs libkelnls10 (a private dependency). Installed side by
# side, $ORIGIN lets both the loader and the linker of an outside program
# that names only kelcore10 find it, wherever the prefix is.
set_target_properties(kelcore10 PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS kelcore10 kelnls10 EXPORT kelcore10Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelcore10)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelcore10 FILES_MATCHING PATTERN "*.h")
# The message numbers (kelmsg_<product>_<facility>.h, made from the message
# files) belong to the interface: a caller tells failures apart by them. In
# the build tree they sit beside the generated catalogues.
install(FILES ${KEL_MSG_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelcore10)
target_include_directories(kelcore10 PUBLIC $<BUILD_INTERFACE:${KEL_MSG_DIR}>)

# Message catalogues: the library reads $KELTAR_HOME/<product>/mesg/
# <product>_<facility>.msg, so each file goes below its product's folder.
file(GLOB KEL_INSTALL_MSG ${PROJECT_SOURCE_DIR}/nls/messages/*.msg)
foreach(f IN LISTS KEL_INSTALL_MSG)
  get_filename_component(stem ${f} NAME_WE)
  string(TOLOWER ${stem} stem)
  string(REGEX REPLACE "_.*$" "" product ${stem})
  install(FILES ${f} DESTINATION ${KEL_INSTALL_HOME}/${product}/mesg RENAME ${stem}.msg)
endforeach()

# Tools (the kelcore tool installs itself; the time-zone image comes with
# keltzc's own rule, below ${KEL_INSTALL_HOME}/kelcore/zoneinfo). An installed
# tool finds the libraries relative to itself, from any prefix.
file(RELATIVE_PATH KEL_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(tool IN ITEMS kelcore keltzc)
  if(TARGET ${tool})
    set_target_properties(${tool} PROPERTIES INSTALL_RPATH "$ORIGIN/${KEL_BIN_TO_LIB}")
  endif()
endforeach()
if(TARGET keltzc)
  install(TARGETS keltzc RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# pkg-config. kelnls10 is private: a static link would need it, a shared one
# does not.
# The file finds its prefix from where it lies (${pcfiledir}), so that an
# install with `cmake --install --prefix` elsewhere still gives right paths.
file(RELATIVE_PATH KEL_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
string(REGEX REPLACE "/$" "" KEL_PC_TO_PREFIX "${KEL_PC_TO_PREFIX}")
set(KEL_PC_LIBS_PRIVATE "-lkelnls10 -lssl -lcrypto -pthread")
foreach(l IN LISTS CMAKE_DL_LIBS)
  string(APPEND KEL_PC_LIBS_PRIVATE " -l${l}")
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/kelcore10.pc.in ${PROJECT_BINARY_DIR}/kelcore10.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelcore10.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# CMake package.
install(EXPORT kelcore10Targets NAMESPACE kelcore10:: DESTINATION ${KEL_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kelcore10Config.cmake.in
  ${PROJECT_BINARY_DIR}/kelcore10Config.cmake
  INSTALL_DESTINATION ${KEL_INSTALL_CMAKEDIR}
  PATH_VARS KEL_INSTALL_HOME)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelcore10ConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kelcore10Config.cmake ${PROJECT_BINARY_DIR}/kelcore10ConfigVersion.cmake
  DESTINATION ${KEL_INSTALL_CMAKEDIR})
