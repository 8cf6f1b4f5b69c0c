# many rounds at once
kennly_unit_test(HandOverStressTest LABEL stress
    WRAP pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(StopStressTest LABEL stress
    WRAP pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(TeardownStressTest LABEL stress
    WRAP pthread_create pthread_tryjoin_np pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(FileChangeStressTest LABEL stress
    WRAP pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(ExitStressTest LABEL stress WRAP syslog __syslog_chk)
# A process that ends while threads run which nobody will ever join is the point of this one. The thread
# sanitizer would also let each of its hundreds of processes sleep for a second at exit.
set_tests_properties(stress/ExitStressTest PROPERTIES
    ENVIRONMENT "TSAN_OPTIONS=report_thread_leaks=0:atexit_sleep_ms=10")
kennly_unit_test(ReloadStressTest LABEL stress
    WRAP pthread_mutex_lock pthread_mutex_unlock)
