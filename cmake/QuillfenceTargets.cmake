# Flags and helper functions shared by every target of the tree.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# What is compiled behind a precompiled header: there g++ 12 sees its own std::string write over its
# end where it doesn't. ccache keeps such an object only when it may leave the header's macros and times
# to its content, and g++ has to show it that content.
set(qf_precompiled_options $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds>
                           $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache$")
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros
        ${CMAKE_CXX_COMPILER_LAUNCHER})
    list(APPEND qf_precompiled_options $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()
include(CheckPIESupported)
check_pie_supported()

if(QUILLFENCE_FUZZ)
    # Every line of the product reports to libFuzzer; the targets themselves bring its main.
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_compile_definitions(FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION)
    if(NOT QUILLFENCE_SANITIZE)
        set(QUILLFENCE_SANITIZE address,undefined)
    endif()
endif()
if(QUILLFENCE_SANITIZE)
    # Process-wide, so that GoogleTest is built the same way as our code.
    add_compile_options(-fsanitize=${QUILLFENCE_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${QUILLFENCE_SANITIZE})
endif()

# What all of our code is compiled with; outside code (GoogleTest, libmaxminddb) does not get it.
add_library(qf_flags INTERFACE)
target_compile_options(qf_flags INTERFACE -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow
                                          $<$<BOOL:${QUILLFENCE_WARNINGS_STOP}>:-Werror>)
# g++ 12 sees overlapping copies in its own std::string where there are none.
target_compile_options(qf_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# The C99 formatted output of mingw-w64 instead of the old runtime's, so that %zu, %lld and the
# count of a cut text are the same on both builds.
if(WIN32)
    target_compile_definitions(qf_flags INTERFACE __USE_MINGW_ANSI_STDIO=1 _WIN32_WINNT=0x0601)
    target_link_options(qf_flags INTERFACE -static -static-libgcc -static-libstdc++
                                           -Wl,--stack,8388608 -Wl,--no-insert-timestamp)
endif()

# Hardening. The sanitizers bring their own checks and do not go together with fortify.
target_compile_options(qf_flags INTERFACE -fstack-protector-strong)
if(NOT QUILLFENCE_SANITIZE)
    target_compile_options(qf_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                                              $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
if(WIN32)
    # The stack protector once more, so that its library (libssp) is linked.
    target_link_options(qf_flags INTERFACE -fstack-protector-strong
                                           -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
else()
    target_compile_options(qf_flags INTERFACE -fcf-protection=full -fstack-clash-protection)
    target_link_options(qf_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
endif()

if(QUILLFENCE_COVERAGE)
    target_compile_options(qf_flags INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(qf_flags INTERFACE --coverage)
endif()

# The rooms: every folder of sources, and the rooms whose headers it may include. What is said here is
# the only place that says it: CMake's include paths come from it, and qf_write_rooms() hands it to
# scripts/check-includes and to the test of the pages that draw it.

# qf_may_use(<folder> [DEPENDS <target>...] [TARGET <target>] [INCLUDE <folder>])
# Records a room: <folder>, as seen from the top of the tree, may use the rooms of these targets.
# TARGET is its library, when it has one, and INCLUDE where that has its headers.
function(qf_may_use folder)
    cmake_parse_arguments(ARG "" "TARGET;INCLUDE" "DEPENDS" ${ARGN})
    if(NOT ARG_INCLUDE)
        set(ARG_INCLUDE "${folder}")
    endif()
    set(uses "")
    foreach(target IN LISTS ARG_DEPENDS)
        get_property(used GLOBAL PROPERTY "QF_ROOM_OF_${target}")
        if(NOT used)
            message(FATAL_ERROR "${folder} depends on ${target}, which is no room above it")
        endif()
        list(APPEND uses "\"${used}\"")
    endforeach()
    list(JOIN uses ", " uses)
    if(ARG_TARGET)
        set_property(GLOBAL PROPERTY "QF_ROOM_OF_${ARG_TARGET}" "${folder}")
        set_property(GLOBAL APPEND PROPERTY QF_ROOM_TARGETS ${ARG_TARGET})
    endif()
    set_property(GLOBAL APPEND PROPERTY QF_ROOMS
        "{\"folder\": \"${folder}\", \"target\": \"${ARG_TARGET}\", \"include\": \"${ARG_INCLUDE}\", \"uses\": [${uses}]}")
endfunction()

# qf_every_room(<variable>)
# The targets of all rooms that were recorded so far.
function(qf_every_room variable)
    get_property(targets GLOBAL PROPERTY QF_ROOM_TARGETS)
    set(${variable} ${targets} PARENT_SCOPE)
endfunction()

# qf_room_sources(<variable> <target>...)
# The source files of these rooms, with their whole paths, for a test that compiles them in its own way.
function(qf_room_sources variable)
    set(all "")
    foreach(target IN LISTS ARGN)
        get_target_property(sources ${target} SOURCES)
        get_target_property(folder ${target} SOURCE_DIR)
        list(TRANSFORM sources PREPEND "${folder}/")
        list(APPEND all ${sources})
    endforeach()
    set(${variable} ${all} PARENT_SCOPE)
endfunction()

# qf_write_rooms()
# Writes all rooms, in the order in which they were recorded, into rooms.json of the build tree.
function(qf_write_rooms)
    get_property(rooms GLOBAL PROPERTY QF_ROOMS)
    list(JOIN rooms ",\n" rooms)
    file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/rooms.json" CONTENT "[\n@rooms@\n]\n" @ONLY)
endfunction()

# qf_room(<target> SOURCES ... [DEPENDS <target>...] [INCLUDE <subfolder>])
# A room: a static library of the current folder that exports its own folder as include path (its
# INCLUDE, when its headers lie there) and nothing else. DEPENDS are the rooms that it may use; their
# include paths come along. It is compiled with exceptions. Libraries from outside are no rooms;
# target_link_libraries() adds them.
function(qf_room name)
    cmake_parse_arguments(ARG "" "INCLUDE" "SOURCES;DEPENDS" ${ARGN})
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY "${PROJECT_SOURCE_DIR}"
               OUTPUT_VARIABLE folder)
    cmake_path(APPEND folder "${ARG_INCLUDE}" OUTPUT_VARIABLE include)
    string(REGEX REPLACE "/$" "" include "${include}")
    qf_may_use("${folder}" TARGET ${name} INCLUDE "${include}" DEPENDS ${ARG_DEPENDS})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/${include}")
    target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE qf_flags)
endfunction()

# qf_library(<target> SOURCES ... [DEPENDS ...] [INCLUDE ...])
# A room of the engine: nothing throws there, and nothing asks for a type at run time.
function(qf_library name)
    qf_room(${name} ${ARGN})
    target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti)
endfunction()

# qf_find_library(<variable> <name>)
# A library from outside: the static one where there is one, so that a program runs wherever it is put,
# or the system's shared one, which the system's updates mend.
function(qf_find_library variable name)
    if(NOT QUILLFENCE_SHARED_LIBRARIES)
        set(static lib${name}.a)
    endif()
    find_library(${variable} NAMES ${static} ${name} REQUIRED)
endfunction()

# qf_shipped(<program> <description>)
# A program that is shipped. The linker writes down what it took, into link-maps/<program>.map of the
# build tree: packaging/spdx/what-is-linked reads it.
function(qf_shipped program description)
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/link-maps")
    target_link_options(${program} PRIVATE "-Wl,-Map=${CMAKE_BINARY_DIR}/link-maps/${program}.map")
    if(NOT WIN32 AND NOT QUILLFENCE_SANITIZE)
        # Starting the replayer is most of its work: one library less to load.
        target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc)
    endif()
    qf_windows_resources(${program} "${description}")
endfunction()

# qf_test(<name> [SOURCES ...] LIBRARIES ... [ENVIRONMENT ...])
# One test program for one module: <name>_test.cpp unless SOURCES says otherwise. Every program
# owns the drive c: while it runs: on Windows there is only one.
function(qf_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;ENVIRONMENT;ARGUMENTS" ${ARGN})
    if(NOT ARG_SOURCES)
        set(ARG_SOURCES ${name}_test.cpp)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    add_executable(${name}_test ${ARG_SOURCES})
    target_link_libraries(${name}_test PRIVATE ${ARG_LIBRARIES} qf_test_support qf_test_owners qf_flags)
    if(TARGET qf_test_headers)
        target_precompile_headers(${name}_test REUSE_FROM qf_test_headers)
        target_compile_options(${name}_test PRIVATE ${qf_precompiled_options})
    endif()
    add_test(NAME ${name} COMMAND ${name}_test ${ARG_ARGUMENTS})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
    if(ARG_ENVIRONMENT)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${ARG_ENVIRONMENT}")
    endif()
    if(WIN32)
        set_tests_properties(${name} PROPERTIES RESOURCE_LOCK drive_c)
    endif()
endfunction()
