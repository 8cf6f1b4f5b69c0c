# Tests of src/lint.
foreach(name
        ConfigTextTest FileContentTest FindingTest LogRecorderTest ShellOutlineTest
        TextPositionsTest Utf8Test WordingTest WordsTest)
    kennly_unit_test(lint/${name} CTL)
endforeach()
kennly_unit_test(lint/ShellSyntaxTest CTL WRAP posix_spawn)
