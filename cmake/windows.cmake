# Windows builds (mingw-w64 cross compilers): vorn.dll with its export table
# fixed by src/vorn.def, the import library libvorn.dll.a for mingw, vorn.lib
# for MSVC, and the system libraries the Win32 platform layer calls.

# Programs land beside the DLL, where Windows looks for it first.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# The DLL is named vorn.dll (no "lib" prefix), as Windows applications expect.
set_target_properties(vorn PROPERTIES
  PREFIX ""
  IMPORT_PREFIX "lib"
  IMPORT_SUFFIX ".dll.a"
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin
  ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
target_sources(vorn PRIVATE ${PROJECT_SOURCE_DIR}/src/vorn.def)

# %zu and friends in printf-style formats need mingw's own stdio.
add_compile_definitions(__USE_MINGW_ANSI_STDIO=1)

# Win32 families: Winsock 2, GDI+ (and GDI for its bitmaps), SetupAPI.
set(VORN_WIN32_LIBRARIES ws2_32 gdiplus gdi32 setupapi)
target_link_libraries(vorn PRIVATE ${VORN_WIN32_LIBRARIES})
target_link_libraries(vorn_static PUBLIC ${VORN_WIN32_LIBRARIES})

# An MSVC import library made from the same .def file (lib.exe /def reads
# it the same way); dlltool writes it in the format MSVC's linker takes.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(VORN_DLLTOOL_MACHINE i386)
else()
  set(VORN_DLLTOOL_MACHINE i386:x86-64)
endif()
add_custom_command(TARGET vorn POST_BUILD
  COMMAND ${CMAKE_DLLTOOL} -m ${VORN_DLLTOOL_MACHINE} -d ${PROJECT_SOURCE_DIR}/src/vorn.def
          -D vorn.dll -l ${CMAKE_BINARY_DIR}/lib/vorn.lib
  BYPRODUCTS ${CMAKE_BINARY_DIR}/lib/vorn.lib
  COMMENT "Import library for MSVC: lib/vorn.lib"
  VERBATIM)
install(FILES ${CMAKE_BINARY_DIR}/lib/vorn.lib ${PROJECT_SOURCE_DIR}/src/vorn.def
  DESTINATION ${CMAKE_INSTALL_LIBDIR})

# The command-line program and its command reader mark their printf-like
# helpers with the printf archetype, which mingw checks against the Microsoft
# runtime's format letters; they print through mingw's own stdio (%zu
# included). Their formats are checked by the Linux build.
function(vorn_windows_tools_formats)
  foreach(target vorn_cli_lib vorn_escpos)
    if(TARGET ${target})
      target_compile_options(${target} PRIVATE -Wno-format)
    endif()
  endforeach()
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL vorn_windows_tools_formats)
