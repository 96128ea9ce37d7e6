# Windows x64 with the product's own compiler and runtime (Zig's clang and
# libc++), so that runtime's behaviour can be run under Wine.
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(KESTREL_ZIG_TARGET x86_64-windows-gnu)
set(KESTREL_WINDRES_TARGET x86_64-w64-mingw32)
set(KESTREL_DLLTOOL_MACHINE i386:x86-64)
include("${CMAKE_CURRENT_LIST_DIR}/zig-windows.cmake")
