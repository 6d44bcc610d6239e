# tavrik::warnings: the warnings that every target of this tree is built with.
add_library(warnings INTERFACE)
add_library(tavrik::warnings ALIAS warnings)
target_compile_options(warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                          $<$<BOOL:${TAVRIK_WERROR}>:-Werror>)
