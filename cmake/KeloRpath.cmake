# SPDX-License-Identifier: MIT
# An installed program finds the library from its own place, so that a prefix can be any folder, and be moved.
file(RELATIVE_PATH kelo_lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(program kelo-host minimal)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH $ORIGIN/${kelo_lib_from_bin})
  endif()
endforeach()

# Where the machine itself looks, programs go without. Which prefix it is, only the installation knows.
function(kelo_rpath_of_the_system)
  if(TARGET kelo-host)
    install(CODE "
      set(program \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/kelo-host\")
      if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\" AND EXISTS \"\${program}\")
        file(RPATH_REMOVE FILE \"\${program}\")
      endif()" ALL_COMPONENTS)
  endif()
endfunction()
