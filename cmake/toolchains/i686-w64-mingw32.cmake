# The shipped 32-bit DLL. Host applications keep the stack only 4-byte
# aligned, so every exported entry realigns it for SSE spills. Doubles are
# computed in SSE2 registers: on the x87 unit their sums would depend on the
# precision the host process left the unit in, and gray values with them.
set(VORN_MINGW_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
set(CMAKE_C_FLAGS_INIT "-mstackrealign -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-mstackrealign -msse2 -mfpmath=sse")
