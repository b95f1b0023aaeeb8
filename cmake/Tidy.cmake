# clang-tidy over the product, with one stamp for each source: only changed sources are checked again.
find_program(CLANG_TIDY NAMES clang-tidy-14 clang-tidy REQUIRED)
file(GLOB_RECURSE tidy_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.cpp)
file(GLOB_RECURSE tidy_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.h
  ${PROJECT_SOURCE_DIR}/src/*.inc)
foreach(source ${tidy_sources})
  get_filename_component(name ${source} NAME_WE)
  set(stamp ${PROJECT_BINARY_DIR}/tidy/${name}.stamp)
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CLANG_TIDY} --quiet -p ${PROJECT_BINARY_DIR} ${source}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS ${source} ${tidy_headers} ${PROJECT_SOURCE_DIR}/.clang-tidy
    COMMENT "Linting ${name}" VERBATIM)
  list(APPEND tidy_stamps ${stamp})
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/tidy)
add_custom_target(tidy ALL DEPENDS ${tidy_stamps})
