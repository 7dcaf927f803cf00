# What every target of ours is built with: link kelpmoray_options PRIVATE.
add_library(kelpmoray_options INTERFACE)
target_compile_features(kelpmoray_options INTERFACE cxx_std_20)
target_compile_options(kelpmoray_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
# g++ 12 takes concatenations of strings for overlapping copies.
target_compile_options(kelpmoray_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_include_directories(kelpmoray_options INTERFACE ${PROJECT_SOURCE_DIR})
if(KELPMORAY_SANITIZE)
  target_compile_options(kelpmoray_options INTERFACE
    -fsanitize=${KELPMORAY_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # g++ 12 loses sight of what is initialized in the code that the sanitizers add.
  target_compile_options(kelpmoray_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(kelpmoray_options INTERFACE -fsanitize=${KELPMORAY_SANITIZE})
endif()
if(KELPMORAY_PRECOMPILE)
  # g++ 12 takes what it has precompiled for our own code, and sees bounds broken in strings.
  target_compile_options(kelpmoray_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds> $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)
endif()

# What most files of a target read, and HEADERS: kelpmoray_precompile(TARGET HEADERS...)
function(kelpmoray_precompile target)
  if(KELPMORAY_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <functional> <map> <string> <vector> ${ARGN})
  endif()
endfunction()
