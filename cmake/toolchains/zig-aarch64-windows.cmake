# Windows on Arm64: the product. Its programs cannot run here.
set(CMAKE_SYSTEM_PROCESSOR ARM64)
set(KESTREL_ZIG_TARGET aarch64-windows-gnu)
set(KESTREL_WINDRES_TARGET aarch64-w64-mingw32)
# Zig's msvcrt import library lacks two exports that libc++ needs; the build
# makes a small import library for them with this machine type.
set(KESTREL_DLLTOOL_MACHINE arm64)
include("${CMAKE_CURRENT_LIST_DIR}/zig-windows.cmake")
