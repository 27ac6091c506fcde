# Build helpers shared by the library, tests, benchmarks and fuzz harnesses.

function(kel_library_object_settings target)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:${KEL_LIB_CXX_FLAGS}>)
  if(KEL_TEST_HOOKS)
    target_compile_definitions(${target} PRIVATE KEL_TEST_HOOKS=1)
  endif()
endfunction()

# tests/<family>/ becomes one GoogleTest executable test_<family> built from
# every .cpp in the folder, unless the folder has a CMakeLists.txt of its own.
function(kel_add_test_family dir)
  get_filename_component(fam ${dir} NAME)
  if(EXISTS ${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
    return()
  endif()
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*.cpp ${dir}/*.c)
  if(NOT srcs)
    return()
  endif()
  kel_add_gtest(test_${fam} ${srcs})
endfunction()

# One GoogleTest executable linked against the library archive (so that the
# hidden internals of a family can be tested) and registered with ctest.
# LABELS l...: further labels; the executable is then one ctest test.
function(kel_add_gtest name)
  cmake_parse_arguments(arg "" "" "LABELS" ${ARGN})
  add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE kelcore10_static GTest::gtest GTest::gtest_main Threads::Threads)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests)
  if(KEL_TEST_HOOKS)
    target_compile_definitions(${name} PRIVATE KEL_TEST_HOOKS=1)
  endif()
  target_compile_definitions(${name} PRIVATE
    KEL_SOURCE_DIR="${PROJECT_SOURCE_DIR}" KEL_BINARY_DIR="${PROJECT_BINARY_DIR}"
    KEL_PYTHON="${Python3_EXECUTABLE}")
  set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
  # The label is the family (test_memory -> memory), so that a sanitizer run
  # can pick the families that matter to it with ctest -L.
  string(REGEX REPLACE "^test_" "" label ${name})
  if(arg_LABELS)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 600 LABELS "${label};${arg_LABELS}")
  else()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600 LABELS ${label})
  endif()
endfunction()

# bench/<family>/ becomes bench_<family>.
function(kel_add_bench_family dir)
  get_filename_component(fam ${dir} NAME)
  if(EXISTS ${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
    return()
  endif()
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(NOT srcs)
    return()
  endif()
  add_executable(bench_${fam} ${srcs})
  target_link_libraries(bench_${fam} PRIVATE kelcore10_static benchmark::benchmark Threads::Threads)
  target_include_directories(bench_${fam} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/bench)
endfunction()

# A benchmark's peer library is optional: the release build needs none of
# them, and a machine that lacks one still measures the other pairs.
# kel_bench_peer(<target> <peer> <debian package> <found> [<link items>...]):
# with <found> true (a found library, package or header path) the target
# links the items and compiles its cases against <peer> (KEL_PEER_<PEER>=1);
# otherwise those cases are left out (KEL_PEER_<PEER>=0) with a note.
function(kel_bench_peer target peer package found)
  string(TOUPPER ${peer} up)
  if(found)
    target_link_libraries(${target} PRIVATE ${ARGN})
    target_compile_definitions(${target} PRIVATE KEL_PEER_${up}=1)
  else()
    target_compile_definitions(${target} PRIVATE KEL_PEER_${up}=0)
    kel_bench_note("${target}: the pairs with ${peer} are skipped (apt-get install ${package})")
  endif()
endfunction()

# A note on what the benchmark build left out, shown at configure time and
# kept in <build>/bench/skipped.txt, which bench/ratios.py prints under its
# table so that a missing pair is not mistaken for a lost one.
function(kel_bench_note text)
  message(STATUS "bench: ${text}")
  file(APPEND ${PROJECT_BINARY_DIR}/bench/skipped.txt "${text}\n")
endfunction()

# fuzz/<family>/[<part>/]<harness>.cpp becomes fuzz_<harness>, a libFuzzer
# binary, and a bounded ctest run over its corpus folder <harness>.corpus
# beside it, if any.
function(kel_add_fuzz_family dir)
  get_filename_component(fam ${dir} NAME)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  foreach(src IN LISTS srcs)
    get_filename_component(h ${src} NAME_WE)
    get_filename_component(src_dir ${src} DIRECTORY)
    add_executable(fuzz_${h} ${src})
    target_compile_options(fuzz_${h} PRIVATE -fsanitize=fuzzer)
    target_link_options(fuzz_${h} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(fuzz_${h} PRIVATE kelcore10_static Threads::Threads)
    target_include_directories(fuzz_${h} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
    # libFuzzer writes new inputs into the first corpus folder it is given:
    # that one lives in the build tree, the checked-in seeds come second.
    set(work ${CMAKE_CURRENT_BINARY_DIR}/corpus/${h})
    file(MAKE_DIRECTORY ${work})
    set(seeds ${src_dir}/${h}.corpus)
    set(args -runs=${KEL_FUZZ_RUNS} -max_len=4096)
    if(EXISTS ${seeds})
      add_test(NAME fuzz_${h} COMMAND fuzz_${h} ${args} ${work} ${seeds})
    else()
      add_test(NAME fuzz_${h} COMMAND fuzz_${h} ${args} ${work})
    endif()
    set_tests_properties(fuzz_${h} PROPERTIES TIMEOUT 900 LABELS fuzz)
  endforeach()
endfunction()

# Outside the fuzz preset, every harness with a corpus also replays it as an
# ordinary test: replay_<harness> is the harness linked with a small main
# (fuzz/replay_main.cpp) instead of libFuzzer, and the ctest
# fuzz_replay_<harness> feeds it the <harness>.corpus folder beside it
# (fuzz/<family>/[<part>/]), labelled with the family so that a family's
# tests include its corpora.
function(kel_add_fuzz_replays fuzzdir)
  file(GLOB fam_dirs LIST_DIRECTORIES true ${fuzzdir}/*)
  foreach(d IN LISTS fam_dirs)
    if(NOT IS_DIRECTORY ${d})
      continue()
    endif()
    get_filename_component(fam ${d} NAME)
    file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${d}/*.cpp)
    foreach(src IN LISTS srcs)
      get_filename_component(h ${src} NAME_WE)
      get_filename_component(src_dir ${src} DIRECTORY)
      if(NOT IS_DIRECTORY ${src_dir}/${h}.corpus)
        continue()
      endif()
      add_executable(replay_${h} ${src} ${fuzzdir}/replay_main.cpp)
      target_link_libraries(replay_${h} PRIVATE kelcore10_static Threads::Threads)
      target_include_directories(replay_${h} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
      if(KEL_TEST_HOOKS)
        target_compile_definitions(replay_${h} PRIVATE KEL_TEST_HOOKS=1)
      endif()
      add_test(NAME fuzz_replay_${h} COMMAND replay_${h} ${src_dir}/${h}.corpus)
      set_tests_properties(fuzz_replay_${h} PROPERTIES TIMEOUT 600 LABELS ${fam})
    endforeach()
  endforeach()
endfunction()
