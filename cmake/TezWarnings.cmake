# Warnings every target of the project builds with.
function(tez_warnings target)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wno-unused-parameter>)
endfunction()

# `cmake --build build --target format` rewrites the tracked C++ sources.
find_program(TEZ_CLANG_FORMAT NAMES clang-format clang-format-14)
if(TEZ_CLANG_FORMAT)
  add_custom_target(format
    COMMAND git ls-files -z -- '*.h' '*.cpp' '*.cu' '*.cuh' '*.inl' | xargs -0 ${TEZ_CLANG_FORMAT} -i
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMENT "clang-format on the tracked sources")
  # `--target format-check` fails on any source the formatter would change.
  add_custom_target(format-check
    COMMAND git ls-files -z -- '*.h' '*.cpp' '*.cu' '*.cuh' '*.inl' | xargs -0 ${TEZ_CLANG_FORMAT} --dry-run --Werror
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMENT "clang-format check of the tracked sources")
endif()
