# llhttp, a peer that only the benchmarks and the tests use (never the library). Debian's package
# node-llhttp ships it as C sources; kiv_add_llhttp_peer compiles them into a static library
# together with a small C driver of the caller's (llhttp's header cannot share a translation unit
# with every other parser's). Nothing is defined when the sources are absent: callers test
# `if(TARGET <name>)`.
find_path(KIV_LLHTTP_INCLUDE_DIR llhttp.h PATHS /usr/share/include/llhttp /usr/include/llhttp)
find_path(KIV_LLHTTP_SOURCE_DIR llhttp.c PATHS /usr/share/llhttp NO_DEFAULT_PATH)

# kiv_add_llhttp_peer(<name> <driver.c> [STRICT]): STRICT builds llhttp's strict mode, which
# refuses the lenient readings of framing that its default build allows. A macro, because
# enable_language must run at directory scope.
macro(kiv_add_llhttp_peer name driver)
  cmake_parse_arguments(kiv_llhttp "STRICT" "" "" ${ARGN})
  if(KIV_LLHTTP_INCLUDE_DIR AND KIV_LLHTTP_SOURCE_DIR)
    enable_language(C)
    add_library(${name} STATIC
      ${KIV_LLHTTP_SOURCE_DIR}/api.c
      ${KIV_LLHTTP_SOURCE_DIR}/http.c
      ${KIV_LLHTTP_SOURCE_DIR}/llhttp.c
      ${driver})
    target_include_directories(${name} SYSTEM PRIVATE ${KIV_LLHTTP_INCLUDE_DIR})
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    if(kiv_llhttp_STRICT)
      target_compile_definitions(${name} PRIVATE LLHTTP_STRICT_MODE=1)
    endif()
  endif()
endmacro()
