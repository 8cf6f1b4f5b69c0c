kennly_unit_test(main/ChildMainTest WITH RecordedLog RecordedPauses FailingAllocation
    WRAP pthread_create)
kennly_unit_test(main/CommandLineTest)
kennly_unit_test(main/DaemonTest WITH RecordedLog)
kennly_unit_test(main/DescriptorTest)
kennly_unit_test(main/HeartbeatTest WRAP open open64 TIMEOUT 10)
kennly_unit_test(main/LogTest WITH RecordedLog)
kennly_unit_test(main/SignalsTest)
# The forks exit without waiting for their pool threads. The thread sanitizer takes these for leaks, and
# lets each fork linger for a second in the hope of a race; a tenth is enough.
set_tests_properties(unit/main/ChildMainTest PROPERTIES
    ENVIRONMENT "TSAN_OPTIONS=report_thread_leaks=0:atexit_sleep_ms=100")
