# tests of src/sync
kennly_unit_test(sync/ReentrantLockTest)
kennly_unit_test(sync/AutoLockTest)
kennly_unit_test(sync/EventTest WRAP pthread_mutex_lock pthread_cond_wait pthread_cond_broadcast)
kennly_unit_test(sync/ThreadTest WITH RecordedLog WRAP pthread_create pthread_tryjoin_np)
kennly_unit_test(sync/ThreadStackTest
    WRAP pthread_getattr_default_np pthread_attr_setstacksize pthread_setattr_default_np)
kennly_unit_test(sync/WaiterTableTest WRAP prctl)
kennly_unit_test(sync/PauseTest WRAP sleep)
kennly_unit_test(sync/SharedSlotTest)
kennly_unit_test(sync/ForEverTest WITH FailingAllocation)
