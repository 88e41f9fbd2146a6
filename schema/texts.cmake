# Writes what vexlor-qos.yang says of its lists' leaves as lines of C++:
#
#   LEAF("list", "leaf", "description", "units")
#
#   cmake -D YANG=FILE -D OUTPUT=FILE -P texts.cmake
cmake_minimum_required(VERSION 3.25)

file(READ "${YANG}" text)
# What means something in a list of CMake's.
string(REPLACE ";" "<semicolon>" text "${text}")
string(REPLACE "[" "<opening>" text "${text}")
string(REPLACE "]" "<closing>" text "${text}")
set(name "[A-Za-z0-9_.-]+")
set(quoted "\"(\\\\.|[^\"\\])*\"")
string(REGEX MATCHALL "(container|list|leaf) +${name} *{|(units|description)[ \n]+${quoted}" statements "${text}")

set(lines "")
set(list "")
set(leaf "")
macro(end_leaf)
    if(leaf)
        if(NOT description)
            message(FATAL_ERROR "${YANG}: the leaf ${leaf} of ${list} has no description")
        endif()
        string(APPEND lines "LEAF(\"${list}\", \"${leaf}\", ${description}, ${units})\n")
    endif()
    set(leaf "")
    set(description "")
    set(units "\"\"")
endmacro()

foreach(statement IN LISTS statements)
    string(REGEX REPLACE "[ \n]+" " " statement "${statement}")
    if(statement MATCHES "^(container|list|leaf) (${name})")
        set(kind "${CMAKE_MATCH_1}")
        set(argument "${CMAKE_MATCH_2}")
        end_leaf()
        set(${kind} "${argument}")
    elseif(statement MATCHES "^(units|description) (.*)$")
        set(${CMAKE_MATCH_1} "${CMAKE_MATCH_2}")
    endif()
endforeach()
end_leaf()

string(REPLACE "<semicolon>" ";" lines "${lines}")
string(REPLACE "<opening>" "[" lines "${lines}")
string(REPLACE "<closing>" "]" lines "${lines}")
file(WRITE "${OUTPUT}" "${lines}")
