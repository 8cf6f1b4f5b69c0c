# kennly_symbol(<function> <variable>)
#
# Sets the variable to the name of the symbol that a call of a C function refers to: in 32 bit, those that
# take 64-bit times have another one. Knows the functions that tests replace so far.
function(kennly_symbol function variable)
    set(${variable} ${function} PARENT_SCOPE)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        if(function STREQUAL "time" OR function STREQUAL "nanosleep")
            set(${variable} __${function}64 PARENT_SCOPE)
        elseif(function STREQUAL "prctl")
            set(${variable} __prctl_time64 PARENT_SCOPE)
        endif()
    endif()
endfunction()

# kennly_unit_test(<folder>/<Name>Test [WRAP function...] [WITH stand-in...] [TIMEOUT seconds] [LABEL label] [CTL])
#
# One executable and one CTest entry from <folder>/<Name>Test.cpp below the current directory. The target
# kennly_tests_<label> builds all of a label: unit (the default), system or stress.
# WRAP:  C functions that the test replaces when linking; it defines __wrap_<function>, and may call
#        __real_<function>, whatever the symbol is.
# WITH:  stand-ins of tests/support: RecordedLog (records what goes to the system log), RecordedPauses
#        (records pauses instead of sleeping), FailingAllocation (makes operator new fail on demand),
#        ScriptedShell (records the command lines of system() and answers them on demand), ObservedOpening
#        (records how files are opened).
# CTL:   for what kennlyctl has and the daemon has not.
function(kennly_unit_test path)
    cmake_parse_arguments(ARG "CTL" "TIMEOUT;LABEL" "WRAP;WITH" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 600)  # ends what hangs, however slow the machine
    endif()
    if(NOT ARG_LABEL)
        set(ARG_LABEL unit)
    endif()
    string(REPLACE "/" "_" target ${ARG_LABEL}_${path})
    get_filename_component(name ${path} NAME)

    add_executable(${target} ${path}.cpp)
    foreach(stand_in IN LISTS ARG_WITH)
        target_link_libraries(${target} PRIVATE kennly_${stand_in})
    endforeach()
    foreach(function IN LISTS ARG_WRAP)
        kennly_symbol(${function} symbol)
        target_link_options(${target} PRIVATE -Wl,--wrap=${symbol})
        if(NOT symbol STREQUAL function)
            target_compile_definitions(${target} PRIVATE
                __wrap_${function}=__wrap_${symbol} __real_${function}=__real_${symbol})
        endif()
    endforeach()
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    if(ARG_CTL)
        target_link_libraries(${target} PRIVATE kennlyctlcore)
    endif()
    target_link_libraries(${target} PRIVATE kennlycore GTest::gmock GTest::gtest GTest::gtest_main)
    if(ARG_LABEL STREQUAL "system")
        target_link_libraries(${target} PRIVATE kennly_sandbox)
        target_compile_definitions(${target} PRIVATE
            KENNLY_PROGRAM="$<TARGET_FILE:kennly>" KENNLY_SAMPLES="${PROJECT_SOURCE_DIR}/samples")
        add_dependencies(${target} kennly)
    endif()
    add_dependencies(kennly_tests_${ARG_LABEL} ${target})
    target_precompile_headers(${target} REUSE_FROM kennly_test_headers)
    add_test(NAME ${ARG_LABEL}/${path} COMMAND ${target})
    set_tests_properties(${ARG_LABEL}/${path} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT})
    kennly_keep_configurations(${ARG_LABEL}/${path})
endfunction()

# kennly_keep_configurations(<test>)
#
# Has a test keep the configurations that it writes, for system/KeptAgreementTest, which runs after it.
set(KENNLY_CONFIGURATIONS ${PROJECT_BINARY_DIR}/configurations)
file(MAKE_DIRECTORY ${KENNLY_CONFIGURATIONS})
function(kennly_keep_configurations test)
    string(REPLACE "/" "_" file ${test})
    set_property(TEST ${test} APPEND PROPERTY
        ENVIRONMENT_MODIFICATION KENNLY_CONFIGURATIONS=set:${KENNLY_CONFIGURATIONS}/${file})
    set_property(GLOBAL APPEND PROPERTY kennly_tests_that_keep ${test})
endfunction()
