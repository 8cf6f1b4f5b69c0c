# tests of src/config
kennly_unit_test(config/ConfigLoadTest WITH RecordedLog FailingAllocation)
kennly_unit_test(config/ConfigReloadTest WITH RecordedLog FailingAllocation)
kennly_unit_test(config/DogConfigTest WITH RecordedLog)
kennly_unit_test(config/ElementParserTest WITH RecordedLog)
kennly_unit_test(config/FileInspectionTest WITH FailingAllocation ObservedOpening WRAP read)
kennly_unit_test(config/FileTimeTest)
kennly_unit_test(config/GeneratedConfigurationTest WITH RecordedLog)
kennly_unit_test(config/HostileFileTest WITH RecordedLog)
target_compile_definitions(unit_config_HostileFileTest PRIVATE
    KENNLY_SAMPLES="${PROJECT_SOURCE_DIR}/samples")
kennly_unit_test(config/NumberTest)
kennly_unit_test(config/TheConfigTest WITH RecordedLog)
kennly_unit_test(config/XmlOutlineTest)

# What they keep, system/KeptAgreementTest has at least.
set_tests_properties(unit/config/ConfigLoadTest unit/config/HostileFileTest PROPERTIES
    FIXTURES_SETUP kept_configurations)
