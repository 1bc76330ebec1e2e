# Builds for 32-bit x86 Linux with the host's multilib gcc, finding the i386
# packages of Debian multiarch (libgtest-dev:i386, libbenchmark-dev:i386).
#   cmake -S . -B build-32 -DCMAKE_TOOLCHAIN_FILE=cmake/i386-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")

set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_C_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_CXX_LIBRARY_ARCHITECTURE i386-linux-gnu)

# The i386 package configs first; header-only packages (nlohmann_json) come
# from the architecture-independent /usr/share.
list(PREPEND CMAKE_PREFIX_PATH /usr/lib/i386-linux-gnu/cmake)
list(APPEND CMAKE_SYSTEM_LIBRARY_PATH /usr/lib/i386-linux-gnu /lib/i386-linux-gnu /usr/lib32)
set(FIND_LIBRARY_USE_LIB64_PATHS OFF)
set(FIND_LIBRARY_USE_LIB32_PATHS ON)
# A pkg-config lookup must not pick up the host's 64-bit .pc files.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig")
