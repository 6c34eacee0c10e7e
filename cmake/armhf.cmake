# Cross build for the appliance's ARM board (Debian armhf, hard float) from an
# amd64 build machine:
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake [-DARMHF_RACINE=<root>]
# ARMHF_RACINE is where the armhf libraries live: "/" when qtbase5-dev:armhf is
# installed beside the amd64 one (multiarch, the default), or a directory into
# which the armhf .debs were unpacked (scripts/armhf.sh makes one under
# build-armhf/ when multiarch cannot be had). Programs built here run on this
# machine through qemu-arm, so CTest runs the suite unchanged.
#
# The file is read as the toolchain (from CMake's own files) and once more
# from the project's CMakeLists.txt right after project(), through
# CMAKE_PROJECT_INCLUDE, for what needs the build tree and must come before
# find_package(Qt5).

set(ARMHF_TRIPLET arm-linux-gnueabihf)

if(CMAKE_PARENT_LIST_FILE MATCHES "CMakeLists\\.txt$")
    # moc and rcc write C++ sources: the build machine's own run here, whatever
    # the target. Declaring them first stops Qt5Core's config from asking for
    # <root>/usr/lib/qt5/bin/moc, which an unpacked root does not have (its moc
    # would be an ARM program).
    foreach(outil moc rcc qmake)
        if(NOT TARGET Qt5::${outil})
            find_program(ARMHF_${outil} NAMES ${outil} PATHS /usr/lib/qt5/bin
                         NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
            if(NOT ARMHF_${outil})
                message(FATAL_ERROR "The host's Qt 5 ${outil} is missing from /usr/lib/qt5/bin: "
                                    "install qtbase5-dev-tools and qt5-qmake-bin.")
            endif()
            add_executable(Qt5::${outil} IMPORTED)
            set_target_properties(Qt5::${outil} PROPERTIES IMPORTED_LOCATION ${ARMHF_${outil}})
        endif()
    endforeach()

    # Test programs run through qemu-arm, which looks for every file a program
    # opens under its -L directory first and in the host's tree after. That
    # directory, build-armhf/qemu, holds the emulator's etc/ld.so.preload (see
    # packaging/armhf/sans_pidfd.c: without it QProcess under qemu 7.2 would
    # signal every process on the machine) and, for an unpacked root, links to
    # the root's lib/ and usr/. QEMU_LD_PREFIX, the same directory, is
    # inherited by the programs a test starts (the daemon, the simulators),
    # which the kernel hands to qemu-arm through binfmt_misc.
    set(_armhf_emulation ${CMAKE_BINARY_DIR}/qemu)
    file(MAKE_DIRECTORY ${_armhf_emulation}/etc)
    execute_process(
        COMMAND ${ARMHF_TRIPLET}-gcc -std=c11 -O2 -Wall -Wextra -Werror -shared -fPIC
                -o ${_armhf_emulation}/sans_pidfd.so
                ${CMAKE_CURRENT_LIST_DIR}/../packaging/armhf/sans_pidfd.c -ldl
        RESULT_VARIABLE _armhf_resultat)
    if(_armhf_resultat)
        message(FATAL_ERROR "Cannot build ${_armhf_emulation}/sans_pidfd.so, without which "
                            "tests under qemu-arm are not safe to run.")
    endif()
    file(WRITE ${_armhf_emulation}/etc/ld.so.preload "${_armhf_emulation}/sans_pidfd.so\n")
    if(NOT ARMHF_RACINE STREQUAL "/")
        file(GLOB _armhf_entrees RELATIVE ${ARMHF_RACINE} ${ARMHF_RACINE}/*)
        foreach(entree ${_armhf_entrees})
            if(NOT entree STREQUAL "etc")
                file(CREATE_LINK ${ARMHF_RACINE}/${entree} ${_armhf_emulation}/${entree} SYMBOLIC)
            endif()
        endforeach()
    endif()
    set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/env QEMU_LD_PREFIX=${_armhf_emulation}
                                      /usr/bin/qemu-arm -L ${_armhf_emulation})
    return()
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER ${ARMHF_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ARMHF_TRIPLET}-g++)

# The root is kept in the cache and handed to CMake's own test projects.
if(NOT DEFINED ARMHF_RACINE)
    if(DEFINED ENV{ARMHF_RACINE})
        set(ARMHF_RACINE $ENV{ARMHF_RACINE})
    else()
        set(ARMHF_RACINE /)
    endif()
endif()
set(ARMHF_RACINE ${ARMHF_RACINE} CACHE PATH "Where the armhf libraries are (/ for multiarch)")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARMHF_RACINE)
string(REGEX REPLACE "/$" "" _armhf_prefixe "${ARMHF_RACINE}")

# Libraries, headers and CMake packages come from the armhf root only; programs
# (moc, the shell) from the host.
set(CMAKE_FIND_ROOT_PATH ${ARMHF_RACINE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Qt5_DIR ${_armhf_prefixe}/usr/lib/${ARMHF_TRIPLET}/cmake/Qt5 CACHE PATH "armhf Qt 5")

# The cross compiler brings its own libc and libstdc++; the Qt libraries'
# own dependencies (ICU, PCRE2, OpenSSL...) are found at link time here.
set(_armhf_liens
    "-Wl,-rpath-link,${_armhf_prefixe}/usr/lib/${ARMHF_TRIPLET}:${_armhf_prefixe}/lib/${ARMHF_TRIPLET}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_armhf_liens}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_armhf_liens}")

set(CMAKE_PROJECT_INCLUDE ${CMAKE_CURRENT_LIST_FILE})
