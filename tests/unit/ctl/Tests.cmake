# Tests of src/ctl.
foreach(name
        BlockVerbsTest ChangeLockTest FindJobTest HeldSignalsTest JsonTest OutputTest ReplacementTest StatusJsonTest StatusMetricsTest
        StatusTextTest StatusVerbTest TimeTest UptakeWatchTest VerbsTest)
    kennly_unit_test(ctl/${name} CTL)
endforeach()
kennly_needs_stand_in(ctl_BlockVerbsTest ctl_FindJobTest ctl_StatusVerbTest ctl_UptakeWatchTest)
target_link_libraries(unit_ctl_OutputTest PRIVATE util)
