# Tests of src/lint.
foreach(name
        AttributeRulesTest CheckRulesTest CommandRulesTest FailureRulesTest JobRulesTest JobSelectionTest
        LintTest OwnershipRulesTest RemedyRulesTest StartedProgramsTest TreeRulesTest XmlRulesTest)
    kennly_unit_test(lint/${name} CTL)
endforeach()

# Those of what the rules stand on.
foreach(name
        ConfigTextTest DaemonVerdictTest FileContentTest FindingTest LogRecorderTest MachineTest
        ShellOutlineTest TextPositionsTest Utf8Test WordingTest WordsTest)
    kennly_unit_test(lint/${name} CTL)
endforeach()
kennly_unit_test(lint/ShellSyntaxTest CTL WRAP posix_spawn)
target_compile_definitions(unit_lint_LintTest PRIVATE KENNLY_SOURCES="${PROJECT_SOURCE_DIR}")
