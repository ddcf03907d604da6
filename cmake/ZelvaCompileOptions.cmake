# SPDX-License-Identifier: Apache-2.0
# Compile options shared by every project target.

# Warnings as errors for the project's own code.
add_library(zelva_warnings INTERFACE)
target_compile_options(zelva_warnings INTERFACE -Wall -Wextra -Werror)

if(ZELVA_SANITIZE)
  set(_zelva_sanitize_flags -fsanitize=${ZELVA_SANITIZE} -fno-omit-frame-pointer)
  if(ZELVA_SANITIZE MATCHES "address|undefined")
    list(APPEND _zelva_sanitize_flags -fno-sanitize-recover=all)
  endif()
  add_compile_options(${_zelva_sanitize_flags})
  add_link_options(${_zelva_sanitize_flags})
endif()

# libFuzzer: coverage instrumentation in every object; fuzz/ links the driver itself.
if(ZELVA_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# clang source-based coverage for every object and link (scripts/fuzz-coverage.sh).
option(ZELVA_COVERAGE "Build with clang source-based coverage (clang only)" OFF)
if(ZELVA_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
