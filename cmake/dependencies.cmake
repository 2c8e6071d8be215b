# The libraries that the project calls, each as one imported target.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(spdlog REQUIRED)
find_package(SQLiteCpp REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)

pkg_check_modules(Lua REQUIRED IMPORTED_TARGET lua5.2-c++)
pkg_check_modules(LibZip REQUIRED IMPORTED_TARGET libzip)
pkg_check_modules(Sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(Edit REQUIRED IMPORTED_TARGET libedit)
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET libsystemd)

# wxWidgets without its display half. wx-config answers with flags; headers are taken as system ones.
function(find_wx_base)
    execute_process(COMMAND wx-config --cxxflags base OUTPUT_VARIABLE flags
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND wx-config --libs base OUTPUT_VARIABLE libs
                    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    separate_arguments(libs UNIX_COMMAND "${libs}")
    add_library(wx::base INTERFACE IMPORTED GLOBAL)
    foreach(flag IN LISTS flags)
        if(flag MATCHES "^-I(.*)")
            target_include_directories(wx::base SYSTEM INTERFACE ${CMAKE_MATCH_1})
        elseif(flag MATCHES "^-D(.*)")
            target_compile_definitions(wx::base INTERFACE ${CMAKE_MATCH_1})
        else()
            target_compile_options(wx::base INTERFACE ${flag})
        endif()
    endforeach()
    # Strings convert explicitly only where bytes leave or enter; nothing depends on the locale.
    target_compile_definitions(wx::base INTERFACE wxNO_UNSAFE_WXSTRING_CONV=1)
    target_link_libraries(wx::base INTERFACE ${libs})
endfunction()
find_wx_base()
