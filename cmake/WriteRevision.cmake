# Writes OUTPUT from TEMPLATE with the revision of the checkout at SOURCE_DIR.
set(REVISION_ID "0000000")
set(REVISION_TIME "Thu, 1 Jan 1970 00:00:00 +0000")

# Ignores a repository in a parent folder, which belongs to another project, but accepts one that
# belongs to another user.
cmake_path(GET SOURCE_DIR PARENT_PATH above)
set(ENV{GIT_CEILING_DIRECTORIES} ${above})
execute_process(COMMAND git -c safe.directory=${SOURCE_DIR} -C ${SOURCE_DIR}
                        log -1 --format=%H%n%cD
                OUTPUT_VARIABLE revision OUTPUT_STRIP_TRAILING_WHITESPACE
                RESULT_VARIABLE failed ERROR_QUIET)
if(NOT failed AND revision MATCHES "^([0-9a-f]+)\n(.+)$")
    set(REVISION_TIME "${CMAKE_MATCH_2}")
    string(SUBSTRING "${CMAKE_MATCH_1}" 0 7 REVISION_ID)
endif()

configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
