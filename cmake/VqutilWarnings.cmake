# vqutil_warnings(target): the project's warning set; warnings are errors.
function(vqutil_warnings target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror
      $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
      # __FILE__ as the path inside the tree, for the library's messages.
      -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
  elseif(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX)
  endif()
endfunction()
