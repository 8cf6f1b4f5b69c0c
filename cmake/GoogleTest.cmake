# GTest::gtest, GTest::gtest_main and GTest::gmock: the installed libraries, or built from source.
if(NOT KENNLY_GOOGLETEST_SOURCE)
    find_package(GTest REQUIRED)
    return()
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${KENNLY_GOOGLETEST_SOURCE} googletest EXCLUDE_FROM_ALL SYSTEM)
