# Tests of src/ctl.
foreach(name
        ChangeLockTest FindJobTest HeldSignalsTest JsonTest OutputTest ReplacementTest StatusJsonTest
        StatusMetricsTest StatusTextTest TimeTest UptakeWatchTest)
    kennly_unit_test(ctl/${name} CTL)
endforeach()
kennly_needs_stand_in(ctl_FindJobTest ctl_UptakeWatchTest)
target_link_libraries(unit_ctl_OutputTest PRIVATE util)
