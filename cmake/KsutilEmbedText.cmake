# Compiles a text file into the library.
#
#   ksutil_embed_text(<target> <file> <symbol>)
#
# defines `extern const char <symbol>[]` in namespace ksutil::embedded, holding the text
# of <file> with a final NUL.  The text is written as string literals of one line each.
function(ksutil_embed_text target file symbol)
  get_filename_component(path ${file} ABSOLUTE)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/${symbol}.cpp)
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -DINPUT=${path} -DOUTPUT=${out} -DSYMBOL=${symbol}
            -P ${PROJECT_SOURCE_DIR}/cmake/EmbedText.cmake
    DEPENDS ${path} ${PROJECT_SOURCE_DIR}/cmake/EmbedText.cmake
    COMMENT "Embedding ${file}")
  # The target may belong to another directory, which does not see the rule above.
  add_custom_target(embed_${symbol} DEPENDS ${out})
  add_dependencies(${target} embed_${symbol})
  set_source_files_properties(${out} TARGET_DIRECTORY ${target} PROPERTIES GENERATED TRUE)
  target_sources(${target} PRIVATE ${out})
endfunction()
