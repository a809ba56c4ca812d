# The same sources for 64-bit Windows: the build whose test programs run
# under wine64 (32-bit Wine is not available everywhere the tests run).
set(VORN_MINGW_TRIPLE x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine-run)
