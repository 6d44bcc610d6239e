# tavrik::warnings: the warnings that every target of this tree is built with. A constructor's
# parameter has the name of the field that it fills; only GCC can tell that from other shadowing.
add_library(warnings INTERFACE)
add_library(tavrik::warnings ALIAS warnings)
target_compile_options(warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
    $<$<BOOL:${TAVRIK_WERROR}>:-Werror>)
