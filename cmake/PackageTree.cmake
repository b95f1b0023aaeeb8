# cpack and scripts/support.sh run this on an installed tree, before they make a package of it. It adds what
# only packages have. The tree is that of quendil, of quendil-tools, or for the archive of both.
set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(source ${CPACK_QUENDIL_SOURCE_DIR})
set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# Compresses without name and time, so that the same input gives the same file.
function(compress file)
  execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Puts a program on the path, in this directory.
function(link program directory)
  file(MAKE_DIRECTORY ${tree}${directory})
  file(CREATE_LINK /opt/norvale/quendil/bin/${program} ${tree}${directory}/${program} SYMBOLIC)
endfunction()

# Adds the documents of a package.
function(document package)
  set(documents ${tree}/usr/share/doc/${package})
  file(COPY ${source}/packaging/copyright ${source}/CHANGELOG.md
    DESTINATION ${documents} FILE_PERMISSIONS ${readable})
  file(RENAME ${documents}/CHANGELOG.md ${documents}/NEWS)
  compress(${documents}/NEWS)
endfunction()

# Only root can run quendil; every user can run the companion commands.
if(EXISTS ${tree}/opt/norvale/quendil/bin/quendil)
  link(quendil /usr/sbin)
  document(quendil)
endif()
file(GLOB companions RELATIVE ${tree}/opt/norvale/quendil/bin ${tree}/opt/norvale/quendil/bin/quendil-*)
foreach(companion ${companions})
  link(${companion} /usr/bin)
endforeach()
if(companions)
  document(quendil-tools)
endif()

file(GLOB pages ${tree}/usr/share/man/*/*[0-9])
foreach(page ${pages})
  compress(${page})
endforeach()

# A package is for one family of distributions, the archive for all: of the directories of zsh's completions a
# package has the one that zsh reads there.
if(CPACK_GENERATOR STREQUAL "DEB")
  file(REMOVE_RECURSE ${tree}/usr/share/zsh/site-functions)
elseif(CPACK_GENERATOR STREQUAL "RPM")
  file(REMOVE_RECURSE ${tree}/usr/share/zsh/vendor-completions)
endif()

# The installation prefix: it is empty.
file(REMOVE_RECURSE ${tree}/usr/local)

# All files below /etc are configuration: an upgrade keeps those that were edited.
file(GLOB_RECURSE configuration RELATIVE ${tree} ${tree}/etc/*)
list(SORT configuration)
list(TRANSFORM configuration PREPEND /)
if(CPACK_GENERATOR STREQUAL "RPM")
  set(CPACK_ABSOLUTE_DESTINATION_FILES)  # each of them would become configuration
  list(TRANSFORM configuration PREPEND "%config(noreplace) ")
  set(CPACK_RPM_USER_FILELIST ${configuration})
elseif(CPACK_GENERATOR STREQUAL "DEB" AND configuration)
  list(JOIN configuration "\n" conffiles)
  set(control ${CPACK_TOPLEVEL_DIRECTORY}/control)
  file(WRITE ${control}/conffiles "${conffiles}\n")
  file(GLOB scripts ${source}/packaging/deb/*)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${control}/conffiles ${scripts})
endif()

if(CPACK_PACKAGE_NAME STREQUAL "quendil-tools")
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "quendil (>= ${CPACK_PACKAGE_VERSION})")
  set(CPACK_RPM_PACKAGE_REQUIRES "quendil >= ${CPACK_PACKAGE_VERSION}")
endif()
