# Run by CPack on the tree that it packs: what Debian asks for besides.
set(root ${CMAKE_INSTALL_PREFIX})
