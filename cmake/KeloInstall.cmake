# SPDX-License-Identifier: MIT
# What the packages of kelo hold. Components: runtime (libkelo1), development (libkelo-dev), host (kelo-host) and
# emulator (kelo-emulator).
include(CMakePackageConfigHelpers)

# kelo_install_at(component dir file... [SYSTEM] [RENAME name] [PERMISSIONS permission...])
# To an absolute folder, which no --prefix moves: an install that was asked to stay under a prefix of its own must not
# write to the machine. DESTDIR, which packages use, moves it with everything else. SYSTEM: by DESTDIR alone, since it
# counts on programs in /usr/bin, and an install must not write over a configuration.
function(kelo_install_at component dir)
  cmake_parse_arguments(arg "SYSTEM" "RENAME" "PERMISSIONS" ${ARGN})
  set(escapes "\"\$ENV{DESTDIR}\" STREQUAL \"\" AND NOT CMAKE_INSTALL_PREFIX STREQUAL [[${CMAKE_INSTALL_PREFIX}]]")
  if(arg_SYSTEM)
    set(escapes "\"\$ENV{DESTDIR}\" STREQUAL \"\"")
  elseif(NOT IS_ABSOLUTE "${dir}")
    set(escapes FALSE)
  endif()
  set(options "")
  if(arg_RENAME)
    string(APPEND options " RENAME [[${arg_RENAME}]]")
  endif()
  if(arg_PERMISSIONS)
    list(JOIN arg_PERMISSIONS " " permissions)
    string(APPEND options " PERMISSIONS ${permissions}")
  endif()
  list(JOIN arg_UNPARSED_ARGUMENTS "]] [[" files)
  install(CODE "
    set(dir [[${dir}]])
    if(${escapes})
      message(STATUS \"Not installed: what belongs to \${dir}, outside the prefix (DESTDIR moves it)\")
    else()
      if(NOT IS_ABSOLUTE \"\${dir}\")
        set(dir \"\${CMAKE_INSTALL_PREFIX}/\${dir}\")
      endif()
      file(INSTALL DESTINATION \"\${dir}\" TYPE FILE FILES [[${files}]]${options})
    endif()" COMPONENT ${component})
endfunction()

set(kelo_doc ${CMAKE_INSTALL_DATADIR}/doc)
set(kelo_man ${CMAKE_INSTALL_MANDIR})
set(kelo_made ${CMAKE_CURRENT_BINARY_DIR}/packaging)
# SOURCE_DATE_EPOCH sets both.
string(TIMESTAMP KELO_CHANGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP KELO_MAN_DATE "%Y-%m-%d" UTC)
set(KELO_CONTACT "kelo developers <kelo@example.org>" CACHE STRING "Maintainer of the packages")

# ---- Manual pages: of the programs from what their --help says, where help2man is and the programs can run here.
set(kelo_pages "")
function(kelo_man_page component program section command)
  set(page ${kelo_made}/${program}.${section})
  set(include ${CMAKE_CURRENT_SOURCE_DIR}/packaging/man/${program}.h2m)
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${KELO_HELP2MAN} --no-info --section=${section} --include=${include} --manual=kelo --source=kelo
            --version-string=${PROJECT_VERSION} --output=${page} ${command}
    COMMAND gzip -9 -n -f ${page}
    DEPENDS ${command} ${include} VERBATIM)
  install(FILES ${page}.gz DESTINATION ${kelo_man}/man${section} COMPONENT ${component})
  set(kelo_pages ${kelo_pages} ${page}.gz PARENT_SCOPE)
endfunction()

find_program(KELO_HELP2MAN help2man)
mark_as_advanced(KELO_HELP2MAN)
if(KELO_HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT KELO_SANITIZE)
  if(TARGET kelo-host)
    kelo_man_page(host kelo-host 8 $<TARGET_FILE:kelo-host>)
    kelo_man_page(host kelo-ctl 1 $<TARGET_FILE:kelo-ctl>)
  endif()
  if(TARGET kelo-emulator)
    kelo_man_page(emulator kelo-emulator 1 $<TARGET_FILE:kelo-emulator>)
    kelo_man_page(emulator kelo-device-root 1 ${CMAKE_CURRENT_SOURCE_DIR}/scripts/device-root)
  endif()
  add_custom_target(kelo_man_pages ALL DEPENDS ${kelo_pages})
elseif(NOT KELO_SANITIZE)
  message(STATUS "No manual pages of the programs: they need help2man, and programs that run here")
endif()

# ---- The library
if(TARGET kelo)
  install(TARGETS kelo EXPORT keloTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  if(TARGET kelo_static)
    install(TARGETS kelo_static EXPORT keloTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  endif()
  install(EXPORT keloTargets NAMESPACE kelo:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kelo COMPONENT development)
  configure_package_config_file(packaging/keloConfig.cmake.in keloConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kelo)
  write_basic_package_version_file(keloConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  # From the place of the file itself, so that a package built for one prefix can move to another.
  file(RELATIVE_PATH KELO_PC_TO_PREFIX
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  configure_file(packaging/kelo.pc.in kelo.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/keloConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/keloConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/kelo COMPONENT development)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kelo.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
  install(FILES docs/integration.md docs/profiles.md docs/troubleshooting.md CHANGELOG.md examples/minimal.c
    DESTINATION ${kelo_doc}/libkelo-dev COMPONENT development)

  # kelo(3): a row for each header, in the words of its first line.
  set(KELO_MAN_HEADERS "")
  file(GLOB headers CONFIGURE_DEPENDS include/kelo/*.h)
  foreach(header IN LISTS headers)
    file(READ ${header} text LIMIT 1000)
    string(REGEX REPLACE "\n \\* ?" " " text "${text}")
    if(text MATCHES "/\\* (kelo/[a-z]+\\.h): (.*)")
      set(name ${CMAKE_MATCH_1})
      string(REGEX REPLACE "[.:] .*" "" about "${CMAKE_MATCH_2}")
      string(APPEND KELO_MAN_HEADERS "\n.It Pa ${name}\n${about}")
    endif()
  endforeach()
  string(STRIP "${KELO_MAN_HEADERS}" KELO_MAN_HEADERS)
  configure_file(packaging/man/kelo.3.in ${kelo_made}/kelo.3 @ONLY)
  execute_process(COMMAND gzip -9 -n -f -k ${kelo_made}/kelo.3)
  install(FILES ${kelo_made}/kelo.3.gz DESTINATION ${kelo_man}/man3 COMPONENT development)
endif()

file(GLOB kelo_profiles CONFIGURE_DEPENDS LIST_DIRECTORIES false ${CMAKE_CURRENT_SOURCE_DIR}/profiles/*)
list(FILTER kelo_profiles EXCLUDE REGEX "\\.md$")
if(kelo_profiles)
  kelo_install_at(runtime ${KELO_PROFILE_DIR} ${kelo_profiles})
endif()
# To be copied to the owner's folder, which is not ours to write to.
install(DIRECTORY examples/profiles DESTINATION ${CMAKE_INSTALL_DATADIR}/kelo COMPONENT runtime)
set(kelo_packaging ${CMAKE_CURRENT_SOURCE_DIR}/packaging)
kelo_install_at(runtime ${KELO_OWN_PROFILE_DIR} SYSTEM ${kelo_packaging}/etc/profiles-README.txt RENAME README.txt)

# ---- The programs
foreach(program kelo-host kelo-ctl kelo-emulator)
  if(TARGET ${program})
    string(REGEX REPLACE "kelo-(host|ctl)" host component ${program})
    string(REGEX REPLACE "kelo-" "" component ${component})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
    install(FILES packaging/bash-completion/kelo RENAME ${program} COMPONENT ${component}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  endif()
endforeach()
if(TARGET kelo-host)
  install(DIRECTORY packaging/monitoring DESTINATION ${CMAKE_INSTALL_DATADIR}/kelo COMPONENT host)
  install(FILES docs/json.md docs/kelo-host.schema.json docs/troubleshooting.md docs/reliability.md
    DESTINATION ${kelo_doc}/kelo-host COMPONENT host)
  kelo_install_at(host /lib/systemd/system SYSTEM
    ${kelo_packaging}/service/kelo-host.service ${kelo_packaging}/service/kelo-modem.target)
  kelo_install_at(host /lib/udev/rules.d SYSTEM ${kelo_packaging}/service/60-kelo.rules)
  kelo_install_at(host /etc/kelo SYSTEM ${kelo_packaging}/etc/host.conf)
  kelo_install_at(host /etc/kelo SYSTEM ${kelo_packaging}/etc/secrets.conf PERMISSIONS OWNER_READ OWNER_WRITE)
endif()
if(TARGET kelo-emulator) # it looks for them from the place of the program
  install(DIRECTORY emulator/dialogues/ DESTINATION ${CMAKE_INSTALL_DATADIR}/kelo/dialogues COMPONENT emulator
    FILES_MATCHING PATTERN "*.dlg" PATTERN "*.inc")
  install(PROGRAMS scripts/device-root RENAME kelo-device-root DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT emulator)
  install(FILES emulator/README.md DESTINATION ${kelo_doc}/kelo-emulator COMPONENT emulator)
endif()

# ---- Debian packages
set(packages runtime libkelo1 development libkelo-dev host kelo-host emulator kelo-emulator)
configure_file(packaging/debian/changelog.in ${kelo_made}/changelog @ONLY)
execute_process(COMMAND gzip -9 -n -f -k ${kelo_made}/changelog)
while(packages)
  list(POP_FRONT packages component package)
  string(TOUPPER ${component} name)
  set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${package})
  install(FILES packaging/debian/copyright ${kelo_made}/changelog.gz
    DESTINATION ${kelo_doc}/${package} COMPONENT ${component})
  if(EXISTS ${kelo_packaging}/debian/${package}.lintian-overrides)
    install(FILES packaging/debian/${package}.lintian-overrides RENAME ${package}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endif()
  foreach(control conffiles postinst prerm postrm triggers)
    if(EXISTS ${kelo_packaging}/debian/${package}.${control})
      configure_file(packaging/debian/${package}.${control} ${kelo_made}/${package}/${control} @ONLY)
      list(APPEND CPACK_DEBIAN_${name}_PACKAGE_CONTROL_EXTRA ${kelo_made}/${package}/${control})
    endif()
  endforeach()
  set(CPACK_DEBIAN_${name}_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
endwhile()

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development)
foreach(component host emulator)
  if(TARGET kelo-${component})
    list(APPEND CPACK_COMPONENTS_ALL ${component})
  endif()
endforeach()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGE_CONTACT "${KELO_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE kelo)
find_program(KELO_SHLIBDEPS dpkg-shlibdeps)
find_program(KELO_FILE file)
mark_as_advanced(KELO_SHLIBDEPS KELO_FILE)
set(kelo_host_needs "libkelo1 (>= ${PROJECT_VERSION}), init-system-helpers (>= 1.52)")
if(CMAKE_CROSSCOMPILING) # it would look among this machine's libraries: Debian 12's, by their names
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.36)")
  string(APPEND kelo_host_needs ", libc6 (>= 2.36), libevent-core-2.1-7, libevent-extra-2.1-7")
elseif(KELO_SHLIBDEPS AND KELO_FILE)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
endif()
if(CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

# Each has a summary of its own: this one is CPack's word for none.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "owner of one USB cellular modem - shared library
Owns a GSM, UMTS, LTE or 5G modem on an embedded Linux device: finds its
port, learns its model, brings it and its data link up, and keeps a record of
registration, signal, SIM and messages up to date on threads of its own.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
if(KELO_FILE)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "iproute2, iputils-ping | busybox, net-tools | busybox, psmisc | busybox")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "owner of one USB cellular modem - development files
Headers, and what pkg-config and CMake find libkelo by. A host sets what it
cares for, starts the library and polls.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkelo1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_HOST_DESCRIPTION "keeps a device with a USB cellular modem online
A service for devices with nobody near: it keeps the modem online, says why it
is not, sends and receives messages, and shows a page and metrics. kelo-ctl
asks the one that runs. Alerts and a dashboard come along.")
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION net)
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "${kelo_host_needs}")
# A modem has one owner: see kelo-host.service.
set(CPACK_DEBIAN_HOST_PACKAGE_CONFLICTS "modemmanager")
set(CPACK_DEBIAN_HOST_PACKAGE_SUGGESTS "kelo-emulator, bash-completion")
set(CPACK_DEBIAN_EMULATOR_DESCRIPTION "AT modem on a pseudo-terminal, for hosts and tests
Registration, cells, calls, messages and every misbehaviour that a modem is
capable of, by orders or from a script, and a root like a device's in which a
host meets it without hardware.")
set(CPACK_DEBIAN_EMULATOR_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_EMULATOR_PACKAGE_RECOMMENDS "bubblewrap, busybox, iproute2")
set(CPACK_DEBIAN_EMULATOR_PACKAGE_SUGGESTS "kelo-host")
include(CPack)
