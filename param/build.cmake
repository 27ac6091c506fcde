# Parameter family: the parser tables come from the grammar through bison and
# are packed by gen_tables.py into the build tree at build time.
find_package(Python3 COMPONENTS Interpreter REQUIRED)
find_program(KEL_BISON bison REQUIRED)
set(KEL_PARAM_GEN ${PROJECT_BINARY_DIR}/gen)
file(MAKE_DIRECTORY ${KEL_PARAM_GEN}/param)
add_custom_command(
  OUTPUT ${KEL_PARAM_GEN}/param/lrmpzp_tables.cpp
  COMMAND ${KEL_BISON} -Werror --xml=${KEL_PARAM_GEN}/param/lrmpzp.xml -o ${KEL_PARAM_GEN}/param/lrmpzp.tab.c
          ${PROJECT_SOURCE_DIR}/param/lrmpzp.y
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/param/gen_tables.py ${KEL_PARAM_GEN}/param/lrmpzp.xml
          ${KEL_PARAM_GEN}/param/lrmpzp_tables.cpp kParamTables
  DEPENDS ${PROJECT_SOURCE_DIR}/param/lrmpzp.y ${PROJECT_SOURCE_DIR}/param/gen_tables.py
  COMMENT "Generating the parameter parser tables"
  VERBATIM)
target_sources(kelcore10_objs PRIVATE ${KEL_PARAM_GEN}/param/lrmpzp_tables.cpp)
target_include_directories(kelcore10_objs PRIVATE ${KEL_PARAM_GEN})
target_include_directories(kelcore10_static PUBLIC ${KEL_PARAM_GEN})
