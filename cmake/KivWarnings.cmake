# Warnings for the project's own code (not for third-party headers). KIV_WERROR turns them into
# errors: on for the project's own developers and CI (scripts/test.sh), off by default so that a
# consumer's build never fails on a warning of a compiler we have not tried.
option(KIV_WERROR "Treat warnings in kiv's own code as errors" OFF)

function(kiv_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${KIV_WERROR}>:/WX>)
    return()
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic $<$<BOOL:${KIV_WERROR}>:-Werror>)
  # GCC 12 reports impossible overlaps inside libstdc++'s own string concatenation when it inlines
  # it at -O3 (a false positive of -Wrestrict in the compiler, not in our code).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12
     AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  # Sanitizer instrumentation hides initialisations from GCC's flow analysis, which then reports
  # uninitialised uses inside the standard library (std::function in std::regex) that are not
  # there; the plain builds keep the warning.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND (KIV_ASAN OR KIV_TSAN))
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
endfunction()
