# qf_windows_resources(<program> <description>)
# Gives a Windows program its version resource and the message resource with the text of our
# events, so that the program itself can be registered as the event source's message file. Does
# nothing for other systems.
function(qf_windows_resources program description)
    if(NOT WIN32)
        return()
    endif()
    set(sources "${PROJECT_SOURCE_DIR}/platform/win32/resources")
    set(made "${CMAKE_CURRENT_BINARY_DIR}/resources")
    file(MAKE_DIRECTORY "${made}")
    find_program(QUILLFENCE_WINDMC x86_64-w64-mingw32-windmc REQUIRED)
    add_custom_command(
        OUTPUT "${made}/messages.rc" "${made}/messages.h"
        COMMAND "${QUILLFENCE_WINDMC}" -h "${made}" -r "${made}" "${sources}/messages.mc"
        DEPENDS "${sources}/messages.mc"
        VERBATIM)
    set(QF_PROGRAM ${program})
    set(QF_DESCRIPTION "${description}")
    configure_file("${sources}/program.rc.in" "${made}/${program}.rc" @ONLY)
    set_source_files_properties("${made}/${program}.rc" PROPERTIES
        OBJECT_DEPENDS "${made}/messages.rc"
        LANGUAGE RC
        COMPILE_OPTIONS "-I${made}")
    target_sources(${program} PRIVATE "${made}/${program}.rc")
endfunction()
