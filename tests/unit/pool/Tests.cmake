# tests of src/pool
kennly_unit_test(pool/ThreadPoolTest
    WITH RecordedLog FailingAllocation WRAP pthread_create pthread_tryjoin_np)
kennly_unit_test(pool/JobThreadTest
    WITH RecordedLog WRAP pthread_create pthread_cond_wait pthread_mutex_lock)
kennly_unit_test(pool/TaskRegistryTest WITH FailingAllocation)
kennly_unit_test(pool/WatchDogThreadPoolTest
    WITH RecordedLog FailingAllocation WRAP pthread_create pthread_tryjoin_np nanosleep)
kennly_unit_test(pool/SubmitTaskTest WITH RecordedLog FailingAllocation)
kennly_unit_test(pool/ResultTaskTest WRAP pthread_cond_broadcast)
kennly_unit_test(pool/JobProcessingTaskTest)
kennly_unit_test(pool/TaskQueueTest WITH RecordedLog RecordedPauses WRAP pthread_tryjoin_np)
kennly_unit_test(pool/JobQueueTest WITH RecordedLog FailingAllocation RecordedPauses)
