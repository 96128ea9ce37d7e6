# The security library's pinned public keys: C++ generated at build time from
# a data file, which a deployment may replace with its own.

get_filename_component(_kestrel_pinned_keys_default "${CMAKE_CURRENT_LIST_DIR}/../security/trust/pinned-keys.txt" ABSOLUTE)
set(KESTREL_PINNED_KEYS_FILE "${_kestrel_pinned_keys_default}" CACHE FILEPATH
    "Data file of the pinned RSA public keys (format: see security/trust/pinned-keys.txt)")

# Adds PinnedKeys.generated.cpp, made from data_file, to target. The build
# checks the file and stops with the faulty line; it regenerates when the file
# or the generator changes. A relative data_file is taken from the top of the
# source tree.
function(kestrel_pinned_keys target data_file)
    get_filename_component(data_file "${data_file}" ABSOLUTE BASE_DIR "${PROJECT_SOURCE_DIR}")
    if(NOT EXISTS "${data_file}")
        message(FATAL_ERROR "pinned keys: no data file ${data_file} (KESTREL_PINNED_KEYS_FILE)")
    endif()
    set(generator "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/GeneratePinnedKeys.cmake")
    set(output "${CMAKE_CURRENT_BINARY_DIR}/PinnedKeys.generated.cpp")
    add_custom_command(OUTPUT "${output}"
        COMMAND "${CMAKE_COMMAND}" "-DKEYS_FILE=${data_file}" "-DOUTPUT=${output}" -P "${generator}"
        DEPENDS "${data_file}" "${generator}"
        COMMENT "Checking the pinned keys of ${data_file}"
        VERBATIM)
    target_sources(${target} PRIVATE "${output}")
endfunction()
