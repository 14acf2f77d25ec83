# Programs that tests compare against, written against GNUstep's Foundation.
find_program(MOXEL_GNUSTEP_CONFIG gnustep-config)

# moxel_ask_gnustep(VARIABLE QUESTION): the words that gnustep-config answers.
function(moxel_ask_gnustep variable question)
    execute_process(COMMAND ${MOXEL_GNUSTEP_CONFIG} ${question}
        OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT answer) # It says nothing, and succeeds, where make is missing.
        message(FATAL_ERROR "${MOXEL_GNUSTEP_CONFIG} does not answer ${question}; is make installed?")
    endif()
    separate_arguments(words UNIX_COMMAND "${answer}")
    set(${variable} ${words} PARENT_SCOPE)
endfunction()

# moxel_add_gnustep_fixture(TARGET SOURCE MACRO): builds an Objective-C program and gives its path to the sources
# of TARGET as MACRO, "" where GNUstep is missing.
function(moxel_add_gnustep_fixture target source macro)
    if(NOT TARGET ${target})
        return()
    endif()
    get_filename_component(name "${source}" NAME_WE)
    set(program "")
    if(MOXEL_GNUSTEP_CONFIG)
        moxel_ask_gnustep(compiler --variable=CC)
        moxel_ask_gnustep(flags --objc-flags)
        moxel_ask_gnustep(libraries --base-libs)
        set(program "${CMAKE_CURRENT_BINARY_DIR}/${name}")
        add_custom_command(OUTPUT "${program}"
            COMMAND ${compiler} ${flags} "${CMAKE_CURRENT_SOURCE_DIR}/${source}"
                -o "${program}" ${libraries}
            DEPENDS "${source}"
            VERBATIM)
        add_custom_target(${name}_program DEPENDS "${program}")
        add_dependencies(${target} ${name}_program)
    endif()
    target_compile_definitions(${target} PRIVATE "${macro}=\"${program}\"")
endfunction()
