# Cross-build for 64-bit Windows with Debian's mingw-w64 (g++-mingw-w64-x86-64):
#   cmake -S . -B build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mingw-w64-x86_64.cmake
# Targets and libraries come from the mingw-w64 sysroot only. Eigen is
# header-only and taken from the host's Debian package as it is; OpenCV and
# dlib have no Windows build in Debian, so the parts that need them (the RGBD
# frame selection, its provider and the tool) are left out
# (MERIDIAN_WITH_OPENCV=OFF).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(MERIDIAN_MINGW_TRIPLE x86_64-w64-mingw32)

# The posix thread model: the blendshape engine runs its regions on
# std::thread, which the win32 model of this compiler lacks.
set(CMAKE_C_COMPILER ${MERIDIAN_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${MERIDIAN_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${MERIDIAN_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${MERIDIAN_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Eigen3_DIR /usr/share/eigen3/cmake CACHE PATH "Eigen's CMake package (header-only, host)")
# TinyGLTF compiled for the target from Debian's header (cmake/windows/).
set(TinyGLTF_DIR ${CMAKE_CURRENT_LIST_DIR}/../windows CACHE PATH "TinyGLTF for the target")

# The DLLs and the programs carry the GCC runtime inside: nothing to ship
# beside them.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")

set(MERIDIAN_WITH_OPENCV OFF CACHE BOOL "OpenCV and dlib have no Windows build in Debian")
set(MERIDIAN_BUILD_TOOLS OFF CACHE BOOL "The tool draws its pictures with OpenCV")
# The tests that need neither OpenCV, the tool nor POSIX process calls,
# against GoogleTest built from Debian's sources (tests/windows/).
set(MERIDIAN_BUILD_TESTS ON CACHE BOOL "Cross-build the tests that run under Wine")
set(MERIDIAN_BUILD_BENCH OFF CACHE BOOL "Google Benchmark has no Windows build in Debian")
