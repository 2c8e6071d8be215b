# embed_text(TARGET FILE SYMBOL): the text of a file as `extern const char SYMBOL[]` in the target.
function(embed_text target file symbol)
    get_filename_component(path ${file} ABSOLUTE)
    file(READ ${path} text)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${symbol}.cpp)
    file(CONFIGURE OUTPUT ${source} @ONLY CONTENT
        "extern const char @symbol@[];\nconst char @symbol@[] = R\"embedded(@text@)embedded\";\n")
    target_sources(${target} PRIVATE ${source})
endfunction()
