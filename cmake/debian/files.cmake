# Run by CPack on the tree that it packs: the files that Debian asks for besides.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX})
set(source ${CMAKE_CURRENT_LIST_DIR}/../..)
set(documents ${root}/share/doc/modla)

file(READ ${source}/NOTICE notice)
file(WRITE ${documents}/copyright "modLA is Copyright its developers, who have stated no licence for their own code yet.

${notice}
The GNU licences are in /usr/share/common-licenses/GPL-3, LGPL-3 and LGPL-2.1.
")

string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${documents}/changelog
  "modla (${CPACK_PACKAGE_VERSION}) stable; urgency=medium\n\n  * Version ${CPACK_PACKAGE_VERSION}.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${now}\n")
execute_process(COMMAND gzip -9nf ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)

configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${root}/share/lintian/overrides/modla COPYONLY)
