# tavrik::revision: the header "Revision.h" with the text of the checked-out revision. Every build
# reads the revision and rewrites the header only if it has changed.
add_custom_target(write-revision
    COMMAND ${CMAKE_COMMAND} -D SOURCE_DIR=${PROJECT_SOURCE_DIR}
            -D TEMPLATE=${PROJECT_SOURCE_DIR}/cmake/Revision.h.in
            -D OUTPUT=${PROJECT_BINARY_DIR}/generated/Revision.h
            -P ${PROJECT_SOURCE_DIR}/cmake/WriteRevision.cmake
    BYPRODUCTS ${PROJECT_BINARY_DIR}/generated/Revision.h
    COMMENT "Reading the revision")

add_library(revision INTERFACE)
add_library(tavrik::revision ALIAS revision)
target_include_directories(revision INTERFACE ${PROJECT_BINARY_DIR}/generated)
add_dependencies(revision write-revision)
