# kestro_program(NAME SUMMARY): installs the program NAME with its bash completion and with a man page,
# which help2man makes from the output of --help. SUMMARY is the page's one-line description.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
  message(STATUS "help2man was not found: the programs get no man pages")
endif()

function(kestro_program name summary)
  set_target_properties(${name} PROPERTIES INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
  install(TARGETS ${name} RUNTIME COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/programs/completion.bash RENAME ${name}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  # A sanitizer's program cannot be relied on to run while it is built.
  if(HELP2MAN AND NOT KESTRO_SANITIZE)
    add_custom_command(OUTPUT ${name}.1.gz
      # help2man finds the synopsis by "Usage:" and "or:". A shell runs what it is told to run.
      COMMAND ${HELP2MAN} --no-info --name=${summary} --version-string=${PROJECT_VERSION}
        "--help-option=--help | sed -e s/^usage:/Usage:/ -e 's/^       ${name}/  or:  ${name}/'"
        --output=${name}.1 $<TARGET_FILE:${name}>
      COMMAND gzip -9nf ${name}.1
      DEPENDS ${name} VERBATIM)
    add_custom_target(${name}-manual ALL DEPENDS ${name}.1.gz)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.1.gz
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endfunction()
