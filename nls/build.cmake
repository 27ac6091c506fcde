# The message catalogues: every nls/messages/<product>_<facility>.msg is
# compiled into kelnls10 as its built-in text; an installation may replace a
# file under $KELTAR_HOME/<product>/mesg/.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
file(GLOB KEL_MSG_FILES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/nls/messages/*.msg)
set(KEL_MSG_CPP ${PROJECT_BINARY_DIR}/nls/catalogues.cpp)
add_custom_command(
  OUTPUT ${KEL_MSG_CPP}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/nls
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/nls/gen_catalogues.py ${KEL_MSG_CPP} ${KEL_MSG_FILES}
  DEPENDS ${PROJECT_SOURCE_DIR}/nls/gen_catalogues.py ${KEL_MSG_FILES}
  COMMENT "Compiling message catalogues"
  VERBATIM)
target_sources(kelnls10_objs PRIVATE ${KEL_MSG_CPP})
