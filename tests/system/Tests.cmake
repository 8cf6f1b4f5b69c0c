# Each starts the program in sandboxes of its own and mostly waits, so that all may run at once.
foreach(name
        StartTest RoleTest EndTest HeartbeatTest LoadTest ReloadTest RebuildTest BrokenFileTest
        MissingFileTest LoadErrorLimitTest CycleTest CheckTest ThrottleTest RemedyTest CommandTest
        TreeTest TreeSignalTest TreeHeartbeatTest TreeDeathTest TreeStopTest
        StubbornChildTest EarlySignalTest ProgramPathTest TreeFailureTest LostParentTest
        AllocationFailureTest BothHangTest ClockJumpTest DescriptorShortageTest DescriptorTest
        FileChangeTest FileFailureTest FileStaleTest FullDiskTest FullLogEndTest FullLogTest HangTest
        LateDateTest MemoryTest RecordFailureTest RecoveryTest RestartTreeTest SamplesTest ScaleTest
        ShellFailureTest SystemLogTest ThreadFailureTest ThreadStackTest)
    kennly_unit_test(${name} LABEL system)
endforeach()
# These wait the longest, and so are started first.
foreach(name
        RecoveryTest BothHangTest RestartTreeTest HangTest FileChangeTest FileStaleTest FullLogTest
        FullLogEndTest FileFailureTest ScaleTest LateDateTest)
    set_tests_properties(system/${name} PROPERTIES COST 1000)
endforeach()

# system_preload(<name> <library> <constant>): has the test know the path of a library that it loads into
# the program.
function(system_preload name library constant)
    target_compile_definitions(system_${name} PRIVATE ${constant}="$<TARGET_FILE:${library}>")
    add_dependencies(system_${name} ${library})
endfunction()

# What the program closes stays open for longer.
add_library(kennly_slow_close MODULE SlowClose.cpp)
target_link_libraries(kennly_slow_close PRIVATE kennly_flags)
system_preload(DescriptorTest kennly_slow_close KENNLY_SLOW_CLOSE)

# Calls that fail or take long.
add_library(kennly_hampered_calls MODULE HamperedCalls.cpp)
target_link_libraries(kennly_hampered_calls PRIVATE kennly_flags)
foreach(name
        EarlySignalTest LostParentTest ThreadFailureTest ThreadStackTest TreeFailureTest TreeTest)
    system_preload(${name} kennly_hampered_calls KENNLY_HAMPERED_CALLS)
endforeach()

# Allocations that fail, and pauses that are shorter.
add_library(kennly_failing_memory MODULE FailingMemory.cpp)
target_link_libraries(kennly_failing_memory PRIVATE kennly_flags)
foreach(name AllocationFailureTest MemoryTest)
    system_preload(${name} kennly_failing_memory KENNLY_FAILING_MEMORY)
endforeach()

# Calls that fail for a time, and a clock that jumps.
add_library(kennly_faulty_calls MODULE FaultyCalls.cpp)
target_link_libraries(kennly_faulty_calls PRIVATE kennly_flags)
foreach(name
        ClockJumpTest FileFailureTest LateDateTest RecordFailureTest ShellFailureTest ThreadFailureTest
        ThreadStackTest)
    system_preload(${name} kennly_faulty_calls KENNLY_FAULTY_CALLS)
endforeach()

# It installs what has been built.
target_compile_definitions(system_SamplesTest PRIVATE
    KENNLY_CMAKE="${CMAKE_COMMAND}" KENNLY_BUILD="${PROJECT_BINARY_DIR}")

# Two programs of different word sizes, with the same records.
if(KENNLY_OTHER_PROGRAM)
    kennly_unit_test(RecordExchangeTest LABEL system)
    target_compile_definitions(system_RecordExchangeTest PRIVATE
        KENNLY_OTHER_PROGRAM="${KENNLY_OTHER_PROGRAM}")
endif()

# The second program, beside the first.
find_package(nlohmann_json REQUIRED)
foreach(name
        CtlCheckTest CtlApplyTest CtlApplyRefusalTest CtlBlockTest CtlStartTest CtlStopTest
        CtlStatusTest CtlStatusTreeTest CtlStatusConfigTest CtlStatusJobTest CtlStatusFormatTest
        CtlStatusUserTest CtlTestTest CtlTestRemedyTest CtlSurroundingsTest)
    kennly_unit_test(${name} LABEL system)
    target_compile_definitions(system_${name} PRIVATE KENNLY_CTL="$<TARGET_FILE:kennlyctl>")
    target_link_libraries(system_${name} PRIVATE nlohmann_json::nlohmann_json)
    add_dependencies(system_${name} kennlyctl)
endforeach()
foreach(name CtlApplyTest CtlStopTest CtlStatusConfigTest CtlStatusTreeTest)
    set_tests_properties(system/${name} PROPERTIES COST 1000)  # as above
endforeach()
foreach(name CtlStartTest CtlStatusConfigTest CtlStopTest)
    system_preload(${name} kennly_hampered_calls KENNLY_HAMPERED_CALLS)
endforeach()
