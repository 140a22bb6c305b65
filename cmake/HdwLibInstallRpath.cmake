# Installed programs find libHdwLib relative to their own folder
# ($ORIGIN/../lib for the default layout), so a tree installed to any prefix,
# moved afterwards, or unpacked from the Debian package runs without
# LD_LIBRARY_PATH. The path is taken from the GNUInstallDirs folders, so it
# follows a changed CMAKE_INSTALL_LIBDIR (lib64, lib/<multiarch>). The build
# tree keeps its own absolute RPATH.
if(NOT WIN32 AND NOT APPLE)
  file(RELATIVE_PATH HDWLIB_BINDIR_TO_LIBDIR ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  string(REGEX REPLACE "/$" "" HDWLIB_BINDIR_TO_LIBDIR "${HDWLIB_BINDIR_TO_LIBDIR}")
  if(HDWLIB_BINDIR_TO_LIBDIR STREQUAL "")
    set(HDWLIB_INSTALL_RPATH "\$ORIGIN")
  else()
    set(HDWLIB_INSTALL_RPATH "\$ORIGIN/${HDWLIB_BINDIR_TO_LIBDIR}")
  endif()
endif()

# hdwlib_install_rpath(<target>): the installed program <target> (in
# CMAKE_INSTALL_BINDIR) loads the installed libHdwLib beside it.
function(hdwlib_install_rpath target)
  if(DEFINED HDWLIB_INSTALL_RPATH)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${HDWLIB_INSTALL_RPATH}")
  endif()
endfunction()
