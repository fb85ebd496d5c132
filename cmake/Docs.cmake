# The manual page, made from the command's help texts after every link of the
# command, and the bash completion; both installed with the command.
set(QH_MAN_PAGE ${PROJECT_BINARY_DIR}/quillhaven.1)
add_custom_command(TARGET quillhaven_cli POST_BUILD
  COMMAND ${CMAKE_COMMAND} -DCLI=$<TARGET_FILE:quillhaven_cli>
          -DTEMPLATE=${PROJECT_SOURCE_DIR}/docs/man/quillhaven.1.in -DOUTPUT=${QH_MAN_PAGE}
          -DVERSION=${PROJECT_VERSION} -P ${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake
  VERBATIM)
install(FILES ${QH_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/docs/completion/quillhaven
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
