# Before cpack packs: what is installed has the modes of the distribution, whatever the umask of the one who packs.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
