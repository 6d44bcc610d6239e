# tavrik::warnings: the warnings that every target of this tree is built with. A constructor's
# parameter has the name of the field that it fills, which -Wshadow=local accepts. Clang has no such
# option; its -Wshadow also reports names of other files, because a unity build joins all files of a
# target.
add_library(warnings INTERFACE)
add_library(tavrik::warnings ALIAS warnings)
target_compile_options(warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
    $<$<BOOL:${TAVRIK_WERROR}>:-Werror>)
