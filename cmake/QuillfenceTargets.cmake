# Flags and helper functions shared by every target of the tree.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
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
                                          -Werror)
# g++ 12 sees overlapping copies in its own std::string where there are none.
target_compile_options(qf_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# The C99 formatted output of mingw-w64 instead of the old runtime's, so that %zu, %lld and the
# count of a cut text are the same on both builds.
if(WIN32)
    target_compile_definitions(qf_flags INTERFACE __USE_MINGW_ANSI_STDIO=1 _WIN32_WINNT=0x0601)
    target_link_options(qf_flags INTERFACE -static -static-libgcc -static-libstdc++
                                           -Wl,--stack,8388608)
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

# qf_library(<target> SOURCES ... [DEPENDS ...])
# A folder of the product: a static library that exports its own folder as include path and
# nothing else. DEPENDS are the folders it may use; their include paths come along.
function(qf_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE qf_flags)
    target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti)
endfunction()

# qf_room(<target> SOURCES ... [DEPENDS ...])
# A folder that is written with the standard library's owners: as qf_library, but compiled with
# exceptions.
function(qf_room name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE qf_flags)
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
    target_link_libraries(${name}_test PRIVATE ${ARG_LIBRARIES} qf_test_support qf_flags)
    add_test(NAME ${name} COMMAND ${name}_test ${ARG_ARGUMENTS})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
    if(ARG_ENVIRONMENT)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${ARG_ENVIRONMENT}")
    endif()
    if(WIN32)
        set_tests_properties(${name} PROPERTIES RESOURCE_LOCK drive_c)
    endif()
endfunction()
