# The message catalogues: every nls/messages/<product>_<facility>.msg is
# compiled into kelnls10 as its built-in text (an installation may replace a
# file under $KELTAR_HOME/<product>/mesg/), and gives a header of named
# message numbers, kelmsg_<product>_<facility>.h, for the code that records
# those messages.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
file(GLOB KEL_MSG_FILES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/nls/messages/*.msg)
set(KEL_MSG_DIR ${PROJECT_BINARY_DIR}/nls/gen)
set(KEL_MSG_CPP ${PROJECT_BINARY_DIR}/nls/catalogues.cpp)
set(KEL_MSG_HEADERS)
foreach(f IN LISTS KEL_MSG_FILES)
  get_filename_component(stem ${f} NAME_WE)
  string(TOLOWER ${stem} stem)
  list(APPEND KEL_MSG_HEADERS ${KEL_MSG_DIR}/kelmsg_${stem}.h)
endforeach()
file(MAKE_DIRECTORY ${KEL_MSG_DIR})
add_custom_command(
  OUTPUT ${KEL_MSG_CPP} ${KEL_MSG_HEADERS}
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/nls/gen_catalogues.py ${KEL_MSG_CPP} ${KEL_MSG_DIR}
          ${KEL_MSG_FILES}
  DEPENDS ${PROJECT_SOURCE_DIR}/nls/gen_catalogues.py ${KEL_MSG_FILES}
  COMMENT "Compiling message catalogues"
  VERBATIM)
add_custom_target(kel_messages DEPENDS ${KEL_MSG_CPP} ${KEL_MSG_HEADERS})
target_sources(kelnls10_objs PRIVATE ${KEL_MSG_CPP})
add_dependencies(kelcore10_objs kel_messages)
target_include_directories(kelcore10_objs PRIVATE ${KEL_MSG_DIR})
target_include_directories(kelcore10_static PUBLIC ${KEL_MSG_DIR})

# Territory data: month and day names, formats, first day of the week and
# number symbols come from ICU's locale data, read by a small generator at
# build time. Without ICU's development files the library still builds, with
# only the hand-kept American territory.
set(KEL_TERR_INC ${PROJECT_BINARY_DIR}/nls/gen/territories.inc)
if(NOT CMAKE_CROSSCOMPILING)
  find_package(ICU COMPONENTS uc i18n)
endif()
if(CMAKE_CROSSCOMPILING)
  # The host build made them (cmake/KelHostTools.cmake).
  add_custom_command(
    OUTPUT ${KEL_TERR_INC}
    COMMAND ${CMAKE_COMMAND} -E copy ${KEL_HOST_TERR_INC} ${KEL_TERR_INC}
    DEPENDS kel_host ${KEL_HOST_TERR_INC}
    COMMENT "Taking the territory data from the host build"
    VERBATIM)
elseif(ICU_FOUND)
  add_executable(kel_gen_territories ${PROJECT_SOURCE_DIR}/nls/gen_territories.cc)
  target_link_libraries(kel_gen_territories PRIVATE ICU::i18n ICU::uc)
  # ICU keeps its caches until exit; a sanitizer build must not fail the
  # generator for that.
  add_custom_command(
    OUTPUT ${KEL_TERR_INC}
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0 $<TARGET_FILE:kel_gen_territories> ${KEL_TERR_INC}
    DEPENDS kel_gen_territories
    COMMENT "Generating territory data from ICU"
    VERBATIM)
else()
  message(STATUS "kelnls10: ICU not found; only the American territory is built in")
  file(WRITE ${KEL_TERR_INC} "// ICU was not found: no generated territories.\n")
endif()
add_custom_target(kel_territories DEPENDS ${KEL_TERR_INC})
add_dependencies(kelnls10_objs kel_territories)
target_include_directories(kelnls10_objs PRIVATE ${KEL_MSG_DIR})
