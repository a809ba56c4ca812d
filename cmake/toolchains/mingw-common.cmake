# Shared part of the mingw-w64 toolchain files; VORN_MINGW_TRIPLE names the
# target. The posix thread model is the one whose C++ runtime has
# std::mutex, std::thread and std::condition_variable.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${VORN_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VORN_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${VORN_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${VORN_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Linked statically, the DLL and the test programs import only Windows'
# own DLLs: no libgcc, libstdc++ or libwinpthread beside them.
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -static)
