# The Wine test of the Windows x64 build, included by the Linux test tree. It runs only when
# wine64 is there and the mingw-x64 build folder exists; the DLL and wine_host.exe come from
# that folder, the simulator from this build.
set(VARNIK_WIN64_DIR "${CMAKE_SOURCE_DIR}/build/mingw-x64" CACHE PATH
    "Build folder of the mingw-x64 preset, whose Varnik.dll and wine_host.exe the Wine test runs")
# Debian keeps wine64 out of PATH.
find_program(VARNIK_WINE64 NAMES wine64 PATHS /usr/lib/wine /usr/lib64/wine)

if(VARNIK_WINE64 AND EXISTS "${VARNIK_WIN64_DIR}" AND TARGET new6210-sim)
  add_test(NAME wine.session
           COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/run-wine-tests.sh
                   --wine ${VARNIK_WINE64}
                   --dll ${VARNIK_WIN64_DIR}/Varnik.dll
                   --host ${VARNIK_WIN64_DIR}/tests/wine/wine_host.exe
                   --sim $<TARGET_FILE:new6210-sim>)
  set_tests_properties(wine.session PROPERTIES TIMEOUT 300)
else()
  message(STATUS "Wine test left out: needs wine64, ${VARNIK_WIN64_DIR} and the simulator")
endif()
