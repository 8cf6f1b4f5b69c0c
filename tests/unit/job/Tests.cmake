kennly_unit_test(config/AssignJobsTest WITH RecordedLog)
kennly_unit_test(job/DogJobTest)
kennly_unit_test(job/JobStepsTest WITH RecordedLog RecordedPauses FailingAllocation)
kennly_unit_test(job/ProcessJobTest WITH RecordedLog RecordedPauses)
