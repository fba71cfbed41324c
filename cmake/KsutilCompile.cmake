# Compiler settings that every target of the project shares.
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
