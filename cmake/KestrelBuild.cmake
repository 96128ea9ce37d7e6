# Build settings shared by every target of the project.

# A high warning level on our own code (not on GoogleTest or other libraries).
function(kestrel_warnings target)
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 /permissive- /utf-8
            $<$<BOOL:${KESTREL_WARNINGS_AS_ERRORS}>:/WX>)
    else()
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
            -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2
            $<$<BOOL:${KESTREL_WARNINGS_AS_ERRORS}>:-Werror>)
    endif()
endfunction()

# Sanitized builds: the first report ends the program, and stacks stay readable.
if(KESTREL_SANITIZERS)
    list(JOIN KESTREL_SANITIZERS "," _kestrel_sanitizers)
    add_compile_options(-fsanitize=${_kestrel_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${_kestrel_sanitizers})
endif()

if(WIN32)
    # Wide Windows API, Windows 10 and later.
    add_library(kestrel_windows_api INTERFACE)
    target_compile_definitions(kestrel_windows_api INTERFACE
        UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00 WINVER=0x0A00)
endif()

# An import library made from cmake/zig/<def_name>.def for Zig's runtime,
# whose copy of mingw-w64 lacks some.
function(kestrel_zig_import_library def_name library)
    execute_process(
        COMMAND "${KESTREL_LLVM_DLLTOOL}" -m ${KESTREL_DLLTOOL_MACHINE}
                -d "${PROJECT_SOURCE_DIR}/cmake/zig/${def_name}.def" -l "${library}"
        RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "llvm-dlltool could not make ${library}")
    endif()
endfunction()

# Zig's msvcrt import library lacks _create_locale and _free_locale, which
# libc++ needs; an import library for those two exports is linked last.
if(DEFINED KESTREL_DLLTOOL_MACHINE)
    kestrel_zig_import_library(msvcrt-locale "${CMAKE_BINARY_DIR}/libmsvcrt_locale.a")
    string(APPEND CMAKE_CXX_STANDARD_LIBRARIES " \"${CMAKE_BINARY_DIR}/libmsvcrt_locale.a\"")
endif()

# WinTrust's import library: Zig has one for x86 and x64 only; for ARM64 one
# is made for the exports the platform layer calls.
set(KESTREL_WINTRUST_LIBRARY wintrust)
if(WIN32 AND DEFINED KESTREL_DLLTOOL_MACHINE AND CMAKE_SYSTEM_PROCESSOR STREQUAL "ARM64")
    set(KESTREL_WINTRUST_LIBRARY "${CMAKE_BINARY_DIR}/libwintrust.a")
    kestrel_zig_import_library(wintrust "${KESTREL_WINTRUST_LIBRARY}")
endif()

# A Windows program of ours: an application manifest that makes the narrow
# command line UTF-8, and a version resource.
function(kestrel_windows_resources target description)
    if(NOT WIN32)
        return()
    endif()
    set(KESTREL_PROGRAM ${target})
    set(KESTREL_DESCRIPTION "${description}")
    set(KESTREL_VERSION_QUAD "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}.0")
    set(KESTREL_MANIFEST "${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest")
    configure_file("${PROJECT_SOURCE_DIR}/services/Kestrel/KestrelTool/KestrelTool.manifest"
                   "${KESTREL_MANIFEST}" @ONLY)
    configure_file("${PROJECT_SOURCE_DIR}/services/Kestrel/KestrelTool/KestrelTool.rc.in"
                   "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc" @ONLY)
    target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
    set_property(SOURCE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc" APPEND PROPERTY OBJECT_DEPENDS "${KESTREL_MANIFEST}")
endfunction()

# Checks of a built Windows program that need no Windows: machine type,
# console subsystem, the UTF-8 manifest, and no runtime DLLs to ship; with
# EXPORTS_SECURITY also the security library's exports, with LOADS_ON_USE no
# import but kernel32 and msvcrt.
function(kestrel_add_program_checks target)
    cmake_parse_arguments(PARSE_ARGV 1 check "EXPORTS_SECURITY;LOADS_ON_USE" "" "")
    find_program(KESTREL_LLVM_READOBJ NAMES llvm-readobj-14 llvm-readobj REQUIRED)
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "ARM64")
        set(machine "IMAGE_FILE_MACHINE_ARM64")
    else()
        set(machine "IMAGE_FILE_MACHINE_AMD64")
    endif()
    add_test(NAME ${target}.program_checks
        COMMAND "${CMAKE_COMMAND}"
            -DPROGRAM=$<TARGET_FILE:${target}>
            -DREADOBJ=${KESTREL_LLVM_READOBJ}
            -DMACHINE=${machine}
            -DEXPORTS_SECURITY=${check_EXPORTS_SECURITY}
            -DLOADS_ON_USE=${check_LOADS_ON_USE}
            -P "${PROJECT_SOURCE_DIR}/cmake/CheckWindowsProgram.cmake")
endfunction()
