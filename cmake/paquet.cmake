# Debian package of the daemon, for the appliance:
#   scripts/paquet.sh, or: cmake --build <build> && (cd <build> && cpack -G DEB)
# It holds /usr/bin/acquisitionradio (and every other program installed to
# bin), its systemd unit, its init script and the script's watcher,
# /etc/default and logrotate files, the manual pages, the copyright and the
# Debian changelog. The maintainer scripts do what debhelper's would.

# The one place of the maintainer field (also written into the changelog): a
# placeholder that the vendor replaces with its own address.
set(ACQUISITIONRADIO_MAINTENEUR "iTessalin radio acquisition <acquisition@itessalin.invalid>"
    CACHE STRING "Maintainer field of the Debian package")
set(ACQUISITIONRADIO_REVISION_DEB 1 CACHE STRING
    "Debian revision of the package, after the project's version")
set(ACQUISITIONRADIO_ARCHITECTURE_DEB "" CACHE STRING
    "Debian architecture of the package (empty: the target processor's, or dpkg's for a native build)")

# The architecture is the target's: a cross build for the ARM board gives armhf
# whatever the build machine is.
if(ACQUISITIONRADIO_ARCHITECTURE_DEB)
    set(_architecture_deb ${ACQUISITIONRADIO_ARCHITECTURE_DEB})
elseif(CMAKE_CROSSCOMPILING)
    string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" _processeur)
    if(_processeur MATCHES "^(arm|armv7.*|armhf)$")
        set(_architecture_deb armhf)
    elseif(_processeur MATCHES "^(aarch64|arm64)$")
        set(_architecture_deb arm64)
    elseif(_processeur MATCHES "^(x86_64|amd64)$")
        set(_architecture_deb amd64)
    elseif(_processeur MATCHES "^i.86$")
        set(_architecture_deb i386)
    else()
        message(WARNING "No Debian architecture known for the processor '${CMAKE_SYSTEM_PROCESSOR}': "
                        "set ACQUISITIONRADIO_ARCHITECTURE_DEB.")
        set(_architecture_deb ${_processeur})
    endif()
else()
    find_program(ACQUISITIONRADIO_DPKG dpkg)
    if(ACQUISITIONRADIO_DPKG)
        execute_process(COMMAND ${ACQUISITIONRADIO_DPKG} --print-architecture
                        OUTPUT_VARIABLE _architecture_deb OUTPUT_STRIP_TRAILING_WHITESPACE
                        ERROR_QUIET)
    endif()
endif()

# dpkg-shlibdeps reads the libraries' own package data, which a native build has;
# a cross build against an unpacked root does not, so it lists them itself.
find_program(ACQUISITIONRADIO_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(ACQUISITIONRADIO_DPKG_SHLIBDEPS AND NOT CMAKE_CROSSCOMPILING)
    set(_shlibdeps_defaut ON)
else()
    set(_shlibdeps_defaut OFF)
endif()
option(ACQUISITIONRADIO_PAQUET_SHLIBDEPS
       "Compute the package's library dependencies with dpkg-shlibdeps" ${_shlibdeps_defaut})

# The SQLite driver is a Qt plugin loaded by name at run time: no linker, and so
# no dpkg-shlibdeps, can see it. The init script's functions come from
# sysvinit-utils since Debian 12.
set(_dependances "libqt5sql5-sqlite (>= 5.15)" "sysvinit-utils (>= 3.05-4~)")
if(NOT ACQUISITIONRADIO_PAQUET_SHLIBDEPS)
    list(PREPEND _dependances libc6 libgcc-s1 libstdc++6 "libqt5core5a (>= 5.15)"
                 "libqt5sql5 (>= 5.15)")
endif()
list(JOIN _dependances ", " _dependances)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME acquisitionradio)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ACQUISITIONRADIO_REVISION_DEB})
set(CPACK_PACKAGE_CONTACT "${ACQUISITIONRADIO_MAINTENEUR}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "radio acquisition service of the iTessalin data logger")
# One line each in the control file, as dpkg shows them.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
    "Headless daemon that receives the UDP frames of the 6LoWPAN radio sensor"
    "modules through the border router's tunslip6 tunnel, keeps the modules'"
    "state in /var/base/hf.db and in shared memory, supervises the border"
    "router, and publishes each configured radio channel's value to the main"
    "application. Started at boot by its systemd unit, or by"
    "/etc/init.d/acquisitionradio without systemd, with the options of"
    "/etc/default/acquisitionradio; vueradio shows what it keeps and whether"
    "it is healthy.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
if(_architecture_deb)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${_architecture_deb})
endif()
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ${ACQUISITIONRADIO_PAQUET_SHLIBDEPS})
set(CPACK_DEBIAN_PACKAGE_DEPENDS "${_dependances}")
# The maintainer scripts' "invoke-rc.d --skip-systemd-native", as debhelper has it.
set(CPACK_DEBIAN_PACKAGE_PREDEPENDS "init-system-helpers (>= 1.54~)")
# ps gives the connection log its memory figure; logrotate keeps the logs small.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "procps, logrotate")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_IGNORE_FILES "/\\\\.git/" "/build[^/]*/" "/demo/")

