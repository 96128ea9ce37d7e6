# cmake -DPROGRAM=x.exe -DREADOBJ=llvm-readobj -DMACHINE=IMAGE_FILE_MACHINE_ARM64 -P CheckWindowsProgram.cmake
foreach(var PROGRAM READOBJ MACHINE)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "${var} is not set")
    endif()
endforeach()

execute_process(COMMAND "${READOBJ}" --file-headers --coff-imports --coff-exports --coff-resources "${PROGRAM}"
    OUTPUT_VARIABLE report RESULT_VARIABLE result ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "llvm-readobj failed on ${PROGRAM}: ${errors}")
endif()

set(failures "")
if(NOT report MATCHES "Machine: ${MACHINE} ")
    string(APPEND failures "\n  machine is not ${MACHINE}")
endif()
if(NOT report MATCHES "Magic: 0x20B")
    string(APPEND failures "\n  not a PE32+ image")
endif()
if(NOT report MATCHES "Subsystem: IMAGE_SUBSYSTEM_WINDOWS_CUI ")
    string(APPEND failures "\n  not a console program")
endif()
# Windows reads a process's manifest from resource type 24, ID 1.
if(NOT report MATCHES "Type: MANIFEST \\(ID 24\\) \\[[^]]*Name: \\(ID 1\\) \\[")
    string(APPEND failures "\n  no manifest resource with ID 1")
endif()
# Runtime libraries are linked statically: none of their DLLs may be imported.
foreach(dll libstdc\\+\\+-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll libc\\+\\+.dll libunwind.dll)
    if(report MATCHES "Name: ${dll}")
        string(APPEND failures "\n  imports ${dll}")
    endif()
endforeach()

# A program that loads the rest of the system on use imports nothing else at start.
if(LOADS_ON_USE)
    string(REGEX MATCHALL "Name: [^ \n]+[.](dll|DLL)" imported "${report}")
    list(REMOVE_ITEM imported "Name: KERNEL32.dll" "Name: msvcrt.dll")
    if(imported)
        string(APPEND failures "\n  loads at start: ${imported}")
    endif()
endif()

# The security library's classes are exported for the components it loads.
set(exports "")
if(EXPORTS_SECURITY)
    set(exports
        Security19BridgeAccessManagerC1Ev
        Security41UwpWithNoTesselManifestExemptionWhiteList11_white_listE
        Security43Win32WithNoTesselManifestExemptionWhiteList11_white_listE
        Security17RpcSecurityHelper14GetPFNOfCaller
        Services10UtilHelper19GetFullExpandedPath
        Logging10LogManager9GetLoggerEv)
endif()
foreach(name IN LISTS exports)
    if(NOT report MATCHES "Name: _ZN6Tessel6Bridge[0-9A-Za-z]*${name}")
        string(APPEND failures "\n  does not export ${name}")
    endif()
endforeach()

# The manifest text is stored as is in the resource section.
file(STRINGS "${PROGRAM}" code_page REGEX "<activeCodePage[^>]*>UTF-8</activeCodePage>")
if(NOT code_page)
    string(APPEND failures "\n  the manifest does not set the active code page to UTF-8")
endif()

if(failures)
    message(FATAL_ERROR "${PROGRAM}:${failures}")
endif()
message(STATUS "${PROGRAM}: ${MACHINE}, PE32+ console program with the UTF-8 manifest, no runtime DLLs")
