# The packages that cpack makes of an installation: .deb and .rpm. CPackConfig.cmake describes quendil, and
# CPackToolsConfig.cmake, which is made of cmake/CPackToolsConfig.cmake.in, what quendil-tools has otherwise.
# cpack -R sets another version: packages of two versions show that an upgrade works.
set(CPACK_PACKAGE_NAME quendil)
set(CPACK_INSTALL_CMAKE_PROJECTS "${PROJECT_BINARY_DIR};quendil;Unspecified;/")
set(CPACK_PACKAGE_VENDOR "quendil project")
set(CPACK_PACKAGE_CONTACT "quendil project <quendil@quendil.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "collect system information for troubleshooting")
set(CPACK_PACKAGE_DESCRIPTION "\
quendil collects the information that a support engineer first asks for when
a Linux machine has a problem: it runs tools under time limits, copies files
and directories, lists every item in an index, and packs everything into one
compressed archive. Pattern files say what is collected.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON)  # all paths are fixed
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${world_readable_directory})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PackageTree.cmake)
set(CPACK_QUENDIL_SOURCE_DIR ${PROJECT_SOURCE_DIR})

# Static programs need no library, although the package tools would find some for them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_RPM_PACKAGE_AUTOREQ ON)
if(QUENDIL_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_RPM_PACKAGE_AUTOREQ OFF)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "tar, gzip")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS quendil-tools)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE Apache-2.0)
set(CPACK_RPM_PACKAGE_GROUP "Applications/System")
set(CPACK_RPM_PACKAGE_REQUIRES "tar, gzip")
set(CPACK_RPM_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
# The tree is already stripped and compressed, build IDs get no links outside of our directories, and the same
# tree gives the same package.
set(rpm_settings "%global __os_install_post %{nil}
%global _build_id_links none
%global _buildhost localhost
%global use_source_date_epoch_as_buildtime 1
%global clamp_mtime_to_source_date_epoch 1")
# CPack has no variable for what an rpm recommends.
set(CPACK_RPM_SPEC_MORE_DEFINE "${rpm_settings}\nRecommends: quendil-tools")
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/packaging/rpm/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/packaging/rpm/postun)
set(CPACK_RPM_POST_TRANS_SCRIPT_FILE ${PROJECT_SOURCE_DIR}/packaging/rpm/posttrans)
# Directories of the system, which the rpm would own otherwise.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /etc /etc/opt /opt /usr /usr/lib /usr/lib/systemd /usr/lib/systemd/system /usr/lib/tmpfiles.d
  /usr/sbin /usr/share /usr/share/doc /usr/share/man /usr/share/man/man5
  /usr/share/man/man7 /usr/share/man/man8 /usr/share/bash-completion
  /usr/share/bash-completion/completions /usr/share/zsh /usr/share/zsh/site-functions /usr/share/fish
  /usr/share/fish/vendor_completions.d /usr/share/fish/vendor_functions.d /var /var/opt)

set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
include(CPack)
configure_file(${PROJECT_SOURCE_DIR}/cmake/CPackToolsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CPackToolsConfig.cmake @ONLY)
