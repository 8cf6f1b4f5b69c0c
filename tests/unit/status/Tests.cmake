# Tests of src/status, and what stands in for the daemon in some of them. Without sanitizers: they would add
# threads of their own.
add_executable(kennly_stand_in status/StandIn.cpp)
target_compile_options(kennly_stand_in PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
target_link_libraries(kennly_stand_in PRIVATE Threads::Threads)

# kennly_needs_stand_in(<test>...)
function(kennly_needs_stand_in)
    foreach(test IN LISTS ARGN)
        add_dependencies(unit_${test} kennly_stand_in)
        target_compile_definitions(unit_${test} PRIVATE KENNLY_STAND_IN="$<TARGET_FILE:kennly_stand_in>")
    endforeach()
endfunction()

foreach(name
        DaemonLogTest DaemonProcessesTest HeartbeatFileTest JobStateTest ProblemsTest ProcFileTest
        RunningCommandsTest SnapshotTest TreeStateTest)
    kennly_unit_test(status/${name} CTL)
endforeach()
kennly_needs_stand_in(status_DaemonProcessesTest status_ProcFileTest status_RunningCommandsTest
    status_SnapshotTest status_TreeStateTest)
