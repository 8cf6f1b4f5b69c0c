# many rounds at once
kennly_unit_test(HandOverStressTest LABEL stress TIMEOUT 300
    WRAP pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(StopStressTest LABEL stress TIMEOUT 300
    WRAP pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(TeardownStressTest LABEL stress TIMEOUT 300
    WRAP pthread_create pthread_tryjoin_np pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(FileChangeStressTest LABEL stress TIMEOUT 300
    WRAP pthread_mutex_lock pthread_mutex_unlock)
kennly_unit_test(ExitStressTest LABEL stress TIMEOUT 300 WRAP syslog __syslog_chk)
# A process that ends while threads run which nobody will ever join is the point of this one. The thread
# sanitizer would also let each of its hundreds of processes sleep for a second at exit.
set_tests_properties(stress/ExitStressTest PROPERTIES
    ENVIRONMENT "TSAN_OPTIONS=report_thread_leaks=0:atexit_sleep_ms=10")
kennly_unit_test(ReloadStressTest LABEL stress TIMEOUT 300
    WRAP pthread_mutex_lock pthread_mutex_unlock)
