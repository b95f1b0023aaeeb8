# What is installed, with owners and modes that do not depend on the umask. All directories are fixed: the
# prefix is ignored, DESTDIR is not. The component tools is what belongs to the companion commands.
set(QUENDIL_PROGRAM_DIR /opt/norvale/quendil)
set(QUENDIL_VARIABLE_DIR /var/opt/norvale/quendil)
set(QUENDIL_CONFIG_DIR /etc/opt/norvale/quendil)

set(world_readable_directory
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(private_directory OWNER_READ OWNER_WRITE OWNER_EXECUTE)
set(world_readable_file OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${world_readable_directory})

# Collected data is secret: only root can read logs and data.
install(DIRECTORY DESTINATION ${QUENDIL_VARIABLE_DIR} DIRECTORY_PERMISSIONS ${private_directory})
install(DIRECTORY DESTINATION ${QUENDIL_VARIABLE_DIR}/data DIRECTORY_PERMISSIONS ${private_directory})
install(DIRECTORY DESTINATION ${QUENDIL_VARIABLE_DIR}/log DIRECTORY_PERMISSIONS ${private_directory})

foreach(directory "" /bin /tool /template)
  install(DIRECTORY DESTINATION ${QUENDIL_PROGRAM_DIR}${directory}
    DIRECTORY_PERMISSIONS ${world_readable_directory})
endforeach()
foreach(directory "" /config /pattern)
  install(DIRECTORY DESTINATION ${QUENDIL_CONFIG_DIR}${directory}
    DIRECTORY_PERMISSIONS ${world_readable_directory})
endforeach()

install(TARGETS quendil RUNTIME DESTINATION ${QUENDIL_PROGRAM_DIR}/bin
  PERMISSIONS ${world_readable_directory})

file(GLOB patterns CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/patterns/*)
install(FILES ${patterns} DESTINATION ${QUENDIL_CONFIG_DIR}/pattern
  PERMISSIONS ${world_readable_file})

# The commands through which the shipped patterns run their tools, and templates of pattern files. A file that
# ends with ".sh" is not a command, but a part that several commands include.
file(GLOB tools CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/*)
file(GLOB parts CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/*.sh)
list(REMOVE_ITEM tools ${parts})
install(PROGRAMS ${tools} DESTINATION ${QUENDIL_PROGRAM_DIR}/tool
  PERMISSIONS ${world_readable_directory})
install(FILES ${parts} DESTINATION ${QUENDIL_PROGRAM_DIR}/tool
  PERMISSIONS ${world_readable_file})
install(TARGETS escape mask show RUNTIME DESTINATION ${QUENDIL_PROGRAM_DIR}/tool
  PERMISSIONS ${world_readable_directory})
file(GLOB templates CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/templates/*)
install(FILES ${templates} DESTINATION ${QUENDIL_PROGRAM_DIR}/template
  PERMISSIONS ${world_readable_file})

if(QUENDIL_TOOLS)
  install(TARGETS ${QUENDIL_COMPANIONS} RUNTIME DESTINATION ${QUENDIL_PROGRAM_DIR}/bin
    PERMISSIONS ${world_readable_directory} COMPONENT tools)
endif()

# Existing configuration files are kept: they may have been edited.
install(CODE "
  foreach(name quendil_conf quendil_unattended)
    set(config \"\$ENV{DESTDIR}${QUENDIL_CONFIG_DIR}/config/\${name}\")
    if(EXISTS \"\${config}\")
      message(STATUS \"Kept: \${config}\")
    else()
      file(INSTALL DESTINATION \"${QUENDIL_CONFIG_DIR}/config\" TYPE FILE
        PERMISSIONS ${world_readable_file}
        FILES \"${PROJECT_SOURCE_DIR}/config/\${name}\")
    endif()
  endforeach()
")

# Units of systemd, which nothing enables, and the directories that systemd-tmpfiles makes.
file(GLOB units CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/systemd/*.service
  ${PROJECT_SOURCE_DIR}/systemd/*.timer)
install(FILES ${units} DESTINATION /usr/lib/systemd/system PERMISSIONS ${world_readable_file})
install(FILES ${PROJECT_SOURCE_DIR}/systemd/tmpfiles.conf DESTINATION /usr/lib/tmpfiles.d RENAME quendil.conf
  PERMISSIONS ${world_readable_file})

# The directories belong to root, even if one of them existed before.
install(CODE "
  execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(uid EQUAL 0)
    foreach(tree ${QUENDIL_PROGRAM_DIR} ${QUENDIL_VARIABLE_DIR} ${QUENDIL_VARIABLE_DIR}/data
        ${QUENDIL_VARIABLE_DIR}/log ${QUENDIL_CONFIG_DIR})
      execute_process(COMMAND chown root:root \"\$ENV{DESTDIR}\${tree}\" COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    foreach(tree ${QUENDIL_PROGRAM_DIR} ${QUENDIL_CONFIG_DIR})
      execute_process(COMMAND chown -R root:root \"\$ENV{DESTDIR}\${tree}\" COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
  endif()
")

# Sets `component` to that of a manual page or a completion: the names of companion commands begin alike.
function(find_component file)
  get_filename_component(name ${file} NAME)
  if(name MATCHES "^_?quendil-")
    set(component tools PARENT_SCOPE)
  else()
    set(component Unspecified PARENT_SCOPE)
  endif()
endfunction()

# Manual pages and completions are where man and the shells search for them.
set(QUENDIL_SHARE_DIR /usr/share)
file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*)
file(GLOB completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/completions/*.bash)
file(GLOB zsh_completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/completions/zsh/*)
file(GLOB fish_completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/completions/fish/*)
if(NOT QUENDIL_TOOLS)
  list(FILTER pages EXCLUDE REGEX "/quendil-[^/]*$")
  list(FILTER completions EXCLUDE REGEX "/quendil-[^/]*$")
  list(FILTER zsh_completions EXCLUDE REGEX "/_quendil-[^/]*$")
  list(FILTER fish_completions EXCLUDE REGEX "/quendil-[^/]*$")
endif()
foreach(page ${pages})
  get_filename_component(section ${page} LAST_EXT)
  string(REPLACE . man section ${section})
  find_component(${page})
  install(FILES ${page} DESTINATION ${QUENDIL_SHARE_DIR}/man/${section}
    PERMISSIONS ${world_readable_file} COMPONENT ${component})
endforeach()
foreach(completion ${completions})
  get_filename_component(command ${completion} NAME_WLE)
  find_component(${completion})
  install(FILES ${completion} RENAME ${command} DESTINATION ${QUENDIL_SHARE_DIR}/bash-completion/completions
    PERMISSIONS ${world_readable_file} COMPONENT ${component})
endforeach()
# Zsh has the first directory on Debian, and the second one on other distributions.
foreach(completion ${zsh_completions})
  find_component(${completion})
  foreach(directory vendor-completions site-functions)
    install(FILES ${completion} DESTINATION ${QUENDIL_SHARE_DIR}/zsh/${directory}
      PERMISSIONS ${world_readable_file} COMPONENT ${component})
  endforeach()
endforeach()
# Fish has a directory for completions and one for the functions that they call, whose names begin with "__".
foreach(completion ${fish_completions})
  find_component(${completion})
  set(directory vendor_completions.d)
  if(completion MATCHES "/__[^/]*$")
    set(directory vendor_functions.d)
  endif()
  install(FILES ${completion} DESTINATION ${QUENDIL_SHARE_DIR}/fish/${directory}
    PERMISSIONS ${world_readable_file} COMPONENT ${component})
endforeach()
