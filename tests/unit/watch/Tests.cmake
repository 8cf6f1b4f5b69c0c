kennly_unit_test(watch/CreateWatchTest)
kennly_unit_test(watch/DogCheckCommandWatchTest WITH RecordedLog FailingAllocation WRAP system)
kennly_unit_test(watch/DogWatchTest WITH RecordedLog)
kennly_unit_test(watch/ProcessWatchTest WITH RecordedLog)
