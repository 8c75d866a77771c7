# SPDX-License-Identifier: MIT
# What a package of kelo holds: the library, its headers, the profile files, and the descriptions that pkg-config and
# CMake find it by.
include(CMakePackageConfigHelpers)

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
endif()
if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/profiles)
  # The library reads this absolute path, which no --prefix moves: an install that was asked to stay under a prefix of
  # its own must not write to the machine. DESTDIR, which packages use, moves it with everything else.
  set(kelo_escapes "IS_ABSOLUTE [[${KELO_PROFILE_DIR}]] AND \"\$ENV{DESTDIR}\" STREQUAL \"\" AND
    NOT CMAKE_INSTALL_PREFIX STREQUAL [[${CMAKE_INSTALL_PREFIX}]]")
  install(CODE "
    if(${kelo_escapes})
      message(STATUS [[Not installed: profiles to ${KELO_PROFILE_DIR}, outside the prefix (DESTDIR moves it)]])
    else()
      file(GLOB profiles LIST_DIRECTORIES false [[${CMAKE_CURRENT_SOURCE_DIR}/profiles/*]])
      list(FILTER profiles EXCLUDE REGEX [[\\.md\$]])
      set(dir [[${KELO_PROFILE_DIR}]])
      if(NOT IS_ABSOLUTE \"\${dir}\")
        set(dir \"\${CMAKE_INSTALL_PREFIX}/\${dir}\")
      endif()
      file(INSTALL DESTINATION \"\${dir}\" TYPE FILE FILES \${profiles})
    endif()" COMPONENT runtime)
endif()
# To be copied to the owner's folder, which is not ours to write to.
install(DIRECTORY examples/profiles DESTINATION ${CMAKE_INSTALL_DATADIR}/kelo COMPONENT runtime)
foreach(program kelo-host kelo-ctl kelo-emulator)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES packaging/bash-completion/kelo RENAME ${program} COMPONENT tools
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  endif()
endforeach()
if(TARGET kelo-host)
  install(DIRECTORY packaging/monitoring DESTINATION ${CMAKE_INSTALL_DATADIR}/kelo COMPONENT tools)
endif()
if(TARGET kelo-emulator) # it looks for them from the place of the program
  install(DIRECTORY emulator/dialogues/ DESTINATION ${CMAKE_INSTALL_DATADIR}/kelo/dialogues COMPONENT tools
    FILES_MATCHING PATTERN "*.dlg" PATTERN "*.inc")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "kelo developers <kelo@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
find_program(KELO_SHLIBDEPS dpkg-shlibdeps)
mark_as_advanced(KELO_SHLIBDEPS)
if(KELO_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "iproute2, psmisc")
include(CPack)
