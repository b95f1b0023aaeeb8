# Compiler and linker flags of all our targets.
add_library(quendil_flags INTERFACE)
target_compile_definitions(quendil_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(quendil_flags INTERFACE
  -Wall -Wextra -Wpedantic $<$<BOOL:${QUENDIL_WERROR}>:-Werror>
  -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef -Wcast-align -Wcast-qual
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor>
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wlogical-op -Wduplicated-cond>
  -fstack-protector-strong
  # Assertions name the source by its path in the project, not by that on the build machine.
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

# The product needs no exceptions and no run-time types; its tests do.
add_library(quendil_product_flags INTERFACE)
target_link_libraries(quendil_product_flags INTERFACE quendil_flags)
# Position-independent, whatever the compiler's default is.
target_compile_options(quendil_product_flags INTERFACE -fno-exceptions -fno-rtti -fPIE)

if(QUENDIL_FUZZ)
  target_compile_options(quendil_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(QUENDIL_SANITIZE)
  target_compile_options(quendil_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    # Only the test runner has virtual functions, and this check opens descriptors.
    -fno-sanitize=vptr)
  target_link_options(quendil_flags INTERFACE -fsanitize=address,undefined)
elseif(QUENDIL_COVERAGE)
  target_compile_options(quendil_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(quendil_flags INTERFACE --coverage)
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT QUENDIL_SANITIZE)
  target_compile_options(quendil_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
