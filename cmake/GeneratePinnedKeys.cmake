# Checks a pinned-keys data file and writes the key lists as C++:
#   cmake -DKEYS_FILE=<data file> -DOUTPUT=<.cpp> -P GeneratePinnedKeys.cmake
# Any fault stops the build with "<data file>:<line>: <fault>", and nothing is
# written. The format is described at the top of security/trust/pinned-keys.txt.
cmake_minimum_required(VERSION 3.25)

if(NOT KEYS_FILE OR NOT OUTPUT)
    message(FATAL_ERROR "usage: cmake -DKEYS_FILE=<data file> -DOUTPUT=<.cpp> -P ${CMAKE_CURRENT_LIST_FILE}")
endif()
if(NOT EXISTS "${KEYS_FILE}")
    message(FATAL_ERROR "${KEYS_FILE}: no such file")
endif()

# The lists, in the one order they may be defined in: each copies only from
# lists before it, and the C++ definitions (so their static initialisation)
# follow the same order.
set(list_names master single four fileTrustA fileTrustB short)
list(JOIN list_names ", " list_order)
set(cpp_master kMasterList)
set(cpp_single kSingleKeyList)
set(cpp_four kFourKeyList)
set(cpp_fileTrustA kFileTrustListA)
set(cpp_fileTrustB kFileTrustListB)
set(cpp_short kShortList)

# CMake's list splitting treats ';' and square brackets specially, so they
# travel through the line list as stand-ins.
string(ASCII 2 open)
string(ASCII 3 close)
string(ASCII 4 semicolon)

function(fail line what)
    string(REPLACE "${open}" "[" what "${what}")
    string(REPLACE "${close}" "]" what "${what}")
    string(REPLACE "${semicolon}" ";" what "${what}")
    message(FATAL_ERROR "${KEYS_FILE}:${line}: ${what}")
endfunction()

# The exact text form, and the DER structure it implies: SEQUENCE, INTEGER
# modulus with its top bit set (so exactly 2048 or 3072 bits), INTEGER
# exponent of three bytes.
function(check_key_text line text)
    if(NOT "${text}" MATCHES "^[0-9a-f][0-9a-f]( [0-9a-f][0-9a-f])*$")
        fail(${line} "the key text is not lower-case hexadecimal byte pairs with one blank between them")
    endif()
    string(LENGTH "${text}" length)
    if(length EQUAL 809 AND "${text}" MATCHES "^30 82 01 0a 02 82 01 01 00 ")
        set(exponent_at 795)
    elseif(length EQUAL 1193 AND "${text}" MATCHES "^30 82 01 8a 02 82 01 81 00 ")
        set(exponent_at 1179)
    else()
        fail(${line} "not a 2048-bit key (809 characters from \"30 82 01 0a 02 82 01 01 00\") nor a 3072-bit one (1193 characters from \"30 82 01 8a 02 82 01 81 00\")")
    endif()
    string(SUBSTRING "${text}" 27 1 top)
    string(SUBSTRING "${text}" ${exponent_at} 8 exponent)
    if(NOT "${top}" MATCHES "[89a-f]")
        fail(${line} "the modulus is shorter than the key's size")
    endif()
    if(NOT "${exponent}" MATCHES "^02 03 (0[1-9a-f]|[1-7][0-9a-f])$")
        fail(${line} "the public exponent is not a positive three-byte INTEGER")
    endif()
endfunction()

file(READ "${KEYS_FILE}" text)
string(REPLACE "\r" "" text "${text}")
string(REPLACE ";" "${semicolon}" text "${text}")
string(REPLACE "[" "${open}" text "${text}")
string(REPLACE "]" "${close}" text "${text}")
string(REPLACE "\n" ";" lines "${text}")

