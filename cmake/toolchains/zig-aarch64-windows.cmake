# Windows on Arm64 with Zig 0.11's clang, libc++ and mingw-w64 runtime.
# The programs cannot run here; they must build and link.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ARM64)

set(CMAKE_C_COMPILER "${CMAKE_CURRENT_LIST_DIR}/../zig/aarch64-windows-gnu-cc")
set(CMAKE_CXX_COMPILER "${CMAKE_CURRENT_LIST_DIR}/../zig/aarch64-windows-gnu-c++")

find_program(KESTREL_LLVM_AR NAMES llvm-ar-14 llvm-ar REQUIRED)
find_program(KESTREL_LLVM_RANLIB NAMES llvm-ranlib-14 llvm-ranlib REQUIRED)
find_program(KESTREL_LLVM_WINDRES NAMES llvm-windres-14 llvm-windres REQUIRED)
find_program(KESTREL_LLVM_DLLTOOL NAMES llvm-dlltool-14 llvm-dlltool REQUIRED)
set(CMAKE_AR "${KESTREL_LLVM_AR}")
set(CMAKE_RANLIB "${KESTREL_LLVM_RANLIB}")
set(CMAKE_RC_COMPILER "${KESTREL_LLVM_WINDRES}")
set(CMAKE_RC_FLAGS_INIT "--target=aarch64-w64-mingw32")

# Zig's msvcrt import library lacks two exports that libc++ needs; the build
# makes a small import library for them with this machine type.
set(KESTREL_DLLTOOL_MACHINE arm64)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
