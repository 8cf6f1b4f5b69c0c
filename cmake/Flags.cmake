# The compiler and linker flags of every target of this project, as the interface library kennly_flags.
include(CheckPIESupported)
check_pie_supported()

add_library(kennly_flags INTERFACE)
target_compile_options(kennly_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
# Watched files may be larger than 2 GiB and dates later than January 2038, also in a 32-bit process.
target_compile_definitions(kennly_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

find_package(Threads REQUIRED)
target_link_libraries(kennly_flags INTERFACE Threads::Threads)

if(KENNLY_SANITIZE)
    target_compile_options(kennly_flags INTERFACE
        -fsanitize=${KENNLY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(kennly_flags INTERFACE -fsanitize=${KENNLY_SANITIZE})
endif()

# What the program alone is built with. What is shipped is hardened; _FORTIFY_SOURCE needs an optimising build.
add_library(kennly_program_flags INTERFACE)
if(KENNLY_SANITIZE_PROGRAM)
    target_compile_options(kennly_program_flags INTERFACE
        -fsanitize=${KENNLY_SANITIZE_PROGRAM} -fno-sanitize-recover=all)
    target_link_options(kennly_flags INTERFACE -fsanitize=${KENNLY_SANITIZE_PROGRAM})
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    target_compile_options(kennly_program_flags INTERFACE
        -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    target_link_options(kennly_flags INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()
