# tavrik::warnings: the warning options of every target. Constructor parameters have the names of the
# fields that they fill; only GCC can allow that and still warn about other shadowing.
add_library(warnings INTERFACE)
add_library(tavrik::warnings ALIAS warnings)
target_compile_options(warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
    $<$<BOOL:${TAVRIK_WERROR}>:-Werror>)
