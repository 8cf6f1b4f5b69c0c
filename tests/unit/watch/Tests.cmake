kennly_unit_test(watch/CreateWatchTest)
kennly_unit_test(watch/DogCheckCommandWatchTest WITH RecordedLog FailingAllocation ScriptedShell)
kennly_unit_test(watch/DogCheckForFileChangeWatchTest
    WITH RecordedLog FailingAllocation ObservedOpening TIMEOUT 60)
kennly_unit_test(watch/DogCheckForNoFileChangeWatchTest
    WITH RecordedLog ObservedOpening WRAP time TIMEOUT 60)
kennly_unit_test(watch/DogWatchTest WITH RecordedLog)
kennly_unit_test(watch/ProcessWatchTest WITH RecordedLog)
kennly_unit_test(watch/SocketWatchesTest WITH RecordedLog)
kennly_unit_test(watch/ThrowingFileTimeTest WITH RecordedLog)
