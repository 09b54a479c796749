# Installation and release archives. The archives are laid out as the library is deployed:
# beside the application, with an (empty) config/ folder next to it.
#   Linux (cpack in build/linux): a tar.gz with libvarnik.so*, varnik, new6210-sim, varnik.h,
#     varnik.pc, the pcscd driver and its installer, examples/, man/ and the licence in one
#     folder; pkg-config finds everything relative to the .pc file. cmake --install instead lays
#     the same files out in the GNU way (lib/, include/, bin/, share/).
#   Windows (cpack in build/mingw-x64): a zip with x64/ and x86/ (the x86 tree is taken from
#     the mingw-x86 build folder), each holding Varnik.dll and varnik.exe, and at the top the
#     header, the .NET binding, the VB6 module and the README. Each arch folder has the import
#     library Varnik.dll.a for C hosts; dotnet/ has the netstandard2.0 assembly that the NuGet
#     package carries (built with the .NET SDK where it is; left out otherwise).
set(CPACK_PACKAGE_NAME "varnik")
set(CPACK_PACKAGE_VENDOR "Varnik")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Driver library for the NEW6210 payment terminal")
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
# Debug information stays in the build folders.
set(CPACK_STRIP_FILES ON)

if(WIN32)
  install(TARGETS varnik varnik_cli RUNTIME DESTINATION . COMPONENT arch
                                    ARCHIVE DESTINATION . COMPONENT arch)
  install(DIRECTORY DESTINATION config COMPONENT arch)
  install(FILES include/varnik.h README.md DESTINATION . COMPONENT common)
  install(FILES bindings/vb6/Varnik.bas DESTINATION vb6 COMPONENT common)
  install(FILES bindings/dotnet/NativeMethods.cs bindings/dotnet/Results.cs bindings/dotnet/Terminal.cs
                bindings/dotnet/Varnik.Net.csproj bindings/dotnet/Varnik.Net.dll.config
          DESTINATION dotnet COMPONENT common)
  # The assembly of the package, not Mono's build against mscorlib: built when cpack runs,
  # into the folder that scripts/pack-nuget.sh packs from.
  find_program(VARNIK_DOTNET dotnet)
  if(VARNIK_DOTNET)
    set(dotnet_out ${CMAKE_SOURCE_DIR}/build/dotnet)
    install(CODE "execute_process(COMMAND \"${VARNIK_DOTNET}\" build \"${CMAKE_SOURCE_DIR}/bindings/dotnet/Varnik.Net.csproj\"
                                          -c Release --nologo -v quiet --artifacts-path \"${dotnet_out}\"
                                  COMMAND_ERROR_IS_FATAL ANY)" COMPONENT common)
    install(FILES ${dotnet_out}/bin/Varnik.Net/release/Varnik.Net.dll
                  ${dotnet_out}/bin/Varnik.Net/release/Varnik.Net.xml DESTINATION dotnet COMPONENT common)
  else()
    message(STATUS "The Windows zip leaves the .NET assembly out: it needs the .NET SDK 8 or later (dotnet)")
  endif()
  set(VARNIK_WIN32_DIR "${CMAKE_SOURCE_DIR}/build/mingw-x86" CACHE PATH
      "Build folder of the mingw-x86 preset, whose files go to x86/ of the Windows zip")
  set(CPACK_GENERATOR "ZIP")
  set(CPACK_SYSTEM_NAME "windows")
  set(CPACK_INSTALL_CMAKE_PROJECTS
      "${CMAKE_BINARY_DIR};Varnik;arch;/x64"
      "${VARNIK_WIN32_DIR};Varnik;arch;/x86"
      "${CMAKE_BINARY_DIR};Varnik;common;/")
else()
  # cmake --install: the GNU layout, as pcsc-lite or libusb install.
  install(TARGETS varnik LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
          NAMELINK_COMPONENT dev)
  install(TARGETS varnik_cli new6210-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES include/varnik.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
  # varnik.pc finds the prefix from its own place, so a staged or moved tree stays usable.
  if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(VARNIK_PC_UP "${CMAKE_INSTALL_PREFIX}")
    file(RELATIVE_PATH VARNIK_PC_UP "${CMAKE_INSTALL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
  else()
    file(RELATIVE_PATH VARNIK_PC_UP "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
  endif()
  string(REGEX REPLACE "/$" "" VARNIK_PC_UP "${VARNIK_PC_UP}")
  configure_file(cmake/varnik-installed.pc.in ${CMAKE_BINARY_DIR}/installed/varnik.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/installed/varnik.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT dev)
  install(FILES man/varnik.1 man/new6210-sim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT tools)
  install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT doc
          PATTERN CMakeLists.txt EXCLUDE)
  install(PROGRAMS scripts/install-pcscd-driver.sh DESTINATION ${CMAKE_INSTALL_DATADIR}/varnik
          COMPONENT pcscd-driver)

  # The relocatable archive (cpack): everything in one folder, as deployed beside an application,
  # with an empty config/. Only cpack installs this component.
  set(VARNIK_FLAT COMPONENT archive EXCLUDE_FROM_ALL)
  install(TARGETS varnik LIBRARY DESTINATION . ${VARNIK_FLAT})
  install(TARGETS varnik_cli new6210-sim RUNTIME DESTINATION . ${VARNIK_FLAT})
  if(TARGET ifd_varnik)
    install(TARGETS ifd_varnik LIBRARY DESTINATION . ${VARNIK_FLAT})
  endif()
  install(FILES include/varnik.h README.md CHANGELOG.md LICENSE DESTINATION . ${VARNIK_FLAT})
  install(PROGRAMS scripts/install-pcscd-driver.sh DESTINATION . ${VARNIK_FLAT})
  install(FILES man/varnik.1 man/new6210-sim.1 DESTINATION man ${VARNIK_FLAT})
  install(DIRECTORY examples/ DESTINATION examples ${VARNIK_FLAT} PATTERN CMakeLists.txt EXCLUDE)
  install(DIRECTORY DESTINATION config ${VARNIK_FLAT})
  configure_file(cmake/varnik.pc.in ${CMAKE_BINARY_DIR}/varnik.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/varnik.pc DESTINATION . ${VARNIK_FLAT})
  set(CPACK_INSTALL_CMAKE_PROJECTS "${CMAKE_BINARY_DIR};Varnik;archive;/")
  set(CPACK_GENERATOR "TGZ")
  set(CPACK_SYSTEM_NAME "linux")
endif()
include(CPack)
