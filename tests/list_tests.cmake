# Writes for ctest the tests of a program: cmake -DPROGRAM=FILE -DEMULATOR=WORDS -DFOLDER=FOLDER -DLIST=FILE -P
# list_tests.cmake. Each has a process of its own; with SENVO_BY_SUITE in ctest's environment those of a suite share one,
# where starting a process takes longer than most tests do. FOLDER is where they run.
cmake_minimum_required(VERSION 3.23)

execute_process(COMMAND ${EMULATOR} ${PROGRAM} --gtest_list_tests OUTPUT_VARIABLE listed COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "  # [^\n]*" "" listed "${listed}")  # what parameters look like, which may hold anything
string(REPLACE "\n" ";" listed "${listed}")

# What takes longest begins first, so that nobody waits for it alone at the end.
set(longest "^(EvaluateProgram|LedgerPowerCut|Load|Sigterm|Supervisor|FullDisk|MotionTrials|Light/MotionUnderLight)([. ]|$)")

string(JOIN "]==] [==[" command ${EMULATOR} ${PROGRAM})
# TIMEOUT is there to end what hangs, on a loaded machine, too.
function(add name filter properties)
  if(name MATCHES "${longest}")
    string(APPEND properties " COST 100")
  endif()
  string(APPEND out
    "  add_test([==[${name}]==] [==[${command}]==] [==[--gtest_filter=${filter}]==])\n"
    "  set_tests_properties([==[${name}]==] PROPERTIES WORKING_DIRECTORY [==[${FOLDER}]==] ${properties})\n")
  set(out "${out}" PARENT_SCOPE)
endfunction()

get_filename_component(program ${PROGRAM} NAME)
set(out "if(DEFINED ENV{SENVO_BY_SUITE})\n")
foreach(line IN LISTS listed)
  if(line MATCHES "^([^ ]+)\\.$")
    add("${CMAKE_MATCH_1} (${program})" "${CMAKE_MATCH_1}.*" "TIMEOUT 3600")
  endif()
endforeach()
string(APPEND out "else()\n")
foreach(line IN LISTS listed)
  if(line MATCHES "^([^ ]+\\.)$")
    set(suite ${CMAKE_MATCH_1})
  elseif(line MATCHES "^  ([^ ]+)$")
    add("${suite}${CMAKE_MATCH_1}" "${suite}${CMAKE_MATCH_1}"
      "TIMEOUT 1800 SKIP_REGULAR_EXPRESSION [==[\\[  SKIPPED \\]]==]")
  endif()
endforeach()
string(APPEND out "endif()\n")
file(WRITE ${LIST} "${out}")
