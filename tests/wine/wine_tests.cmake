# Tests of the Windows builds, included by the Linux test tree:
#   windows.exports  export table, imports and version record of each built Varnik.dll
#   wine.session     the x64 build under Wine against the simulator (run-wine-tests.sh)
# Each runs only where its build folder exists (and for the second, wine64 and the simulator).
set(VARNIK_WIN64_DIR "${CMAKE_SOURCE_DIR}/build/mingw-x64" CACHE PATH
    "Build folder of the mingw-x64 preset, whose Varnik.dll and test programs the Wine test runs")
set(VARNIK_WIN32_DIR "${CMAKE_SOURCE_DIR}/build/mingw-x86" CACHE PATH
    "Build folder of the mingw-x86 preset, whose Varnik.dll the export check reads")
# Debian keeps wine64 out of PATH.
find_program(VARNIK_WINE64 NAMES wine64 PATHS /usr/lib/wine /usr/lib64/wine)
find_program(VARNIK_PE_OBJDUMP NAMES x86_64-w64-mingw32-objdump)

set(varnik_built_dlls)
foreach(dir IN ITEMS "${VARNIK_WIN64_DIR}" "${VARNIK_WIN32_DIR}")
  if(EXISTS "${dir}")
    list(APPEND varnik_built_dlls "${dir}/Varnik.dll")
  endif()
endforeach()
if(VARNIK_PE_OBJDUMP AND varnik_built_dlls)
  add_test(NAME windows.exports
           COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/check-exports.sh
                   --source ${CMAKE_CURRENT_LIST_DIR}/../..
                   --objdump ${VARNIK_PE_OBJDUMP} ${varnik_built_dlls})
  set_tests_properties(windows.exports PROPERTIES TIMEOUT 60)
else()
  message(STATUS "Export check left out: needs x86_64-w64-mingw32-objdump and a mingw build")
endif()

if(VARNIK_WINE64 AND EXISTS "${VARNIK_WIN64_DIR}" AND TARGET new6210-sim)
  add_test(NAME wine.session
           COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/run-wine-tests.sh
                   --wine ${VARNIK_WINE64}
                   --dll ${VARNIK_WIN64_DIR}/Varnik.dll
                   --host ${VARNIK_WIN64_DIR}/tests/wine/wine_host.exe
                   --fake-winscard ${VARNIK_WIN64_DIR}/tests/wine/fake-winscard/winscard.dll
                   --sim $<TARGET_FILE:new6210-sim>)
  set_tests_properties(wine.session PROPERTIES TIMEOUT 300)
else()
  message(STATUS "Wine test left out: needs wine64, ${VARNIK_WIN64_DIR} and the simulator")
endif()
