# Compiler settings that every target of the project shares.
include(CheckCXXCompilerFlag)
option(KSUTIL_HARDENING
  "Stack protectors, checked buffers and read-only relocations in optimised builds" ON)

# Those of the protections that the compiler offers for this machine.
set(ksutil_hardening_flags)
if(KSUTIL_HARDENING)
  foreach(flag stack-protector-strong stack-clash-protection cf-protection)
    string(MAKE_C_IDENTIFIER "KSUTIL_HAS_${flag}" known)
    check_cxx_compiler_flag("-Werror -f${flag}" ${known})
    if(${known})
      list(APPEND ksutil_hardening_flags -f${flag})
    endif()
  endforeach()
endif()

# Sanitizers find the same and more, and want their own settings.
function(ksutil_harden target)
  if(NOT KSUTIL_HARDENING OR KSUTIL_SANITIZE OR KSUTIL_COVERAGE)
    return()
  endif()
  # Checks of buffer sizes need the optimiser.
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(${target} PRIVATE
    ${ksutil_hardening_flags}
    $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=2>)
  target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now)
endfunction()

function(ksutil_compile_options target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    # GCC 12 sees overlapping copies in std::string, and at -O1 copies of negative size in
    # std::vector, where there are none.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>
    $<$<BOOL:${KSUTIL_WERROR}>:-Werror>)
  ksutil_harden(${target})
  if(KSUTIL_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${KSUTIL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PUBLIC -fsanitize=${KSUTIL_SANITIZE})
  endif()
  if(KSUTIL_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage)
    target_link_options(${target} PUBLIC --coverage)
  endif()
endfunction()

# What nearly every file includes, parsed once for a target; other targets with the same
# settings share it with target_precompile_headers(... REUSE_FROM <target>).  Files include
# what they use all the same: build with -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON to check it.
set(KSUTIL_COMMON_HEADERS
  <algorithm> <atomic> <cerrno> <cmath> <cstdint> <cstdio> <cstdlib> <cstring>
  <functional> <map> <memory> <mutex> <optional> <string> <string_view> <utility> <vector>)
