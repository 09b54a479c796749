# Tests of the Windows builds, included by the Linux test tree:
#   windows.exports  export table, imports and version record of each built Varnik.dll
#   windows.x86stack each x86 export pops exactly its arguments (check-x86-stack.sh)
#   wine.<arch>.<wait> each build under Wine against the simulator (run-wine-tests.sh), with
#                    the event wait and with the read watch
# Each runs only where its build folder exists.
set(VARNIK_WIN64_DIR "${CMAKE_SOURCE_DIR}/build/mingw-x64" CACHE PATH
    "Build folder of the mingw-x64 preset, whose Varnik.dll and test programs the Wine test runs")
set(VARNIK_WIN32_DIR "${CMAKE_SOURCE_DIR}/build/mingw-x86" CACHE PATH
    "Build folder of the mingw-x86 preset, whose Varnik.dll and test programs the x86 Wine test runs")
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
                   ${CMAKE_CURRENT_LIST_DIR}/../.. ${VARNIK_PE_OBJDUMP} ${varnik_built_dlls})
  set_tests_properties(windows.exports PROPERTIES TIMEOUT 60)
else()
  message(STATUS "Export check left out: needs x86_64-w64-mingw32-objdump and a mingw build")
endif()
if(VARNIK_PE_OBJDUMP AND EXISTS "${VARNIK_WIN32_DIR}")
  add_test(NAME windows.x86stack
           COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/check-x86-stack.sh
                   ${CMAKE_CURRENT_LIST_DIR}/../.. ${VARNIK_PE_OBJDUMP} ${VARNIK_WIN32_DIR}/Varnik.dll)
  set_tests_properties(windows.x86stack PROPERTIES TIMEOUT 60)
endif()

# pty_modem.so, preloaded into Wine so that a pty answers like a UART (modem lines for the
# event wait, kept line settings), once per word size: Wine's 32-bit processes need their own.
# Built with plain flags whatever the tree's (no sanitizer may ride into Wine), into
# lib/<multiarch>/ so that one LD_PRELOAD path with $LIB serves both.
set(varnik_pty_modem_dir "${CMAKE_CURRENT_BINARY_DIR}/wine/preload")
set(varnik_pty_modem "${varnik_pty_modem_dir}/$LIB/pty_modem.so")
set(varnik_pty_modem_builds)
foreach(bits IN ITEMS 64 32)
  if(bits EQUAL 64)
    set(multiarch x86_64-linux-gnu)
  else()
    set(multiarch i386-linux-gnu)
  endif()
  set(output "${varnik_pty_modem_dir}/lib/${multiarch}/pty_modem.so")
  # The 32-bit build needs the compiler's multilib (gcc-multilib); without it, the x86 Wine
  # tests say they are skipped.
  execute_process(COMMAND ${CMAKE_C_COMPILER} -m${bits} -shared -fPIC -x c /dev/null
                          -o "${CMAKE_CURRENT_BINARY_DIR}/m${bits}-probe.so"
                  RESULT_VARIABLE probe OUTPUT_QUIET ERROR_QUIET)
  if(probe EQUAL 0)
    add_custom_command(OUTPUT "${output}"
      COMMAND ${CMAKE_COMMAND} -E make_directory "${varnik_pty_modem_dir}/lib/${multiarch}"
      COMMAND ${CMAKE_C_COMPILER} -m${bits} -shared -fPIC -O2 -Wall -o "${output}"
              ${PROJECT_SOURCE_DIR}/tools/wine/pty_modem.c -ldl
      DEPENDS ${PROJECT_SOURCE_DIR}/tools/wine/pty_modem.c VERBATIM)
    list(APPEND varnik_pty_modem_builds "${output}")
    set(varnik_pty_modem_${bits} ON)
  endif()
endforeach()
add_custom_target(pty_modem ALL DEPENDS ${varnik_pty_modem_builds})

# wine.<arch>.<wait>: every Wine scenario on one DLL, with its own host and loader, once with
# the event wait and once with the read watch it falls back to. Where that DLL's Wine cannot
# run, the test says why and counts as skipped, never as passed.
find_program(VARNIK_WINE32 NAMES wine PATHS /usr/lib/wine NO_DEFAULT_PATH)
foreach(arch IN ITEMS x64 x86)
  if(arch STREQUAL x64)
    set(dir "${VARNIK_WIN64_DIR}")
    set(loader "${VARNIK_WINE64}")
    set(needs "wine64")
    set(preload_built ${varnik_pty_modem_64})
  else()
    set(dir "${VARNIK_WIN32_DIR}")
    set(loader "${VARNIK_WINE32}")
    set(needs "wine32 (apt-get install wine32:i386 after dpkg --add-architecture i386)")
    set(preload_built ${varnik_pty_modem_32})
  endif()
  foreach(wait IN ITEMS event read)
    set(name wine.${arch}.${wait})
    if(NOT EXISTS "${dir}" OR NOT TARGET new6210-sim)
      message(STATUS "${name} left out: needs ${dir} and the simulator")
      continue()
    elseif(NOT loader OR NOT preload_built)
      set(why "needs ${needs} and the ${arch} pty_modem.so (gcc-multilib for x86)")
      add_test(NAME ${name} COMMAND sh -c "echo 'SKIPPED: ${name}: ${why}'; exit 77")
      set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77)
      continue()
    endif()
    add_test(NAME ${name}
             COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/run-wine-tests.sh ${loader} ${dir}/Varnik.dll
                     ${dir}/tests/wine/wine_host.exe $<TARGET_FILE:new6210-sim>
                     ${varnik_pty_modem} ${wait})
    set_tests_properties(${name} PROPERTIES TIMEOUT 600)
  endforeach()
endforeach()