set(line 0)
set(current "")
set(next_list 0)
set(all_key_names "")
foreach(content IN LISTS lines)
    math(EXPR line "${line} + 1")
    set(words "")
    if("${content}" MATCHES "^[ \t]*(#.*)?$")
        continue()
    elseif("${content}" MATCHES "^key ")
        set(current "")
        if(NOT "${content}" MATCHES "^key ([A-Za-z_][A-Za-z0-9_]*) (.*)$")
            fail(${line} "a key line is: key NAME HEX")
        endif()
        set(name "${CMAKE_MATCH_1}")
        set(value "${CMAKE_MATCH_2}")
        if(DEFINED pk_value_${name})
            fail(${line} "key ${name} is already defined on line ${pk_line_${name}}")
        endif()
        check_key_text(${line} "${value}")
        string(SHA256 digest "${value}")
        if(DEFINED name_of_${digest})
            fail(${line} "key ${name} is the same key as ${name_of_${digest}}")
        endif()
        set(name_of_${digest} ${name})
        set(pk_value_${name} "${value}")
        set(pk_line_${name} ${line})
        list(APPEND all_key_names ${name})
    elseif("${content}" MATCHES "^list ")
        if(NOT "${content}" MATCHES "^list ([A-Za-z0-9_]+)(.*)$")
            fail(${line} "a list line is: list NAME ENTRY...")
        endif()
        set(name "${CMAKE_MATCH_1}")
        set(words "${CMAKE_MATCH_2}")
        if(DEFINED count_${name})
            fail(${line} "list ${name} is already defined")
        elseif(NOT "${name}" IN_LIST list_names)
            fail(${line} "no list is named ${name} (the lists: ${list_order})")
        endif()
        list(GET list_names ${next_list} expected)
        if(NOT "${name}" STREQUAL "${expected}")
            fail(${line} "list ${name} where list ${expected} belongs: the lists come in the order ${list_order}")
        endif()
        set(current ${name})
        set(count_${name} 0)
        set(body_${name} "")
        math(EXPR next_list "${next_list} + 1")
    elseif("${content}" MATCHES "^[ \t]" AND current)
        set(words "${content}")
    elseif("${content}" MATCHES "^[ \t]")
        fail(${line} "list entries outside a list")
    else()
        fail(${line} "not a key line, a list line or a comment")
    endif()

    # Entries of the list being defined: a key's name, or LIST[N].
    string(REGEX MATCHALL "[^ \t]+" entries "${words}")
    foreach(entry IN LISTS entries)
        if("${entry}" MATCHES "^([A-Za-z0-9_]+)${open}(0|[1-9][0-9]?[0-9]?[0-9]?)${close}$")
            set(from "${CMAKE_MATCH_1}")
            set(index "${CMAKE_MATCH_2}")
            if("${from}" STREQUAL "${current}")
                fail(${line} "${entry}: a list cannot copy from itself")
            elseif(NOT "${from}" IN_LIST list_names)
                fail(${line} "${entry}: no list is named ${from}")
            elseif(NOT DEFINED count_${from})
                fail(${line} "${entry}: list ${from} comes later, only earlier lists can be copied from")
            elseif(NOT index LESS count_${from})
                fail(${line} "${entry}: list ${from} has ${count_${from}} entries")
            endif()
            string(APPEND body_${current} "    {nullptr, &${cpp_${from}}, ${index}},\n")
        elseif("${entry}" MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
            if(NOT DEFINED pk_value_${entry})
                fail(${line} "${entry}: no key of that name above this line")
            endif()
            set(pk_used_${entry} TRUE)
            string(APPEND body_${current} "    {\"${pk_value_${entry}}\", nullptr, 0}, // ${entry}\n")
        else()
            fail(${line} "${entry}: not a key name or LIST[N]")
        endif()
        math(EXPR count_${current} "${count_${current}} + 1")
    endforeach()
endforeach()

list(LENGTH list_names list_count)
if(next_list LESS list_count)
    list(GET list_names ${next_list} missing)
    fail(${line} "list ${missing} is missing")
endif()
foreach(name IN LISTS all_key_names)
    if(NOT pk_used_${name})
        fail(${pk_line_${name}} "key ${name} is in no list")
    endif()
endforeach()

set(code "// Generated from ${KEYS_FILE} by cmake/GeneratePinnedKeys.cmake: edit the data file.\n")
string(APPEND code "#include \"security/trust/PinnedKeys.h\"\n\n")
string(APPEND code "#include <cstddef>\n#include <span>\n\n")
string(APPEND code "namespace Tessel::Bridge::Security::PinnedKeys {\n")
# The entries are constant data and one loop builds every list, so start-up
# runs a few instructions per entry instead of a long initialiser per list.
string(APPEND code [=[
namespace {

// A key text, or entry `index` of an earlier list.
struct Entry {
    const char* key;
    const PublicKeyList* list;
    std::size_t index;
};

PublicKeyList Build(std::span<const Entry> entries)
{
    PublicKeyList keys;
    keys.reserve(entries.size());
    for (const Entry& entry : entries) keys.push_back(entry.key != nullptr ? std::string(entry.key) : (*entry.list)[entry.index]);
    return keys;
}

]=])
foreach(name IN LISTS list_names)
    string(APPEND code "constexpr Entry ${cpp_${name}}Entries[] = {\n${body_${name}}};\n")
endforeach()
string(APPEND code "\n} // namespace\n")
string(APPEND code "\n// Defined in initialisation order: later lists copy entries of earlier ones.\n")
foreach(name IN LISTS list_names)
    string(APPEND code "const PublicKeyList ${cpp_${name}} = Build(${cpp_${name}}Entries);\n")
endforeach()
string(APPEND code "\n} // namespace Tessel::Bridge::Security::PinnedKeys\n")
file(WRITE "${OUTPUT}" "${code}")
