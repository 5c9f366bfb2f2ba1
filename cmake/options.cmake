# Compiler options that every target shares.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# Source names in the libraries (the allocator keeps them) count from the top of the tree.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})

# The libraries lie beside each other and beside the tools of the build tree.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_BUILD_RPATH "$ORIGIN")
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

find_program(PLOV_CCACHE ccache)
if(PLOV_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${PLOV_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${PLOV_CCACHE})
endif()

# A 32-bit `stat` fails on large inode numbers and a 32-bit time ends in 2038: the console's ABI uses the 64-bit ones inside.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

set(PLOV_SANITIZE "" CACHE STRING "sanitizers, as the compiler's -fsanitize= takes them")
if(PLOV_SANITIZE)
  add_compile_options(-fsanitize=${PLOV_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${PLOV_SANITIZE})
  if(PLOV_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# The fuzzer finds its way by what it sees of the library, not of its own few lines.
if(PLOV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
