# Release archives, laid out as the library is deployed: beside the application, with an
# (empty) config/ folder next to it.
#   Linux (cpack in build/linux): a tar.gz with libvarnik.so, varnik, new6210-sim, varnik.h and
#     varnik.pc in one folder; pkg-config finds everything relative to the .pc file.
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
  install(TARGETS varnik LIBRARY DESTINATION .)
  install(TARGETS varnik_cli new6210-sim RUNTIME DESTINATION .)
  install(FILES include/varnik.h README.md DESTINATION .)
  install(DIRECTORY DESTINATION config)
  configure_file(cmake/varnik.pc.in ${CMAKE_BINARY_DIR}/varnik.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/varnik.pc DESTINATION .)
  set(CPACK_GENERATOR "TGZ")
  set(CPACK_SYSTEM_NAME "linux")
endif()
include(CPack)
