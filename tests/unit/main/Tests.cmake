kennly_unit_test(main/ChildMainTest WITH RecordedLog RecordedPauses FailingAllocation
    WRAP pthread_create pthread_tryjoin_np nanosleep)
kennly_unit_test(main/CommandLineTest)
kennly_unit_test(main/DaemonTest WITH RecordedLog)
kennly_unit_test(main/DescriptorTest)
kennly_unit_test(main/HeartbeatTest WITH ObservedOpening TIMEOUT 60)
kennly_unit_test(main/LogTest WITH RecordedLog)
kennly_unit_test(main/ParentMainTest WITH RecordedLog WRAP waitpid waitid kill sleep usleep)
kennly_unit_test(main/ProcessTreeTest WITH RecordedLog WRAP fork execv prctl setsid)
kennly_unit_test(main/ReadToEndTest)
kennly_unit_test(main/SignalsTest)
# The forks exit without waiting for their pool threads. The thread sanitizer takes these for leaks, and
# lets each fork linger for a second in the hope of a race; a tenth is enough.
set_tests_properties(unit/main/ChildMainTest PROPERTIES
    ENVIRONMENT "TSAN_OPTIONS=report_thread_leaks=0:atexit_sleep_ms=100")
