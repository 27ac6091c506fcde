# The hash functions are part of the stored format of tables: their double
# arithmetic must round exactly as written, never fused into multiply-adds.
file(GLOB KEL_HASH_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/hash/*.cpp)
set_source_files_properties(${KEL_HASH_SOURCES} TARGET_DIRECTORY kelcore10_objs
                            PROPERTIES COMPILE_OPTIONS -ffp-contract=off)
