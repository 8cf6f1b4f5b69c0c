kennly_unit_test(watch/DogCheckCommandWatchTest WITH RecordedLog WRAP system)
