# Installation and the Debian package.
#
#   cmake --install build --prefix DIR     installs the programs, the module, the examples,
#                                          the systemd unit and the manual pages under DIR
#   cpack --config build/CPackConfig.cmake builds zolserver_VERSION_ARCH.deb (prefix /usr)
#
# Layout below the prefix:
#   bin/zolhost, bin/zolclient, bin/zoldatamanager
#   lib/zolserver/libzolserver.so          the module, in a folder of its own; zolhost looks
#                                          there when no module lies beside it
#   share/zolserver/examples/              the example application directory
#   share/man/man1/zolhost.1.gz, zolclient.1.gz, zoldatamanager.1.gz
#   share/doc/zolserver/README.md
#   lib/systemd/system/zolhost.service     runs zolhost on /var/lib/zolserver
#   lib/systemd/system/zoldatamanager.service  runs zoldatamanager on zolhost's link
#   lib/ARCH/wireshark/plugins/zol.lua     the Wireshark dissector of the page carousel

include(GNUInstallDirs)

set(ZOL_INSTALL_MODULEDIR "lib/zolserver")
set(ZOL_INSTALL_DATADIR "${CMAKE_INSTALL_DATADIR}/zolserver")
set(ZOL_INSTALL_UNITDIR "lib/systemd/system")

# zolhost finds the module from its own folder, so the installed tree can move as a whole.
file(RELATIVE_PATH zol_module_from_program
     "${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}"
     "${CMAKE_INSTALL_PREFIX}/${ZOL_INSTALL_MODULEDIR}/libzolserver.so")
if(TARGET zolhost_lib)
  target_compile_definitions(zolhost_lib PRIVATE ZOL_INSTALLED_MODULE="${zol_module_from_program}")
endif()

foreach(program zolhost zolclient zoldatamanager)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
install(TARGETS zolserver LIBRARY DESTINATION ${ZOL_INSTALL_MODULEDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples/ DESTINATION ${ZOL_INSTALL_DATADIR}/examples)
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The Wireshark dissector goes where Debian's Wireshark looks for Lua plugins of every
# version ("Global Lua Plugins" of tshark -G folders): /usr/lib/ARCH/wireshark/plugins.
# Below another prefix Wireshark does not look; ~/.local/lib/wireshark/plugins does.
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(ZOL_INSTALL_WIRESHARKDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}/wireshark/plugins")
else()
  set(ZOL_INSTALL_WIRESHARKDIR "lib/wireshark/plugins")
endif()
install(FILES ${CMAKE_SOURCE_DIR}/packaging/wireshark/zol.lua DESTINATION ${ZOL_INSTALL_WIRESHARKDIR})

# Manual pages, compressed as Debian keeps them.
foreach(page zolhost.1 zolclient.1 zoldatamanager.1)
  set(source ${CMAKE_SOURCE_DIR}/packaging/${page})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man)
  file(COPY_FILE ${source} ${CMAKE_BINARY_DIR}/man/${page} ONLY_IF_DIFFERENT)
  file(ARCHIVE_CREATE OUTPUT ${CMAKE_BINARY_DIR}/man/${page}.gz PATHS ${CMAKE_BINARY_DIR}/man/${page}
       FORMAT raw COMPRESSION GZip MTIME 0)
  install(FILES ${CMAKE_BINARY_DIR}/man/${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()

# The systemd units name their programs by absolute path, which is known only when installing:
# the prefix of the package (/usr) when CPack installs, else the prefix of the install.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/zolhost.service.in
                                                                 ${CMAKE_SOURCE_DIR}/packaging/zoldatamanager.service.in)
install(CODE "
  if(DEFINED CPACK_PACKAGING_INSTALL_PREFIX)
    set(ZOL_UNIT_PREFIX \"\${CPACK_PACKAGING_INSTALL_PREFIX}\")
  else()
    set(ZOL_UNIT_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  endif()
  set(ZOL_UNIT_PROGRAM \"\${ZOL_UNIT_PREFIX}/${CMAKE_INSTALL_BINDIR}/zolhost\")
  configure_file(\"${CMAKE_SOURCE_DIR}/packaging/zolhost.service.in\"
                 \"${CMAKE_BINARY_DIR}/zolhost.service\" @ONLY)
  set(ZOL_UNIT_PROGRAM \"\${ZOL_UNIT_PREFIX}/${CMAKE_INSTALL_BINDIR}/zoldatamanager\")
  configure_file(\"${CMAKE_SOURCE_DIR}/packaging/zoldatamanager.service.in\"
                 \"${CMAKE_BINARY_DIR}/zoldatamanager.service\" @ONLY)
")
install(FILES ${CMAKE_BINARY_DIR}/zolhost.service ${CMAKE_BINARY_DIR}/zoldatamanager.service
        DESTINATION ${ZOL_INSTALL_UNITDIR})

# The Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zolserver)
set(CPACK_PACKAGE_VENDOR "ZOL Server")
set(CPACK_PACKAGE_CONTACT "ZOL Server maintainers <zolserver@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "result distribution server of a race-timing installation")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
       "zolhost runs the ZOL Server module, which turns a site of page templates into\n"
       "numbered pages filled with live results and sends them round as a carousel over\n"
       "TCP, UDP multicast and serial lines. zolclient receives the carousel and rebuilds\n"
       "the pages.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The Debian dependencies come from the libraries the programs and the module link
# (dpkg-shlibdeps: libc, libstdc++, libgcc, zlib).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS systemd)
include(CPack)