# cpack packages what is built and compiles nothing: it also runs inside the
# test suite, beside test programs that a rebuild would replace under them.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

# The appliance's absolute paths; the programs go to <prefix>/bin, /usr/bin in
# the package.
set(_emballage ${PROJECT_SOURCE_DIR}/packaging)
install(PROGRAMS ${_emballage}/acquisitionradio.init DESTINATION /etc/init.d
        RENAME acquisitionradio)
install(PROGRAMS ${_emballage}/acquisitionradio.veille DESTINATION libexec/acquisitionradio
        RENAME veille)
install(FILES ${_emballage}/acquisitionradio.service DESTINATION /lib/systemd/system)
install(FILES ${_emballage}/acquisitionradio.default DESTINATION /etc/default
        RENAME acquisitionradio)
install(FILES ${_emballage}/acquisitionradio.logrotate DESTINATION /etc/logrotate.d
        RENAME acquisitionradio)
install(FILES ${_emballage}/debian/copyright DESTINATION share/doc/acquisitionradio)

# The changelog and the manual pages, compressed as Debian wants them (gzip -9,
# no name or time stamp inside), when the programs are built.
set(ACQUISITIONRADIO_VERSION_DEB ${PROJECT_VERSION}-${ACQUISITIONRADIO_REVISION_DEB})
set(ACQUISITIONRADIO_VERSION ${PROJECT_VERSION})
set(_documents)
foreach(_document debian/changelog.in:changelog.Debian man/acquisitionradio.8:acquisitionradio.8
                  man/vueradio.1:vueradio.1)
    string(REPLACE ":" ";" _document ${_document})
    list(GET _document 0 _source)
    list(GET _document 1 _nom)
    configure_file(${_emballage}/${_source} ${CMAKE_BINARY_DIR}/paquet/${_nom} @ONLY)
    add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/paquet/${_nom}.gz
        COMMAND gzip -9nfk ${_nom}
        DEPENDS ${CMAKE_BINARY_DIR}/paquet/${_nom}
        WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/paquet VERBATIM)
    list(APPEND _documents ${CMAKE_BINARY_DIR}/paquet/${_nom}.gz)
endforeach()
add_custom_target(documents_paquet ALL DEPENDS ${_documents})
install(FILES ${CMAKE_BINARY_DIR}/paquet/changelog.Debian.gz DESTINATION share/doc/acquisitionradio)
install(FILES ${CMAKE_BINARY_DIR}/paquet/acquisitionradio.8.gz DESTINATION share/man/man8)
install(FILES ${CMAKE_BINARY_DIR}/paquet/vueradio.1.gz DESTINATION share/man/man1)

include(CPack)
