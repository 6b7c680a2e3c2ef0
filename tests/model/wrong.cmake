# Runs PROGRAM with a model that is wrong in one thing (KIND) and requires that the comparison finds it: exit status 1,
# and a sequence shortened to at most 10 calls, with what differs behind it.
execute_process(COMMAND "${PROGRAM}" --wrong ${KIND} --seed ${SEED} --seeds 10
                RESULT_VARIABLE status OUTPUT_VARIABLE text)
message("${text}")
if(NOT status EQUAL 1)
  message(FATAL_ERROR "exit status ${status}, expected 1")
endif()
if(NOT text MATCHES "the ([0-9]+) calls that matter.*:\n(  Orb.*)\n  -> (.*)\n")
  message(FATAL_ERROR "no shortened sequence in the output")
endif()
set(count ${CMAKE_MATCH_1})
string(REGEX MATCHALL "  Orb[^\n]*" calls "${CMAKE_MATCH_2}")
list(LENGTH calls printed)
if(NOT printed EQUAL count OR count GREATER 10)
  message(FATAL_ERROR "${printed} calls printed, ${count} announced, expected at most 10")
endif()
