# SPDX-License-Identifier: MIT
# One place for the flags that every target of ours is compiled with.
add_library(prod_flags INTERFACE)
target_compile_options(prod_flags INTERFACE
    -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wundef -Wcast-align
    -Wpointer-arith -Wvla -fno-strict-aliasing
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Woverloaded-virtual -Wextra-semi>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>
    $<$<BOOL:${PROD_WERROR}>:-Werror>
    # What ships must not tell where it was built, or two builds would differ.
    $<$<CONFIG:MinSizeRel>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>
    $<$<CONFIG:MinSizeRel>:-ffile-prefix-map=${CMAKE_BINARY_DIR}=build>)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # A file of more than 2 GiB is a file like any other on the device too. The tests say so as well:
    # where they stand in for open(), it is the one that the library calls.
    target_compile_definitions(prod_flags INTERFACE _FILE_OFFSET_BITS=64)
endif()

if(PROD_SANITIZE)
    add_compile_options(-fsanitize=${PROD_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${PROD_SANITIZE})
endif()

# Code of the two shared objects: no exceptions, no run-time type information, and nothing that
# needs libstdc++ or libgcc at run time.
add_library(prod_lib_flags INTERFACE)
target_link_libraries(prod_lib_flags INTERFACE prod_flags)
target_compile_options(prod_lib_flags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
    # Compilers that can tell how much stack each function takes do, for script/check-size; clang
    # knows no symbols that are one for the whole process, so it need not be told.
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique -fstack-usage>
    # Debug information goes no further than the build; script/check-abi reads types from it.
    $<$<CONFIG:MinSizeRel>:-g>
    -ffunction-sections -fdata-sections)
target_link_options(prod_lib_flags INTERFACE
    -static-libstdc++ -static-libgcc -Wl,--as-needed -Wl,--gc-sections
    -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
if(NOT PROD_SANITIZE)
    # A sanitizer's own symbols stay open until the program that links its run-time is loaded, and
    # that program must not hide them.
    target_link_options(prod_lib_flags INTERFACE -Wl,--no-undefined -Wl,--exclude-libs,ALL)
endif()
