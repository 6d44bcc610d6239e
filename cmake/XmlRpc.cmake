# tavrik::xmlrpc (values and XML only), tavrik::xmlrpc-server and tavrik::xmlrpc-client: the XML-RPC
# library. The linker flags come from its own configuration program, because it has no pkg-config or
# CMake package.
find_program(XMLRPC_C_CONFIG xmlrpc-c-config REQUIRED)

function(tavrik_add_xmlrpc name)
    execute_process(COMMAND ${XMLRPC_C_CONFIG} c++2 ${ARGN} --libs
                    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
                    COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags)
    # The client library already links curl; linking it here would need curl's development package.
    list(REMOVE_ITEM flags -lcurl)
    add_library(${name} INTERFACE)
    add_library(tavrik::${name} ALIAS ${name})
    target_link_libraries(${name} INTERFACE ${flags})
endfunction()

tavrik_add_xmlrpc(xmlrpc)
tavrik_add_xmlrpc(xmlrpc-server abyss-server)
tavrik_add_xmlrpc(xmlrpc-client client)
