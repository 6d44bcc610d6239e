# tavrik::warnings: the warnings that every target of this tree is built with. A constructor's
# parameter has the name of the field that it fills. Clang's -Wshadow accepts this; of GCC's, only
# -Wshadow=local does.
add_library(warnings INTERFACE)
add_library(tavrik::warnings ALIAS warnings)
target_compile_options(warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
    $<$<BOOL:${TAVRIK_WERROR}>:-Werror>)
