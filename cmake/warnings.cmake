# Flags of our own code. `zelka_flags` is linked by every target of the project and by nothing else.
add_library(zelka_flags INTERFACE)
target_compile_options(zelka_flags INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wimplicit-fallthrough
    -fno-omit-frame-pointer -fstack-protector-strong)
target_compile_definitions(zelka_flags INTERFACE
    $<$<CONFIG:RelWithDebInfo>:_FORTIFY_SOURCE=2>)
target_include_directories(zelka_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_link_options(zelka_flags INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed)

# Paths in messages and traces are relative to the project, wherever it was built. A compiler cache may pass paths
# that are relative to the build folder.
file(RELATIVE_PATH from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
target_compile_options(zelka_flags INTERFACE
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${from_build}=)
# So they are in debug information where it is shipped: the same sources give the same bytes, and a debugger that is
# started in the project's folder finds them. What is given last goes first.
target_compile_options(zelka_flags INTERFACE $<$<CONFIG:RelWithDebInfo>:
    -fdebug-prefix-map=${PROJECT_SOURCE_DIR}/=
    -fdebug-prefix-map=${from_build}=
    -fdebug-prefix-map=${PROJECT_BINARY_DIR}=.
    -fdebug-prefix-map=${PROJECT_BINARY_DIR}/=>)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(zelka_flags INTERFACE -Wthread-safety)
endif()

if(ZELKA_SANITIZE)
    # The check of types at run time (vptr) reads the process's memory map through a descriptor, and
    # misjudges where a test leaves none free.
    target_compile_options(zelka_flags INTERFACE
        -fsanitize=${ZELKA_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all -U_FORTIFY_SOURCE)
    target_link_options(zelka_flags INTERFACE -fsanitize=${ZELKA_SANITIZE})
endif()

if(ZELKA_FUZZ)
    target_compile_options(zelka_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
