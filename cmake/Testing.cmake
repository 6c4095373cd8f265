include(GoogleTest)

# Interoperability samples (keyed archives written by the host platform) live beside the
# repository, not in it. Tests and fuzz seeding that read them skip, naming this folder,
# when it is absent, so that a clone made anywhere still passes.
set(VEXO_SHARED_DIR "${PROJECT_SOURCE_DIR}/../shared" CACHE PATH
  "Folder holding interop/keyed-archives, read by some tests when present")

# vexo_add_test_binary(NAME SOURCES file... LIBRARIES target...)
# One GoogleTest binary per layer; every TEST becomes a CTest test.
function(vexo_add_test_binary name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gmock GTest::gtest_main
    vexo_test_support vexo_warnings)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name} PRIVATE
    VEXO_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    VEXO_SHARED_DIR="${VEXO_SHARED_DIR}")
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
